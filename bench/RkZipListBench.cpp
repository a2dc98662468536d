// Loading a zip's central directory against the listings of 7zz, unzip and bsdtar, in one run on
// the same files:
//
// - many: 200,000 small stored entries written by Python's zipfile (its end records are zip64
//   ones, since the count passes 65535);
// - zip64: 20,000 entries written by Info-ZIP zip with -fz, which puts a zip64 extra on every
//   central record.
//
// Each contender runs five times, alternating, and the best time counts; the peers print to
// /dev/null. Goal: our full load at least twice as fast as the fastest peer, and under 200 bytes
// of heap per entry beyond its name. The files are made in a fresh folder under TMPDIR and
// removed at the end. Usage: RkZipListBench [entries]. Exit status 1 only when the files cannot
// be made; a missed goal is printed, since a shared machine's noise must not fail `make bench`.
#include <fcntl.h>
#include <malloc.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <string>
#include <vector>

#include "RkZipEntry.h"
#include "RkZipFile.h"

extern char** environ;

namespace {

constexpr int kRounds = 5;

double Seconds(const std::function<void()>& work) {
  const auto start = std::chrono::steady_clock::now();
  work();
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

// Runs a program with its output thrown away; false when it cannot be run or fails.
bool Run(std::vector<std::string> args, const std::string& folder = {}) {
  std::vector<char*> argv;
  for (std::string& a : args) argv.push_back(a.data());
  argv.push_back(nullptr);
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, 1, "/dev/null", O_WRONLY, 0);
  posix_spawn_file_actions_addopen(&actions, 2, "/dev/null", O_WRONLY, 0);
  if (!folder.empty()) posix_spawn_file_actions_addchdir_np(&actions, folder.c_str());
  pid_t pid;
  int status = 0;
  const bool started = posix_spawnp(&pid, argv[0], &actions, nullptr, argv.data(), environ) == 0;
  posix_spawn_file_actions_destroy(&actions);
  return started && waitpid(pid, &status, 0) == pid && WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

bool MakeMany(const std::string& path, int entries) {
  const std::string script =
      "import sys, zipfile\n"
      "with zipfile.ZipFile(sys.argv[1], 'w', zipfile.ZIP_STORED) as z:\n"
      "    for i in range(int(sys.argv[2])):\n"
      "        z.writestr('folder%03d/file%06d.txt' % (i // 1000, i), b'0123456789abcdef')\n";
  return Run({"python3", "-c", script, path, std::to_string(entries)});
}

bool MakeZip64(const std::string& folder, const std::string& path, int entries) {
  const std::string tree = folder + "/tree";
  const std::string script =
      "import os, sys\n"
      "for i in range(int(sys.argv[2])):\n"
      "    d = os.path.join(sys.argv[1], 'd%03d' % (i // 1000))\n"
      "    os.makedirs(d, exist_ok=True)\n"
      "    open(os.path.join(d, 'f%06d.txt' % i), 'w').write('x')\n";
  return Run({"python3", "-c", script, tree, std::to_string(entries)}) &&
         Run({"zip", "-q", "-r", "-fz", "-0", path, "."}, tree) && Run({"rm", "-rf", tree});
}

struct LoadResult {
  double seconds = 1e9;
  int64_t items = 0;
  double bytesPerEntry = 0;
};

LoadResult LoadOurs(const std::string& path) {
  LoadResult result;
  for (int round = 0; round < kRounds; ++round) {
    const size_t before = mallinfo2().uordblks;
    RkArcLib::RkZipFile zip(RkLib::FidString::FromPosix(path));
    RkArcLib::RkState state;
    bool ok = false;
    result.seconds = std::min(result.seconds, Seconds([&] { ok = zip.Load(0, -1, nullptr, state); }));
    if (!ok) {
      std::fprintf(stderr, "load of %s failed: code %u\n", path.c_str(), state.code);
      std::exit(1);
    }
    result.items = zip.GetItemCount();
    // The heap the load kept, less the names' own characters.
    size_t names = 0;
    for (int64_t i = 0; i < zip.GetItemCount(); ++i) {
      const size_t length = zip.Entry(i)->name.size();
      if (length > 7) names += (length + 1) * sizeof(char16_t);  // beyond the short-string buffer
    }
    const size_t kept = mallinfo2().uordblks - before;
    result.bytesPerEntry = static_cast<double>(kept - std::min(kept, names)) / static_cast<double>(result.items);
  }
  return result;
}

double TimePeer(const std::vector<std::string>& command) {
  double best = 1e9;
  for (int round = 0; round < kRounds; ++round) {
    bool ok = true;
    best = std::min(best, Seconds([&] { ok = Run(command); }));
    if (!ok) return -1;
  }
  return best;
}

bool Compare(const char* label, const std::string& path) {
  const LoadResult ours = LoadOurs(path);
  std::printf("%s: %lld entries, %.1f MB\n", label, static_cast<long long>(ours.items),
              static_cast<double>(std::filesystem::file_size(path)) / 1e6);
  std::printf("  %-24s %8.3f s   %.0f bytes per entry beyond its name (goal < 200)\n", "RkZipFile::Load", ours.seconds,
              ours.bytesPerEntry);
  const std::vector<std::pair<const char*, std::vector<std::string>>> peers = {
      {"7zz l", {"7zz", "l", path}}, {"unzip -Z1", {"unzip", "-Z1", path}}, {"bsdtar -tf", {"bsdtar", "-tf", path}}};
  double fastest = 1e9;
  for (const auto& [name, command] : peers) {
    const double t = TimePeer(command);
    if (t < 0) {
      std::printf("  %-24s not available\n", name);
      continue;
    }
    fastest = std::min(fastest, t);
    std::printf("  %-24s %8.3f s   ours %.1fx faster\n", name, t, t / ours.seconds);
  }
  if (fastest < 1e9) std::printf("  against the fastest peer: %.1fx (goal >= 2)\n", fastest / ours.seconds);
  return ours.bytesPerEntry < 200 && fastest / ours.seconds >= 2;
}

}  // namespace

int main(int argc, char** argv) {
  const int entries = argc > 1 ? std::atoi(argv[1]) : 200000;
  std::string folder = (std::filesystem::temp_directory_path() / "RkZipListBench.XXXXXX").string();
  if (!mkdtemp(folder.data())) {
    std::fprintf(stderr, "cannot make a temporary folder\n");
    return 1;
  }
  const std::string many = folder + "/many.zip";
  const std::string zip64 = folder + "/zip64.zip";
  int status = 0;
  if (!MakeMany(many, entries) || !MakeZip64(folder, zip64, std::max(1, entries / 10))) {
    std::fprintf(stderr, "cannot make the test files (python3 and zip are needed)\n");
    status = 1;
  } else {
    bool met = Compare("many", many);
    met = Compare("zip64", zip64) && met;
    std::printf("goals %s\n", met ? "met" : "missed");
  }
  std::filesystem::remove_all(folder);
  return status;
}
