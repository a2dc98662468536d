// Inflate through a real pipe against zlib, libdeflate and ISA-L, on one corpus in one run.
//
// The corpus is built in memory from what this machine holds, in the spirit of the usual mixed
// compression corpus: text (documentation, gzip'd pages opened), C headers, executables, and
// images (uncompressed formats, and the inflated pixel rows of PNGs, from the shared test
// corpus). Each kind is deflated with zlib at levels 1, 6 and 9, and each stream decoded by:
//
// - ours: RkMemIn -> RkInflate -> RkCountOut with 1 MiB buffers, the node reused with Reset
//   between runs as an archive reuses it; the time is the whole pipe's;
// - zlib's inflate, libdeflate_deflate_decompress and isal_inflate, from memory to memory.
//
// Each contender runs `rounds` times, alternating, and the best time counts. Speeds are MB/s of
// decoded output by the wall clock; after the bar, ours by the CPU time of the process (all
// three threads of the pipe) and the ratios by CPU time, which a busy machine disturbs less.
// Usage: RkInflateBench [MiB per kind] [rounds] [only this contender, to profile]
#include <libdeflate.h>
#include <zlib.h>

#include <time.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <string>
#include <vector>

#include "RkCountOut.h"
#include "RkInflate.h"
#include "RkMemIn.h"
#include "RkPipe.h"

#if RK_HAVE_ISAL
#include <isa-l/igzip_lib.h>
#endif

namespace {

namespace fs = std::filesystem;
using Bytes = std::vector<uint8_t>;

constexpr uint64_t kMiB = uint64_t{1} << 20;

struct Times {
  double wall;
  double cpu;  // of the whole process: for ours the pipe's three threads together
};

double CpuSeconds() {
  timespec ts;
  clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &ts);
  return static_cast<double>(ts.tv_sec) + ts.tv_nsec / 1e9;
}

Times Measure(const std::function<void()>& work) {
  const double cpuStart = CpuSeconds();
  const auto start = std::chrono::steady_clock::now();
  work();
  const double wall = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  return {wall, CpuSeconds() - cpuStart};
}

Bytes ReadFile(const fs::path& path) {
  std::ifstream in(path, std::ios::binary);
  return Bytes(std::istreambuf_iterator<char>(in), {});
}

// A gzip file's contents, or nothing if it is not one.
Bytes Gunzip(const Bytes& gz) {
  Bytes out;
  z_stream z{};
  if (inflateInit2(&z, 16 + 15) != Z_OK) return out;
  z.next_in = const_cast<Bytes::value_type*>(gz.data());
  z.avail_in = static_cast<uInt>(gz.size());
  int ret = Z_OK;
  while (ret == Z_OK) {
    out.resize(out.size() + 65536);
    z.next_out = out.data() + out.size() - 65536;
    z.avail_out = 65536;
    ret = inflate(&z, Z_NO_FLUSH);
    out.resize(out.size() - z.avail_out);
  }
  inflateEnd(&z);
  if (ret != Z_STREAM_END) out.clear();
  return out;
}

// The image data of a PNG: its IDAT chunks inflated, filter bytes and all; nothing if broken.
Bytes PngPixels(const Bytes& png) {
  Bytes idat;
  for (size_t at = 8; at + 12 <= png.size();) {
    const uint32_t length = uint32_t{png[at]} << 24 | png[at + 1] << 16 | png[at + 2] << 8 | png[at + 3];
    if (length > png.size() - at - 12) break;
    if (std::memcmp(&png[at + 4], "IDAT", 4) == 0) idat.insert(idat.end(), &png[at + 8], &png[at + 8] + length);
    at += 12 + length;
  }
  Bytes out;
  z_stream z{};
  if (idat.empty() || inflateInit(&z) != Z_OK) return out;
  z.next_in = idat.data();
  z.avail_in = static_cast<uInt>(idat.size());
  int ret = Z_OK;
  while (ret == Z_OK && out.size() < (uint64_t{64} << 20)) {
    out.resize(out.size() + 65536);
    z.next_out = out.data() + out.size() - 65536;
    z.avail_out = 65536;
    ret = inflate(&z, Z_NO_FLUSH);
    out.resize(out.size() - z.avail_out);
  }
  inflateEnd(&z);
  if (ret != Z_STREAM_END) out.clear();
  return out;
}

struct Kind {
  std::string name;
  std::string from;
  Bytes data;
  int files = 0;
};

