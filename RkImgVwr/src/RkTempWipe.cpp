#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "RkBOM.h"
#include "RkError.h"
#include "RkFid.h"
#include "RkFileOps.h"
#include "RkLangModule.h"
#include "RkProcess.h"
#include "RkViewerException.h"
#include "RkViewerRecord.h"
#include "RkViewerState.h"

extern char** environ;

namespace RkImgVwr {

namespace {

const char kWiperName[] = "RkWipe64";

// The wiper refuses a path that passes through a symbolic link, so it is given the real path:
// a temporary folder under a linked home is still wiped. A path whose folder is gone stays as it is.
std::string RealPath(const FidString& path) {
  FidString folder = path.GetFolder();
  folder.RemoveSeparator();
  const std::string name = FidString(path.GetName()).ToPosix();
  char* real = ::realpath(folder.empty() ? "." : folder.ToPosix().c_str(), nullptr);
  if (!real) return path.ToPosix();
  std::string out = real;
  std::free(real);
  if (out != "/") out += '/';
  return out + name;
}

// The list file is private to the user (0600): it names what an encrypted archive held.
class RkWipeList {
 public:
  RkWipeList() = default;
  RkWipeList(const RkWipeList&) = delete;
  RkWipeList& operator=(const RkWipeList&) = delete;
  // The name is mkostemp's, kept as the system's bytes: turned into a FidString, a temporary
  // folder whose name holds a backslash or bytes that are not UTF-8 would name another file, and
  // this private list would stay behind.
  ~RkWipeList() {
    if (!kept_ && !path_.empty()) ::unlink(path_.c_str());
  }

  bool Write(const RkLib::FidList& files) {
    const char* tmp = std::getenv("TMPDIR");
    std::string folder = tmp && *tmp ? tmp : P_tmpdir;
    std::string pattern = folder + "/RKW-XXXXXX";
    int fd = ::mkostemp(pattern.data(), O_CLOEXEC);
    if (fd < 0) return false;
    path_ = pattern;
    std::string text(RkLib::RkBOM::Bytes(RkLib::kBomUtf8));
    for (const RkLib::FidString& f : files) text += RealPath(f) + "\r\n";
    bool ok = ::write(fd, text.data(), text.size()) == static_cast<ssize_t>(text.size());
    ok = ::close(fd) == 0 && ok;
    return ok;
  }
  // The wiper deletes the list file once it has read it.
  void HandOver() { kept_ = true; }
  const std::string& Path() const { return path_; }

 private:
  std::string path_;
  bool kept_ = false;
};

// What the wiper inherits from the host. It outlives the host, so a descriptor it kept would hold
// the host's pipes, sockets and locks open long after the host is gone (a reader of the host's
// output would wait for the wiper's end), and a signal the host blocks or ignores would keep the
// wiper from being stopped. Descriptors from 3 up are closed, the mask is emptied and every
// disposition is the default.
class RkSpawnSetup {
 public:
  RkSpawnSetup() {
    actionsMade_ = ::posix_spawn_file_actions_init(&actions_) == 0;
    attributesMade_ = ::posix_spawnattr_init(&attributes_) == 0;
    if (!actionsMade_ || !attributesMade_) return;
    sigset_t none, all;
    sigemptyset(&none);
    sigfillset(&all);
    ok_ = ::posix_spawn_file_actions_addclosefrom_np(&actions_, 3) == 0 &&
          ::posix_spawnattr_setsigmask(&attributes_, &none) == 0 &&
          ::posix_spawnattr_setsigdefault(&attributes_, &all) == 0 &&
          ::posix_spawnattr_setflags(&attributes_, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF) == 0;
  }
  RkSpawnSetup(const RkSpawnSetup&) = delete;
  RkSpawnSetup& operator=(const RkSpawnSetup&) = delete;
  ~RkSpawnSetup() {
    if (attributesMade_) ::posix_spawnattr_destroy(&attributes_);
    if (actionsMade_) ::posix_spawn_file_actions_destroy(&actions_);
  }

  bool ok() const { return ok_; }
  const posix_spawn_file_actions_t* actions() const { return &actions_; }
  const posix_spawnattr_t* attributes() const { return &attributes_; }

 private:
  posix_spawn_file_actions_t actions_;
  posix_spawnattr_t attributes_;
  bool actionsMade_ = false;
  bool attributesMade_ = false;
  bool ok_ = false;
};

// Starts the wiper and reaps the launcher: the wiper detaches at once and goes on by itself.
bool Launch(const std::string& wiper, const std::string& argument, const std::string& title) {
  std::string titleArgument = "/n" + title;
  std::vector<char*> argv = {const_cast<char*>(wiper.c_str()), const_cast<char*>(argument.c_str()),
                             const_cast<char*>(titleArgument.c_str()), nullptr};
  RkSpawnSetup setup;
  if (!setup.ok()) return false;
  pid_t pid = 0;
  if (::posix_spawn(&pid, wiper.c_str(), setup.actions(), setup.attributes(), argv.data(), environ) != 0)
    return false;
  int status = 0;
  while (::waitpid(pid, &status, 0) < 0 && errno == EINTR) {
  }
  return true;
}

}  // namespace

void wipeTemporaryFiles(RkDocCollection* collection) {
  RK_ASSERT(collection != nullptr);
  FidString wiper = FidString::FromPosix(RkLib::RkExecutablePath());
  if (wiper.empty() || wiper.IsFolderOnly()) return;
  wiper.ReplaceName(RkString::FromAscii(kWiperName).view());
  const std::string wiperPath = wiper.ToPosix();
  RkLib::RkPathInfo info;
  if (RkLib::RkGetPathInfo(wiper, info, RkLib::RkLinks::kFollowed) != 0 || info.kind != RkLib::RkPathKind::kFile)
    return;

  RkHideDeletedScope showAll(false);
  RkLib::FidList files;
  std::vector<RkSourceDocument*> handedOver;
  uint32_t kept = 0;
  bool isLast = false;
  for (RkSourceDocument* d = collection->first(isLast); d; d = collection->next(d, isLast)) {
    if (d->getKeepFile()) {
      ++kept;
    } else if (d->getExtracted() && d->getEncrypted()) {
      files.Add(d->fullPath());
      d->setWiped(true);
      handedOver.push_back(d);
    } else if (d->getExtracted()) {
      d->deleteFile();
    }
  }
  // With nothing of the user's left in it, the wiper takes the folder away too.
  if (kept == 0 && !files.Empty()) {
    FidString folder(collection->tempFolder());
    folder.RemoveSeparator();
    folder += FidString::kSeparator;
    files.Add(folder);
  }
  if (files.Empty()) return;

  RkWipeList list;
  std::string argument;
  bool launched = false;
  if (files.Count() == 1) {
    argument = RealPath(files.Head()->fid);
  } else if (list.Write(files)) {
    argument = "@" + list.Path();
  }
  if (!argument.empty()) {
    launched = Launch(wiperPath, argument, RkLangModule::Get().Text(kMsgTitle).toUtf8());
    if (launched && files.Count() > 1) list.HandOver();
  }
  // Without the wiper the files are at least deleted, by the collection's destructor.
  if (!launched)
    for (RkSourceDocument* d : handedOver) d->setWiped(false);
}

}  // namespace RkImgVwr
