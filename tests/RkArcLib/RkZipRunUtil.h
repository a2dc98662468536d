// Helpers of the extraction tests: a host that records what it is told and answers as it is set
// to, a run of Extract or Test under a watchdog, and folder trees as maps that compare in one go.
#pragma once

#include <dirent.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <future>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "RkArcCallback.h"
#include "RkArcSelection.h"
#include "RkState.h"
#include "RkZipFile.h"

namespace RkArcTest {

inline bool Shell(const std::string& command) { return std::system(command.c_str()) == 0; }
inline bool Have(const std::string& tool) { return Shell("command -v " + tool + " >/dev/null 2>&1"); }
inline std::string Quote(const std::string& text) {
  std::string quoted = "'";
  for (char c : text) quoted += c == '\'' ? std::string("'\\''") : std::string(1, c);
  return quoted + "'";
}
inline std::string ReadFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), {});
}

// Every thing below `root` by its relative path: "dir", "link -> TARGET", or "file MODE" and the
// bytes (the mode only when `modes`). Links are never followed.
using Tree = std::map<std::string, std::string>;
inline void AddTree(const std::string& root, const std::string& below, bool modes, Tree& tree) {
  DIR* dir = ::opendir((root + "/" + below).c_str());
  if (!dir) return;
  while (const dirent* d = ::readdir(dir)) {
    const std::string name = d->d_name;
    if (name == "." || name == "..") continue;
    const std::string rel = below.empty() ? name : below + "/" + name;
    const std::string path = root + "/" + rel;
    struct stat st;
    if (::lstat(path.c_str(), &st) != 0) continue;
    if (S_ISLNK(st.st_mode)) {
      tree[rel] = "link -> " + std::filesystem::read_symlink(path).string();
    } else if (S_ISDIR(st.st_mode)) {
      tree[rel] = "dir";
      AddTree(root, rel, modes, tree);
    } else {
      char mode[16];
      std::snprintf(mode, sizeof mode, "%03o ", static_cast<unsigned>(st.st_mode & 0777));
      tree[rel] = "file " + (modes ? std::string(mode) : std::string()) + ReadFile(path);
    }
  }
  ::closedir(dir);
}
inline Tree TreeOf(const std::string& root, bool modes = false) {
  Tree tree;
  AddTree(root, "", modes, tree);
  return tree;
}
// The differences of two trees, one line each, with the bytes of files left out.
inline std::string TreeDiff(const Tree& want, const Tree& got) {
  std::string out;
  const auto head = [](const std::string& v) {
    return v.rfind("file", 0) == 0 ? "file of " + std::to_string(v.size() - 5) + " bytes" : v;
  };
  for (const auto& [path, v] : want) {
    auto it = got.find(path);
    if (it == got.end())
      out += "missing " + path + "\n";
    else if (it->second != v)
      out += "differs " + path + ": " + head(v) + " vs " + head(it->second) + "\n";
  }
  for (const auto& [path, v] : got)
    if (!want.count(path)) out += "extra " + path + ": " + head(v) + "\n";
  return out;
}

inline int ThreadCount() {
  int n = 0;
  for ([[maybe_unused]] const auto& task : std::filesystem::directory_iterator("/proc/self/task")) ++n;
  return n;
}

// A host that says yes to everything it is told and answers questions as set beforehand.
class Host : public RkArcLib::RkArcCallback {
 public:
  bool ReportMessage(uint32_t level, const RkLib::RkString& text) override {
    messages.push_back({level, text.toUtf8()});
    return true;
  }
  void Progress(uint32_t kind, const RkLib::RkString&) override {
    if (kind == RkArcLib::kArcProgressStatus) ++announced;
  }
  int AskFileExists(const RkLib::FidString&, const RkArcLib::RkArcItem&) override {
    ++existsAsked;
    return existsAnswer;
  }
  // Cancels from the call after `cancelAfter` on, or at once when `cancelNow`.
  bool IsCancelled() override {
    const int n = ++cancelPolls;
    return cancelNow || (cancelAfter >= 0 && n > cancelAfter);
  }
  size_t CountAt(uint32_t level) const {
    size_t n = 0;
    for (const auto& m : messages) n += m.first == level;
    return n;
  }
  std::string All() const {
    std::string s;
    for (const auto& [level, text] : messages) s += "[" + std::to_string(level) + "] " + text + "\n";
    return s;
  }

  std::vector<std::pair<uint32_t, std::string>> messages;
  int announced = 0;
  int existsAsked = 0;
  int existsAnswer = RkArcLib::kArcExistsReplace;
  int cancelAfter = -1;
  std::atomic<int> cancelPolls{0};
  std::atomic<bool> cancelNow{false};
};

// A zip file loaded for a run, with its host.
struct ZipRun {
  explicit ZipRun(const std::string& archive)
      : zip(std::make_unique<RkArcLib::RkZipFile>(RkLib::FidString::FromPosix(archive))) {
    zip->SetCallback(&host);
    RkArcLib::RkState loadState;
    loaded = zip->Load(0, -1, nullptr, loadState);
    loadCode = loadState.code;
  }

  // Extracts into `base`, or tests when `base` is empty, after `adjust` has had the selection.
  // A run that outlives `limit` fails the test and is cancelled; one that then goes on ends the
  // process, since its threads still use this object.
  bool Run(const std::string& base, const std::function<void(RkArcLib::RkArcSelection&)>& adjust = {},
           std::chrono::seconds limit = std::chrono::seconds(60)) {
    RkArcLib::RkArcSelection selection(zip->GetSupportInfo());
    if (!base.empty()) selection.SetBaseFolder(RkLib::FidString::FromPosix(base));
    if (adjust) adjust(selection);
    const auto start = std::chrono::steady_clock::now();
    auto future = std::async(std::launch::async, [&] {
      return base.empty() ? zip->Test(selection, state) : zip->Extract(selection, state);
    });
    if (future.wait_for(limit) != std::future_status::ready) {
      ADD_FAILURE() << "the run did not end within " << limit.count() << " s";
      host.cancelNow = true;
      if (future.wait_for(std::chrono::seconds(10)) != std::future_status::ready) {
        std::fprintf(stderr, "a cancelled run still hangs; giving up\n");
        std::abort();
      }
    }
    const bool ok = future.get();
    seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    return ok;
  }

  Host host;
  std::unique_ptr<RkArcLib::RkZipFile> zip;
  RkArcLib::RkState state;
  bool loaded = false;
  uint32_t loadCode = 0;
  double seconds = 0;
};

}  // namespace RkArcTest
