// The decoders over system libraries against the tools of the same libraries, in one run on the
// same files: one file per format, decoded by the node in a real pipe (RkFileIn -> node ->
// RkCountOut, default stream settings) and by the tool's own command into /dev/null:
//
//   bzip2    bzip2 -dc       (made with bzip2 -9)
//   xz       xz -dc          (made with xz -6, one block per 24 MiB as the threaded encoder cuts)
//   zstd     zstd -dc        (made with zstd -3)
//   WavPack  wvunpack -o -   (a 16-bit stereo WAV made here, packed with wavpack's default mode)
//
// The data is text-like with binary stretches, made here. Each contender runs three times,
// alternating with its peer, and the best time counts, both the wall time and the processor
// time (user and system, all threads; the tool's from wait4, ours from getrusage). The tool's
// times include starting it, a millisecond or so. Goal: the node's overhead over the tool under
// 5% in processor time, which a shared machine's load does not skew as it does the wall time
// (a tool that gets a third of a core takes three times as long). The node's output is checked
// once against the data's CRC-32. Files are made in a fresh folder under TMPDIR and
// removed at the end. Usage: RkLibDecodersBench [MiB, default 64]. Exit status 1 when a file
// cannot be made or an output is wrong; a missed goal is printed, since a shared machine's
// noise must not fail `make bench`.
#include <fcntl.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "RkBunzip2.h"
#include "RkCountOut.h"
#include "RkCrc32.h"
#include "RkCrcCalculator.h"
#include "RkFileIO.h"
#include "RkFileIn.h"
#include "RkPipe.h"
#include "RkWavUnpack.h"
#include "RkXzDecoder.h"
#include "RkZstdDecoder.h"

extern char** environ;

namespace {

constexpr int kRounds = 3;
constexpr double kGoal = 0.05;

struct Times {
  double wall = 1e9;
  double cpu = 1e9;  // user and system

