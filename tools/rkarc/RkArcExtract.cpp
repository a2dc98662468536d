// rkarc t and rkarc x: test or extract the entries of an archive.
//
//   rkarc t [-p PASSWORD] ARCHIVE
//   rkarc x [-p PASSWORD] [-o DIR] [-y] ARCHIVE [NAME...]
//
// Exit status: 0 all well, 1 some entries failed (the others done, a summary printed), 2 the
// archive cannot be read or the usage is wrong.
#include <unistd.h>

#include <chrono>
#include <cinttypes>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "RkArcCallback.h"
#include "RkArcCli.h"
#include "RkArcItem.h"
#include "RkArcSelection.h"
#include "RkError.h"

namespace rkarc {

namespace {

using RkArcLib::RkArcCallback;
using RkLib::RkString;

constexpr int kExitSomeFailed = 1;
constexpr int kExitBad = 2;

const char kTestHelp[] =
    "Usage: rkarc t [-p PASSWORD] ARCHIVE\n"
    "\n"
    "Reads every entry of ARCHIVE and checks it against its CRC and size, writing nothing.\n"
    "\n"
    "  -p PASSWORD  the password of encrypted entries\n"
    "  --help       show this text\n"
    "\n"
    "Exit status: 0 every entry is sound, 1 some are not (each named on standard error),\n"
    "2 the archive cannot be read or the usage is wrong.\n";

const char kExtractHelp[] =
    "Usage: rkarc x [-p PASSWORD] [-o DIR] [-y] ARCHIVE [NAME...]\n"
    "\n"
    "Extracts the entries of ARCHIVE, or those NAMEs select ('*' and '?' match any run and any\n"
    "one character), under DIR, recreating folders and modification times. Nothing is ever\n"
    "written outside DIR; a symbolic link is written as a small file holding its target.\n"
    "\n"
    "  -o DIR       where to extract (default: the current folder)\n"
    "  -y           replace existing files; without it they are kept and named\n"
    "  -p PASSWORD  the password of encrypted entries\n"
    "  --help       show this text\n"
    "\n"
    "Exit status: 0 all extracted, 1 some entries failed (the others are extracted),\n"
    "2 the archive cannot be read or the usage is wrong.\n";

// Answers the library for a person at a terminal who said everything beforehand.
class CliCallback : public RkArcCallback {
 public:
  CliCallback(std::string archive, bool replace) : archive_(std::move(archive)), replace_(replace) {
    bar_ = ::isatty(STDERR_FILENO) != 0;
    start_ = std::chrono::steady_clock::now();
  }

  uint64_t totalBytes = 0;  // for the progress bar
  int kept = 0;

  bool ReportMessage(uint32_t level, const RkString& message) override {
    if (level == 0) return true;
    ClearBar();
    // The library writes names with '\\' between their parts; here they are paths of this system.
    std::string text = message.toUtf8();
    for (char& c : text)
      if (c == '\\') c = '/';
    std::fprintf(stderr, "rkarc: %s: %s\n", archive_.c_str(), text.c_str());
    return true;
  }

  int AskFileExists(const RkLib::FidString& path, const RkArcLib::RkArcItem&) override {
    if (replace_) return RkArcLib::kArcExistsReplace;
    ClearBar();
    std::fprintf(stderr, "rkarc: %s exists; kept (use -y to replace)\n", path.ToPosix().c_str());
    ++kept;
    return RkArcLib::kArcExistsSkip;
  }

  int AskPassword(const RkLib::FidString&, RkString&, int) override { return 0; }

  void SetPercent(int percent) override {
    if (!bar_ || totalBytes == 0) return;
    const double seconds =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - start_).count();
    const double done = static_cast<double>(totalBytes) * percent / 100.0;
    const double rate = seconds > 0 ? done / seconds : 0;
    const double left = rate > 0 ? (static_cast<double>(totalBytes) - done) / rate : 0;
    const int width = 30;
    const int filled = percent * width / 100;
    std::fprintf(stderr, "\r[%.*s%*s] %3d%%  %.1f MB  %.1f MB/s  %.0f s left ", filled,
                 "##############################", width - filled, "", percent, done / 1e6, rate / 1e6, left);
    std::fflush(stderr);
    shown_ = true;
  }

  void ClearBar() {
    if (!shown_) return;
    std::fprintf(stderr, "\r%*s\r", 79, "");
    shown_ = false;
  }