// Regular files under the roots, in name order, whose names `take` accepts, until `limit`.
void Gather(Kind& kind, const std::vector<std::string>& roots, uint64_t limit,
            const std::function<bool(const fs::path&)>& take, bool open = false) {
  for (const std::string& root : roots) {
    std::error_code ec;
    if (!fs::exists(root, ec)) continue;
    if (!kind.from.empty()) kind.from += ", ";
    kind.from += fs::path(root).lexically_normal().string();
    std::vector<fs::path> paths;
    for (auto it = fs::recursive_directory_iterator(root, fs::directory_options::skip_permission_denied, ec);
         it != fs::recursive_directory_iterator(); it.increment(ec)) {
      if (ec) break;
      if (it->is_regular_file(ec) && !it->is_symlink(ec) && take(it->path())) paths.push_back(it->path());
    }
    std::sort(paths.begin(), paths.end());
    for (const fs::path& p : paths) {
      if (kind.data.size() >= limit) return;
      Bytes bytes = ReadFile(p);
      if (open && p.extension() == ".gz") bytes = Gunzip(bytes);
      if (open && p.extension() == ".png") bytes = PngPixels(bytes);
      if (bytes.empty()) continue;
      bytes.resize(std::min<uint64_t>(bytes.size(), limit - kind.data.size()));
      kind.data.insert(kind.data.end(), bytes.begin(), bytes.end());
      ++kind.files;
    }
  }
}

bool IsElf(const fs::path& p) {
  std::ifstream in(p, std::ios::binary);
  char magic[4] = {};
  in.read(magic, 4);
  return in && std::memcmp(magic, "\x7F" "ELF", 4) == 0;
}

std::vector<Kind> BuildCorpus(uint64_t perKind, const std::string& corpusDir) {
  std::vector<Kind> kinds(4);
  kinds[0].name = "text";
  Gather(kinds[0], {"/usr/share/doc"}, perKind, [](const fs::path& p) {
    const std::string ext = p.extension().string();
    return ext == ".gz" || ext == ".txt" || ext == "" || ext == ".md" || ext == ".html";
  }, true);
  kinds[1].name = "source";
  Gather(kinds[1], {"/usr/include"}, perKind, [](const fs::path& p) {
    const std::string ext = p.extension().string();
    return ext == ".h" || ext == ".hpp" || ext == ".tcc" || ext == "";
  });
  kinds[2].name = "exec";
  Gather(kinds[2], {"/usr/bin"}, perKind, [](const fs::path& p) { return IsElf(p); });
  kinds[3].name = "image";
  Gather(kinds[3], {corpusDir}, perKind, [](const fs::path& p) {
    const std::string ext = p.extension().string();
    return ext == ".ppm" || ext == ".pgm" || ext == ".pnm" || ext == ".bmp" || ext == ".tga" || ext == ".png";
  }, true);
  kinds.erase(std::remove_if(kinds.begin(), kinds.end(), [](const Kind& k) { return k.data.empty(); }), kinds.end());
  return kinds;
}

Bytes Deflate(const Bytes& data, int level) {
  z_stream z{};
  deflateInit2(&z, level, Z_DEFLATED, -15, 9, Z_DEFAULT_STRATEGY);
  Bytes out(deflateBound(&z, data.size()));
  z.next_in = const_cast<Bytes::value_type*>(data.data());
  z.avail_in = static_cast<uInt>(data.size());
  z.next_out = out.data();
  z.avail_out = static_cast<uInt>(out.size());
  if (deflate(&z, Z_FINISH) != Z_STREAM_END) std::abort();
  out.resize(z.total_out);
  deflateEnd(&z);
  return out;
}

struct Contender {
  const char* name;
  std::function<uint64_t(const Bytes& in, Bytes& out)> run;  // returns the bytes decoded
  Times best{1e30, 1e30};
};

}  // namespace