  void Keep(const Times& t) {
    wall = std::min(wall, t.wall);
    cpu = std::min(cpu, t.cpu);
  }
};

double Cpu(const rusage& u) {
  return static_cast<double>(u.ru_utime.tv_sec + u.ru_stime.tv_sec) +
         static_cast<double>(u.ru_utime.tv_usec + u.ru_stime.tv_usec) / 1e6;
}

// The wall and processor time of work done in this process, by any of its threads.
Times Measure(const std::function<void()>& work) {
  rusage before, after;
  getrusage(RUSAGE_SELF, &before);
  const auto start = std::chrono::steady_clock::now();
  work();
  const double wall = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  getrusage(RUSAGE_SELF, &after);
  return {wall, Cpu(after) - Cpu(before)};
}

// Runs a program with its output to `output` (or thrown away); false when it fails. `times`
// gets its wall time and the processor time that the kernel reports for it.
bool Run(std::vector<std::string> args, const std::string& output = "/dev/null", Times* times = nullptr) {
  std::vector<char*> argv;
  for (std::string& a : args) argv.push_back(a.data());
  argv.push_back(nullptr);
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, 1, output.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
  posix_spawn_file_actions_addopen(&actions, 2, "/dev/null", O_WRONLY, 0);
  pid_t pid;
  int status = 0;
  rusage usage{};
  const auto start = std::chrono::steady_clock::now();
  const bool started = posix_spawnp(&pid, argv[0], &actions, nullptr, argv.data(), environ) == 0;
  posix_spawn_file_actions_destroy(&actions);
  const bool ok = started && wait4(pid, &status, 0, &usage) == pid && WIFEXITED(status) && WEXITSTATUS(status) == 0;
  if (times) *times = {std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count(), Cpu(usage)};
  return ok;
}

// Text-like data: words, runs, random stretches and repeats from far back.
std::vector<uint8_t> TextLike(size_t size) {
  static const char* const kWords[] = {"pipe ", "buffer ", "node ", "stream ", "decoder ", "the ",
                                       "of ",   "window ", "\n",    "block ",  "match ",   "literal "};
  std::vector<uint8_t> out;
  out.reserve(size);
  uint64_t state = 0x9E3779B97F4A7C15;
  auto next = [&state] {
    state ^= state << 13, state ^= state >> 7, state ^= state << 17;
    return static_cast<uint32_t>(state);
  };
  while (out.size() < size) {
    const uint32_t r = next() % 16;
    if (r < 12) {
      for (const char* p = kWords[r]; *p; ++p) out.push_back(static_cast<uint8_t>(*p));
    } else if (r == 12) {
      out.insert(out.end(), 1 + next() % 300, static_cast<uint8_t>(next()));
    } else if (r == 13) {
      for (uint32_t i = next() % 64; i > 0; --i) out.push_back(static_cast<uint8_t>(next()));
    } else if (out.size() > 100000) {
      const size_t from = out.size() - 1 - next() % 100000;
      for (size_t i = 0; i < 200 && from + i < out.size(); ++i) out.push_back(out[from + i]);
    }
  }
  out.resize(size);
  return out;
}

// A 16-bit stereo WAV of about `size` bytes: two tones with some noise.
std::vector<uint8_t> Wav(size_t size) {
  const uint32_t frames = static_cast<uint32_t>(size / 4);
  std::vector<uint8_t> out;
  auto put = [&out](uint32_t v, int bytes) {
    for (int i = 0; i < bytes; ++i) out.push_back(static_cast<uint8_t>(v >> (8 * i)));
  };
  out.insert(out.end(), {'R', 'I', 'F', 'F'});
  put(36 + frames * 4, 4);
  out.insert(out.end(), {'W', 'A', 'V', 'E', 'f', 'm', 't', ' '});
  put(16, 4), put(1, 2), put(2, 2), put(44100, 4), put(44100 * 4, 4), put(4, 2), put(16, 2);
  out.insert(out.end(), {'d', 'a', 't', 'a'});
  put(frames * 4, 4);
  uint32_t noise = 1;
  for (uint32_t i = 0; i < frames; ++i) {
    for (int c = 0; c < 2; ++c) {
      noise = noise * 1103515245u + 12345u;
      const double v = 9000 * std::sin(i * 0.031 * (c + 1)) + 4000 * std::sin(i * 0.0007) + (noise >> 20) % 512;
      put(static_cast<uint32_t>(static_cast<int32_t>(v)), 2);
    }
  }
  return out;
}

bool WriteFile(const std::string& path, const std::vector<uint8_t>& data) {
  std::ofstream out(path, std::ios::binary);
  out.write(reinterpret_cast<const char*>(data.data()), static_cast<std::streamsize>(data.size()));
  return static_cast<bool>(out);
}

// One decode of `path` by the node that `make` builds; the CRC-32 of the output when `crc`.
uint64_t DecodeThroughNode(const std::string& path, const std::function<std::unique_ptr<RkPipeLib::RkLinkNode>()>& make,
                           uint32_t* crc = nullptr) {
  RkLib::RkFileIO file;
  if (!file.Open(RkLib::FidString::FromPosix(path), "rb")) {
    std::fprintf(stderr, "cannot open %s\n", path.c_str());
    std::exit(1);
  }
  std::unique_ptr<RkPipeLib::RkLinkNode> node = make();
  RkPipeLib::RkFileIn source(&file, nullptr, nullptr);
  RkPipeLib::RkCrcCalculator check(nullptr, nullptr);
  RkPipeLib::RkCountOut target(nullptr, nullptr);
  RkPipeLib::RkPipe pipe;
  pipe.SetSource(&source);
  pipe.AddLink(node.get());
  if (crc) pipe.AddLink(&check);
  pipe.SetTarget(&target);
  try {
    pipe.Run(nullptr);
  } catch (const RkLib::RkError& e) {
    std::fprintf(stderr, "decoding %s failed: code %u severity %u\n", path.c_str(), e.code(), e.severity());
    std::exit(1);
  }
  if (crc) *crc = check.GetCrc();
  return target.Bytes();
}

struct Format {
  const char* name;
  const char* file;
  std::vector<std::string> make;  // the packer, the plain file's path appended
  std::vector<std::string> tool;  // the peer's decode, the packed file's path appended
  std::function<std::unique_ptr<RkPipeLib::RkLinkNode>(uint64_t packedSize)> node;
  bool wav = false;
};

}  // namespace