 private:
  std::string archive_;
  bool replace_;
  bool bar_;
  bool shown_ = false;
  std::chrono::steady_clock::time_point start_;
};

struct Options {
  std::string archive;
  std::string folder = ".";
  std::string password;
  bool hasPassword = false;
  bool replace = false;
  std::vector<std::string> names;
};

// Parses the options of t (extract false) or x; returns -1 to go on, or the exit status.
int Parse(int argc, char** argv, bool extract, Options& options) {
  const char* help = extract ? kExtractHelp : kTestHelp;
  for (int i = 0; i < argc; ++i) {
    const std::string arg = argv[i];
    const auto value = [&](const char* what) -> const char* {
      if (i + 1 >= argc) {
        std::fprintf(stderr, "rkarc: %s needs %s\n\n%s", arg.c_str(), what, help);
        return nullptr;
      }
      return argv[++i];
    };
    if (arg == "--help" || arg == "-h") {
      std::fputs(help, stdout);
      return kExitOk;
    } else if (arg == "-p") {
      const char* v = value("a password");
      if (!v) return kExitBad;
      options.password = v;
      options.hasPassword = true;
    } else if (extract && arg == "-o") {
      const char* v = value("a folder");
      if (!v) return kExitBad;
      options.folder = v;
    } else if (extract && arg == "-y") {
      options.replace = true;
    } else if (arg.size() > 1 && arg[0] == '-') {
      std::fprintf(stderr, "rkarc: unknown option '%s'\n\n%s", arg.c_str(), help);
      return kExitBad;
    } else if (options.archive.empty()) {
      options.archive = arg;
    } else if (extract) {
      options.names.push_back(arg);
    } else {
      std::fprintf(stderr, "rkarc: one archive at a time\n");
      return kExitBad;
    }
  }
  if (options.archive.empty()) {
    std::fputs(help, stderr);
    return kExitBad;
  }
  return -1;
}

int Run(int argc, char** argv, bool extract) {
  Options options;
  if (const int status = Parse(argc, argv, extract, options); status >= 0) return status;

  CliCallback callback(options.archive, options.replace);
  std::string reason;
  std::unique_ptr<RkArcLib::RkArchive> archive = OpenArchive(options.archive, callback, reason);
  if (!archive) {
    std::fprintf(stderr, "rkarc: %s: %s\n", options.archive.c_str(), reason.c_str());
    return kExitBad;
  }
  try {
    RkArcLib::RkArcSelection selection(archive->GetSupportInfo());
    for (const std::string& name : options.names) {
      const bool wildcard = name.find_first_of("*?") != std::string::npos;
      selection.AddItem(RkString::FromUtf8(name), wildcard);
    }
    if (extract) selection.SetBaseFolder(RkLib::FidString::FromPosix(options.folder));
    if (options.hasPassword) selection.SetPassword(RkString::FromUtf8(options.password));
    for (int64_t i = 0; i < archive->GetItemCount(); ++i) {
      RkArcLib::RkArcItem item;
      RkArcLib::RkState itemState;
      if (archive->GetItem(i, item, itemState) && selection.Matches(item.name) &&
          item.originalSize != RkArcLib::kArcUnknownSize)
        callback.totalBytes += item.originalSize;
    }
    RkArcLib::RkState state;
    const bool ok = extract ? archive->Extract(selection, state) : archive->Test(selection, state);
    callback.ClearBar();
    if (ok) {
      if (callback.kept > 0) std::fprintf(stderr, "rkarc: %d existing file%s kept\n", callback.kept, callback.kept == 1 ? "" : "s");
      return kExitOk;
    }
    if (state.code == RkArcLib::kArcNoFilesSelected) {
      std::fprintf(stderr, "rkarc: %s: no entry matches\n", options.archive.c_str());
      return kExitSomeFailed;
    }
    if (state.severity >= RkLib::kSeverityFatal) {
      RkString text;
      const std::string why = archive->GetErrorMessage(state, text) ? text.toUtf8() : "the run was ended";
      std::fprintf(stderr, "rkarc: %s: %s (code %u)\n", options.archive.c_str(), why.c_str(), state.code);
      return kExitBad;
    }
    std::fprintf(stderr, "rkarc: %s: not every entry %s (first failure: code %u); the others are done\n",
                 options.archive.c_str(), extract ? "was extracted" : "is sound", state.code);
    return kExitSomeFailed;
  } catch (const RkLib::RkError& e) {
    std::fprintf(stderr, "rkarc: %s: the request was refused (code %u)\n", options.archive.c_str(), e.code());
    return kExitBad;
  }
}

}  // namespace

int TestCommand(int argc, char** argv) { return Run(argc, argv, false); }
int ExtractCommand(int argc, char** argv) { return Run(argc, argv, true); }

}  // namespace rkarc
