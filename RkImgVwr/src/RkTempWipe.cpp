#include <fcntl.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <string>
#include <vector>

#include "RkBOM.h"
#include "RkError.h"
#include "RkFid.h"
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
  ~RkWipeList() {
    if (!kept_ && !path_.empty()) ::unlink(path_.c_str());
  }

  bool Write(const RkLib::FidList& files) {
    const char* tmp = std::getenv("TMPDIR");
    std::string folder = tmp && *tmp ? tmp : "/tmp";
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

// Starts the wiper and reaps the launcher: the wiper detaches at once and goes on by itself.
bool Launch(const std::string& wiper, const std::string& argument, const std::string& title) {
  std::string titleArgument = "/n" + title;
  std::vector<char*> argv = {const_cast<char*>(wiper.c_str()), const_cast<char*>(argument.c_str()),
                             const_cast<char*>(titleArgument.c_str()), nullptr};
  pid_t pid = 0;
  if (::posix_spawn(&pid, wiper.c_str(), nullptr, nullptr, argv.data(), environ) != 0) return false;
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
  struct stat st;
  if (::stat(wiperPath.c_str(), &st) != 0 || !S_ISREG(st.st_mode)) return;

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