int main(int argc, char** argv) {
  const size_t mib = argc > 1 ? static_cast<size_t>(std::strtoul(argv[1], nullptr, 10)) : 64;
  std::string folder = (std::filesystem::temp_directory_path() / "RkLibDecodersBench.XXXXXX").string();
  if (!mkdtemp(folder.data())) {
    std::fprintf(stderr, "cannot make a temporary folder\n");
    return 1;
  }
  const std::vector<uint8_t> text = TextLike(mib << 20);
  const std::vector<uint8_t> wav = Wav(mib << 20);
  if (!WriteFile(folder + "/text", text) || !WriteFile(folder + "/audio.wav", wav)) {
    std::fprintf(stderr, "cannot write the data\n");
    return 1;
  }

  std::vector<Format> formats = {
      {"bzip2",
       "text.bz2",
       {"bzip2", "-9", "-c"},
       {"bzip2", "-dc"},
       [](uint64_t) { return std::make_unique<RkPipeLib::RkBunzip2>(nullptr, nullptr); }},
      {"xz",
       "text.xz",
       {"xz", "-6", "-T2", "-c"},
       {"xz", "-dc"},
       [](uint64_t) { return std::make_unique<RkPipeLib::RkXzDecoder>(nullptr, nullptr); }},
      {"zstd",
       "text.zst",
       {"zstd", "-3", "-q", "-c"},
       {"zstd", "-dc", "-q"},
       [](uint64_t) { return std::make_unique<RkPipeLib::RkZstdDecoder>(nullptr, nullptr); }},
      {"WavPack",
       "audio.wv",
       {},
       {"wvunpack", "-q", "-y", "-o", "-"},
       [](uint64_t size) { return std::make_unique<RkPipeLib::RkWavUnpack>(size, nullptr, nullptr); },
       true},
  };

  std::printf("decoders: %zu MiB of text-like data (WavPack: %zu MiB of 16-bit stereo), best of %d runs\n", mib, mib,
              kRounds);
  std::printf("  %-8s %-24s %8s %8s %8s %8s %8s %9s %9s\n", "format", "peer", "packed", "peer", "node", "peer", "node",
              "wall", "cpu");
  std::printf("  %-8s %-24s %8s %8s %8s %8s %8s %9s %9s\n", "", "", "", "wall s", "wall s", "cpu s", "cpu s",
              "overhead", "overhead");
  bool right = true, met = true;
  for (const Format& f : formats) {
    const std::string packed = folder + "/" + f.file;
    const bool made = f.wav ? Run({"wavpack", "-q", "-y", folder + "/audio.wav", "-o", packed}) : [&] {
      std::vector<std::string> make = f.make;
      make.push_back(folder + "/text");
      return Run(make, packed);
    }();
    if (!made) {
      std::printf("  %-8s cannot be made here (is the tool installed?)\n", f.name);
      continue;
    }
    const uint64_t packedSize = std::filesystem::file_size(packed);
    auto make = [&] { return f.node(packedSize); };
    const std::vector<uint8_t>& plain = f.wav ? wav : text;
    uint32_t crc = 0;
    const uint64_t bytes = DecodeThroughNode(packed, make, &crc);
    if (bytes != plain.size() || crc != RkLib::RkCrc32(0, plain.data(), plain.size())) {
      std::printf("  %-8s MISMATCH: the node gave %llu bytes of another CRC\n", f.name,
                  static_cast<unsigned long long>(bytes));
      right = false;
      continue;
    }
    std::vector<std::string> tool = f.tool;
    tool.push_back(packed);
    Times peer, ours;
    bool peerRan = true;
    for (int round = 0; round < kRounds; ++round) {
      Times t;
      peerRan = Run(tool, "/dev/null", &t) && peerRan;
      peer.Keep(t);
      ours.Keep(Measure([&] { DecodeThroughNode(packed, make); }));
    }
    std::string command;
    for (size_t i = 0; i + 1 < tool.size(); ++i) command += (i ? " " : "") + tool[i];
    if (!peerRan) {
      std::printf("  %-8s %-24s failed\n", f.name, command.c_str());
      continue;
    }
    const double overhead = ours.cpu / peer.cpu - 1;
    met = met && overhead < kGoal;
    std::printf("  %-8s %-24s %7.1fM %8.3f %8.3f %8.3f %8.3f %+8.1f%% %+8.1f%%\n", f.name, command.c_str(),
                static_cast<double>(packedSize) / (1 << 20), peer.wall, ours.wall, peer.cpu, ours.cpu,
                100 * (ours.wall / peer.wall - 1), 100 * overhead);
  }
  std::filesystem::remove_all(folder);
  std::printf("goal (node's processor time over the tool's under %.0f%%) %s\n", 100 * kGoal, met ? "met" : "missed");
  return right ? 0 : 1;
}
