// RkWipe64: removes the files that the viewer extracted from encrypted entries, overwriting their
// bytes first, and then the viewer's emptied temporary folder. The viewer launches it on closing
// and does not wait, so the work outlives the host.
//
//   RkWipe64 [--no-detach] PATH ["/nTITLE" | /n "TITLE"]
//   RkWipe64 [--no-detach] @LISTFILE ["/nTITLE" | /n "TITLE"]
//
// PATH names a file, or a folder when it ends in a separator. LISTFILE holds one such path per
// line and is deleted at the end, whatever happened. Each argument may come in double quotes.
// TITLE names the work in messages; it may follow "/n" directly or as an argument of its own.
// --no-detach keeps the work in the launched process, so that its exit status tells the outcome:
// 0 when nothing listed is left, 1 otherwise, 2 for bad arguments. Detached, the launcher only
// learns that the work started.
#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <string>
#include <string_view>
#include <vector>

#include "RkFid.h"
#include "RkWipeList.h"
#include "RkWiper.h"

using RkWipe::RkFd;
using RkWipe::RkListReader;
using RkWipe::RkWiper;

namespace {

constexpr int kExitDone = 0;
constexpr int kExitLeft = 1;
constexpr int kExitUsage = 2;

struct Request {
  bool detach = true;
  bool list = false;
  std::string target;  // the path, or the list file's path without its "@"
  std::string title;
};

// Callers that build a command line for a shell quote each argument; the quotes are not the name.
std::string_view Unquote(std::string_view arg) {
  if (arg.size() >= 2 && arg.front() == '"' && arg.back() == '"') return arg.substr(1, arg.size() - 2);
  return arg;
}

bool ParseArguments(int argc, char** argv, Request& out, std::string& why) {
  std::vector<std::string_view> args;
  for (int i = 1; i < argc; ++i) args.push_back(Unquote(argv[i]));
  if (!args.empty() && args.front() == "--no-detach") {
    out.detach = false;
    args.erase(args.begin());
  }
  if (args.empty() || args.size() > 3) {
    why = "expected a path or an @ list file, then \"/n\" and a title";
    return false;
  }
  if (args.size() >= 2) {
    std::string_view title = args[1];
    if (title.size() < 2 || title[0] != '/' || (title[1] != 'n' && title[1] != 'N')) {
      why = "the second argument must be \"/n\" and a title";
      return false;
    }
    title.remove_prefix(2);
    // A launcher that builds the command line by words hands over "/n" and the title apart.
    if (args.size() == 3) {
      if (!title.empty()) {
        why = "a title was given twice, after \"/n\" and as an argument of its own";
        return false;
      }
      title = args[2];
    }
    out.title = title;
  }
  std::string_view target = args[0];
  if (target.starts_with('@')) {
    out.list = true;
    target = Unquote(target.substr(1));
    if (target.empty()) {
      why = "\"@\" must be followed by the list file";
      return false;
    }
    out.target = target.find('\\') == std::string_view::npos ? std::string(target)
                                                             : RkLib::FidString::FromPosix(target).ToPosix();
    return true;
  }
  if (RkWiper::SystemPath(target, why).empty()) {
    why = "bad path, " + why;
    return false;
  }
  out.target = target;
  return true;
}

// The launcher waits only for this process: the parent leaves at once so that it can be reaped,
// and the child carries on in a session of its own, so that the end of the host (its terminal
// hanging up, its process group being signalled) does not end the wiping.
void Detach(const RkWiper& wiper) {
  pid_t child = fork();
  if (child > 0) _exit(kExitDone);
  if (child < 0) {
    wiper.note("cannot detach, wiping before returning", "", errno);
    return;
  }
  setsid();
  signal(SIGHUP, SIG_IGN);
}

// The list says what to destroy, so only a list that we wrote ourselves is obeyed: in a shared
// temporary folder, another user who could plant or alter it would otherwise choose what we
// wipe. Its folders may be links (nothing is written there); the file itself may not.
RkFd OpenList(const std::string& path, RkWiper& wiper) {
  RkFd list(open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
  if (!list) {
    wiper.fail("cannot open the list file", path, errno);
    return list;
  }
  struct stat st;
  if (fstat(list.get(), &st) != 0) {
    wiper.fail("cannot examine the list file", path, errno);
    return {};
  }
  if (!S_ISREG(st.st_mode) || st.st_uid != geteuid() || (st.st_mode & S_IWOTH) != 0) {
    wiper.fail("not obeyed, the list file is not a file of ours that only we may write", path);
    return {};
  }
  return list;
}

bool IsBlank(std::string_view line) { return line.find_first_not_of(" \t") == std::string_view::npos; }

// One pass over the list for either the files or the folders.
void WipePass(RkListReader& reader, RkWiper& wiper, bool folders) {
  std::string line;
  for (;;) {
    switch (reader.next(line)) {
      case RkListReader::Result::kEnd:
        return;
      case RkListReader::Result::kError:
        wiper.fail("cannot read the list file", "", reader.error());
        return;
      case RkListReader::Result::kTooLong:
        if (!folders)
          wiper.fail(
              "skipped line " + std::to_string(reader.lineNumber()) + " of the list, longer than 64 KiB", "");
        continue;
      case RkListReader::Result::kLine:
        break;
    }
    if (IsBlank(line) || RkWiper::IsFolderEntry(line) != folders) continue;
    if (folders)
      wiper.removeFolder(line);
    else
      wiper.wipeFile(line);
  }
}

// Files first, folders in a second pass: a folder is tried once its listed files are gone,
// wherever it stands in the list, and no entry is held in memory meanwhile.
void WipeList(const std::string& path, RkWiper& wiper) {
  if (RkFd list = OpenList(path, wiper)) {
    RkListReader reader(list.get());
    WipePass(reader, wiper, false);
    if (reader.rewind())
      WipePass(reader, wiper, true);
    else
      wiper.fail("cannot read the list file again for its folders", path, reader.error());
  }
  // The list was made for this run only. unlink never follows the last component.
  if (unlink(path.c_str()) != 0 && errno != ENOENT) wiper.fail("cannot delete the list file", path, errno);
}

}  // namespace

int main(int argc, char** argv) {
  Request request;
  std::string why;
  if (!ParseArguments(argc, argv, request, why)) {
    std::fprintf(stderr, "RkWipe64: %s\nusage: RkWipe64 PATH|@LISTFILE [\"/nTITLE\" | /n TITLE]\n", why.c_str());
    return kExitUsage;
  }
  // A host that reads our stderr through a pipe may be gone before we are done.
  signal(SIGPIPE, SIG_IGN);
  RkWiper wiper(request.title);
  if (request.detach) Detach(wiper);
  if (request.list)
    WipeList(request.target, wiper);
  else if (RkWiper::IsFolderEntry(request.target))
    wiper.removeFolder(request.target);
  else
    wiper.wipeFile(request.target);
  return wiper.failures() == 0 ? kExitDone : kExitLeft;
}