int main(int argc, char** argv) {
  const uint64_t perKind = (argc > 1 ? std::strtoull(argv[1], nullptr, 10) : 16) * kMiB;
  const int rounds = argc > 2 ? std::atoi(argv[2]) : 5;
  const std::string only = argc > 3 ? argv[3] : "";
  const std::string corpusDir = std::string(RK_SOURCE_DIR) + "/../shared/corpus";

  std::vector<Kind> kinds = BuildCorpus(perKind, corpusDir);
  Kind all{"all", "", {}, 0};
  std::printf("Corpus, built in memory from files on this machine:\n");
  for (const Kind& k : kinds) {
    std::printf("  %-7s %7.2f MB  %5d files from %s\n", k.name.c_str(), k.data.size() / 1e6, k.files, k.from.c_str());
    all.data.insert(all.data.end(), k.data.begin(), k.data.end());
    all.files += k.files;
  }
  std::printf("  %-7s %7.2f MB\n", "all", all.data.size() / 1e6);
  kinds.push_back(std::move(all));

  RkPipeLib::RkStreamSettings settings;
  settings.pipeBufferSize = static_cast<int32_t>(kMiB);
  settings.pipeBufferCount = 2;
  RkPipeLib::RkMemIn source(nullptr, 0, nullptr, nullptr, settings);
  RkPipeLib::RkInflate node(0, nullptr, nullptr, settings);
  libdeflate_decompressor* ld = libdeflate_alloc_decompressor();

  std::vector<Contender> contenders;
  contenders.push_back({"ours", [&](const Bytes& in, Bytes&) -> uint64_t {
                          source.SetData(in.data(), in.size());
                          source.OutputStream()->Reset();
                          node.Reset();
                          RkPipeLib::RkCountOut target(nullptr, nullptr, settings);
                          RkPipeLib::RkPipe pipe(&source, {&node}, &target);
                          pipe.Run(nullptr);
                          return target.Bytes();
                        }});
  contenders.push_back({"zlib", [](const Bytes& in, Bytes& out) -> uint64_t {
                          z_stream z{};
                          inflateInit2(&z, -15);
                          z.next_in = const_cast<Bytes::value_type*>(in.data());
                          z.avail_in = static_cast<uInt>(in.size());
                          z.next_out = out.data();
                          z.avail_out = static_cast<uInt>(out.size());
                          const int ret = inflate(&z, Z_FINISH);
                          const uint64_t n = z.total_out;
                          inflateEnd(&z);
                          return ret == Z_STREAM_END ? n : 0;
                        }});
  contenders.push_back({"libdeflate", [ld](const Bytes& in, Bytes& out) -> uint64_t {
                          size_t n = 0;
                          return libdeflate_deflate_decompress(ld, in.data(), in.size(), out.data(), out.size(), &n) ==
                                         LIBDEFLATE_SUCCESS
                                     ? n
                                     : 0;
                        }});
#if RK_HAVE_ISAL
  contenders.push_back({"isal", [](const Bytes& in, Bytes& out) -> uint64_t {
                          inflate_state st;
                          isal_inflate_init(&st);
                          st.crc_flag = IGZIP_DEFLATE;
                          st.next_in = const_cast<uint8_t*>(in.data());
                          st.avail_in = static_cast<uint32_t>(in.size());
                          st.next_out = out.data();
                          st.avail_out = static_cast<uint32_t>(out.size());
                          const int ret = isal_inflate(&st);
                          return ret == ISAL_DECOMP_OK && st.block_state == ISAL_BLOCK_FINISH ? st.total_out : 0;
                        }});
#endif
  if (!only.empty()) {
    contenders.erase(
        std::remove_if(contenders.begin(), contenders.end(), [&](const Contender& c) { return c.name != only; }),
        contenders.end());
    if (contenders.empty()) return 2;
    while (contenders.size() < 3) contenders.push_back(contenders[0]);  // keeps the ratio columns
  }

  std::printf("\nDecoding speed in MB/s of output, best of %d; ours is the whole pipe with 1 MiB buffers.\n", rounds);
  std::printf("%-5s %-7s %9s %7s", "level", "kind", "deflated", "ratio");
  for (const Contender& c : contenders) std::printf(" %10s", c.name);
  std::printf(" %10s %10s | %10s %10s %10s\n", "ours/zlib", "ours/ldef", "ours cpu", "/zlib cpu", "/ldef cpu");
  for (int level : {1, 6, 9}) {
    for (const Kind& k : kinds) {
      const Bytes stream = Deflate(k.data, level);
      Bytes out(k.data.size());
      for (Contender& c : contenders) c.best = {1e30, 1e30};
      for (int r = 0; r < rounds; ++r) {
        for (Contender& c : contenders) {
          uint64_t n = 0;
          const Times t = Measure([&] { n = c.run(stream, out); });
          if (n != k.data.size()) {
            std::fprintf(stderr, "%s decoded %llu bytes of %llu\n", c.name, static_cast<unsigned long long>(n),
                         static_cast<unsigned long long>(k.data.size()));
            return 1;
          }
          c.best.wall = std::min(c.best.wall, t.wall);
          c.best.cpu = std::min(c.best.cpu, t.cpu);
        }
      }
      // The bytes themselves, once per stream, from the peers (ours is checked by its tests).
      if (only != "ours" && std::memcmp(out.data(), k.data.data(), out.size()) != 0) {
        std::fprintf(stderr, "a peer decoded wrong bytes\n");
        return 1;
      }
      std::printf("%-5d %-7s %8.2fM %6.2f%%", level, k.name.c_str(), stream.size() / 1e6,
                  100.0 * stream.size() / k.data.size());
      for (const Contender& c : contenders) std::printf(" %10.0f", k.data.size() / 1e6 / c.best.wall);
      std::printf(" %10.2f %10.2f", contenders[1].best.wall / contenders[0].best.wall,
                  contenders[2].best.wall / contenders[0].best.wall);
      std::printf(" | %10.0f %10.2f %10.2f\n", k.data.size() / 1e6 / contenders[0].best.cpu,
                  contenders[1].best.cpu / contenders[0].best.cpu, contenders[2].best.cpu / contenders[0].best.cpu);
    }
  }
  libdeflate_free_decompressor(ld);
  return 0;
}
