// What the pipe costs over doing the work bare, in one run on the same input:
//
// - memory: 2 GiB from RkMemIn through RkCrcProgress to RkCountOut in 1 MiB buffers, against
//   RkCrc32 called directly over the same 1 MiB pieces. Goal: the pipe at 80% of bare or better.
// - file: a 1 GiB file through RkFileIn to RkFileOut, against `cp` of the same file. Goal: the
//   pipe no slower than cp.
//
// Each contender runs five times, alternating with its peer, and the best time counts. The file
// is made in a fresh folder under the system's temporary folder (TMPDIR) and removed at the end.
// Usage: RkPipeBench [memory GiB] [file GiB]
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "RkCountOut.h"
#include "RkCrc32.h"
#include "RkCrcCalculator.h"
#include "RkCrcProgress.h"
#include "RkFileIO.h"
#include "RkFileIn.h"
#include "RkFileOut.h"
#include "RkMemIn.h"
#include "RkPipe.h"

extern char** environ;

namespace {

using RkPipeLib::RkPipe;
using RkPipeLib::RkStreamSettings;

constexpr uint64_t kMiB = uint64_t{1} << 20;
constexpr uint64_t kGiB = uint64_t{1} << 30;
constexpr int kRounds = 5;

double Seconds(const std::function<void()>& work) {
  const auto start = std::chrono::steady_clock::now();
  work();
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

// Incompressible, reproducible bytes, quickly.
void Fill(uint8_t* data, uint64_t size, uint64_t seed) {
  uint64_t x = seed;
  for (uint64_t i = 0; i + 8 <= size; i += 8) {
    x ^= x << 13;
    x ^= x >> 7;
    x ^= x << 17;
    std::memcpy(data + i, &x, 8);
  }
}

void Run(RkPipe& pipe) {
  try {
    pipe.Run(nullptr);
  } catch (const RkLib::RkError& e) {
    std::fprintf(stderr, "pipe failed: code %u severity %u\n", e.code(), e.severity());
    std::exit(1);
  }
}

bool Memory(uint64_t size) {
  std::vector<uint8_t> data(size);
  Fill(data.data(), size, 0x9E3779B97F4A7C15);

  uint32_t bareCrc = 0;
  uint32_t pipeCrc = 0;
  double bare = 1e9;
  double copy = 1e9;
  double fused = 1e9;
  double piped = 1e9;
  // What a source that copies would spend, into as many 1 MiB buffers as circulate in this pipe
  // (two for each stream and the target's spare). RkMemIn lends its bytes instead; the row shows
  // what that saves.
  std::vector<std::vector<uint8_t>> circulating(5, std::vector<uint8_t>(kMiB, 0));
  RkStreamSettings settings;
  settings.pipeBufferSize = static_cast<int32_t>(kMiB);
  for (int round = 0; round < kRounds; ++round) {
    bare = std::min(bare, Seconds([&] {
                      uint32_t crc = RkLib::RkCrc32(0, nullptr, 0);
                      for (uint64_t at = 0; at < size; at += kMiB)
                        crc = RkLib::RkCrc32(crc, data.data() + at, std::min(kMiB, size - at));
                      bareCrc = crc;
                    }));
    fused = std::min(fused, Seconds([&] {
                       uint32_t crc = RkLib::RkCrc32(0, nullptr, 0);
                       uint64_t text = 0;
                       for (uint64_t at = 0; at < size; at += kMiB)
                         crc = RkLib::RkCrc32CountText(crc, data.data() + at, std::min(kMiB, size - at), text);
                       if (crc != bareCrc) std::printf("  MISMATCH in the one-pass CRC\n");
                     }));
    copy = std::min(copy, Seconds([&] {
                      for (uint64_t at = 0, i = 0; at < size; at += kMiB, ++i)
                        std::memcpy(circulating[i % 5].data(), data.data() + at, std::min(kMiB, size - at));
                    }));
    RkPipeLib::RkMemIn source(data.data(), data.size(), nullptr, nullptr, settings);
    RkPipeLib::RkCrcProgress crc(nullptr, nullptr, settings);
    RkPipeLib::RkCountOut target(nullptr, nullptr, settings);
    RkPipe pipe(&source, {&crc}, &target);
    piped = std::min(piped, Seconds([&] { Run(pipe); }));
    pipeCrc = crc.GetCrc();
  }
  const double gb = static_cast<double>(size) / 1e9;
  std::printf("memory: %.2f GiB in 1 MiB buffers, CRC routine %s\n", static_cast<double>(size) / kGiB,
              RkLib::RkCrc32RoutineName());
  std::printf("  %-46s %8.3f s %7.2f GB/s\n", "RkCrc32 bare", bare, gb / bare);
  std::printf("  %-46s %8.3f s %7.2f GB/s\n", "RkCrc32CountText bare (the link's own work)", fused, gb / fused);
  std::printf("  %-46s %8.3f s %7.2f GB/s\n", "memcpy into 5 circulating buffers", copy, gb / copy);
  std::printf("  %-46s %8.3f s %7.2f GB/s\n", "RkMemIn -> RkCrcProgress -> RkCountOut", piped, gb / piped);
  std::printf("  throughput pipe / bare CRC: %.3f (goal >= 0.80); pipe / copy alone: %.3f\n", bare / piped,
              copy / piped);
  if (bareCrc != pipeCrc) std::printf("  MISMATCH: CRC %08x bare, %08x through the pipe\n", bareCrc, pipeCrc);
  return bareCrc == pipeCrc;
}

// The CRC of a file, through a pipe of our own.
uint32_t FileCrc(const std::string& path) {
  RkLib::RkFileIO file;
  if (!file.Open(RkLib::FidString::FromPosix(path), "rb")) return 0;
  RkPipeLib::RkFileIn source(&file, nullptr, nullptr);
  RkPipeLib::RkCrcCalculator crc(nullptr, nullptr);
  RkPipeLib::RkCountOut target(nullptr, nullptr);
  RkPipe pipe(&source, {&crc}, &target);
  Run(pipe);
  return crc.GetCrc();
}

void MakeFile(const std::string& path, uint64_t size) {
  std::vector<uint8_t> block(64 * kMiB);
  RkLib::RkFileIO file;
  if (!file.Open(RkLib::FidString::FromPosix(path), "wb")) {
    std::fprintf(stderr, "cannot create %s\n", path.c_str());
    std::exit(1);
  }
  for (uint64_t at = 0; at < size; at += block.size()) {
    Fill(block.data(), block.size(), at + 1);
    const size_t n = static_cast<size_t>(std::min<uint64_t>(block.size(), size - at));
    if (file.Write(block.data(), n) != n) {
      std::fprintf(stderr, "cannot write %s\n", path.c_str());
      std::exit(1);
    }
  }
}

void Cp(const std::string& from, const std::string& to) {
  char cp[] = "cp";
  std::vector<char> a(from.begin(), from.end()), b(to.begin(), to.end());
  a.push_back(0);
  b.push_back(0);
  char* argv[] = {cp, a.data(), b.data(), nullptr};
  pid_t pid;
  int status = 0;
  if (posix_spawnp(&pid, "cp", nullptr, nullptr, argv, environ) != 0 || waitpid(pid, &status, 0) != pid ||
      status != 0) {
    std::fprintf(stderr, "cp failed\n");
    std::exit(1);
  }
}

void PipeCopy(const std::string& from, const std::string& to) {
  RkLib::RkFileIO in, out;
  if (!in.Open(RkLib::FidString::FromPosix(from), "rb") || !out.Open(RkLib::FidString::FromPosix(to), "wb")) {
    std::fprintf(stderr, "cannot open the files of the copy\n");
    std::exit(1);
  }
  RkPipeLib::RkFileIn source(&in, nullptr, nullptr);
  RkPipeLib::RkFileOut target(&out, nullptr, nullptr);
  RkPipe pipe(&source, {}, &target);
  Run(pipe);
  out.Close();
}

bool File(uint64_t size) {
  std::string folder = (std::filesystem::temp_directory_path() / "RkPipeBench.XXXXXX").string();
  if (!mkdtemp(folder.data())) {
    std::fprintf(stderr, "cannot make a temporary folder\n");
    return false;
  }
  const std::string source = folder + "/source", byCp = folder + "/cp", byPipe = folder + "/pipe";
  MakeFile(source, size);
  sync();  // the write-back of the source must not weigh on the first contender

  double cp = 1e9;
  double piped = 1e9;
  for (int round = 0; round < kRounds; ++round) {
    // Each copy starts with no output file and no write-back of the last one in flight.
    std::filesystem::remove(byCp);
    std::filesystem::remove(byPipe);
    sync();
    cp = std::min(cp, Seconds([&] { Cp(source, byCp); }));
    sync();
    piped = std::min(piped, Seconds([&] { PipeCopy(source, byPipe); }));
  }
  const bool same = FileCrc(source) == FileCrc(byPipe) &&
                    std::filesystem::file_size(byPipe) == std::filesystem::file_size(source);
  std::filesystem::remove_all(folder);

  const double gb = static_cast<double>(size) / 1e9;
  std::printf("file: %.2f GiB, buffers of %d KiB\n", static_cast<double>(size) / kGiB,
              RkStreamSettings::Instance().pipeBufferSize / 1024);
  std::printf("  %-46s %8.3f s %7.2f GB/s\n", "cp", cp, gb / cp);
  std::printf("  %-46s %8.3f s %7.2f GB/s\n", "RkFileIn -> RkFileOut", piped, gb / piped);
  std::printf("  time cp / pipe: %.3f (goal >= 1.00)\n", cp / piped);
  if (!same) std::printf("  MISMATCH: the pipe's copy differs from the source\n");
  return same;
}

}  // namespace

int main(int argc, char** argv) {
  const double memoryGiB = argc > 1 ? std::atof(argv[1]) : 2.0;
  const double fileGiB = argc > 2 ? std::atof(argv[2]) : 1.0;
  const uint64_t memory = static_cast<uint64_t>(memoryGiB * kGiB) / kMiB * kMiB;
  const uint64_t file = static_cast<uint64_t>(fileGiB * kGiB) / kMiB * kMiB;
  bool ok = true;
  if (memory) ok = Memory(memory) && ok;
  if (file) ok = File(file) && ok;
  return ok ? 0 : 1;
}
