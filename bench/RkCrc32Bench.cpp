// CRC-32 throughput of our routines that this processor can run against zlib and libdeflate on the
// same buffers. After the runs it prints ours/peer throughput ratios per buffer size. Ordinary
// Google Benchmark flags apply; with --benchmark_repetitions the ratios use the median.
#include <benchmark/benchmark.h>
#include <libdeflate.h>
#include <zlib.h>

#include <cstdint>
#include <cstdio>
#include <iterator>
#include <map>
#include <random>
#include <string>
#include <vector>

#include "RkCpu.h"
#include "RkCrc32.h"

namespace {

using Crc32Routine = uint32_t (*)(uint32_t, const void*, size_t);

struct Engine {
  const char* name;
  Crc32Routine run;
};

uint32_t Zlib(uint32_t crc, const void* data, size_t length) {
  return static_cast<uint32_t>(crc32(crc, static_cast<const Bytef*>(data), static_cast<uInt>(length)));
}

uint32_t Libdeflate(uint32_t crc, const void* data, size_t length) {
  return libdeflate_crc32(crc, data, length);
}

uint32_t OursTable(uint32_t crc, const void* data, size_t length) {
  return RkLib::RkCrc32Table(crc, data, length);
}

uint32_t OursClmul(uint32_t crc, const void* data, size_t length) {
  return RkLib::RkCrc32Clmul(crc, data, length);
}

uint32_t OursVclmul(uint32_t crc, const void* data, size_t length) {
  return RkLib::RkCrc32Vclmul(crc, data, length);
}

// The folding routines fault on a processor without their instructions, so only those it has.
const std::vector<Engine>& Ours() {
  static const std::vector<Engine> ours = [] {
    const RkLib::RkCpuFeatures features = RkLib::RkCpuFeatures::Query();
    std::vector<Engine> engines{{"RkCrc32Table", OursTable}};
    if (RkLib::RkCrc32ClmulUsable(features)) engines.push_back({"RkCrc32Clmul", OursClmul});
    if (RkLib::RkCrc32VclmulUsable(features)) engines.push_back({"RkCrc32Vclmul", OursVclmul});
    return engines;
  }();
  return ours;
}

const Engine kPeers[] = {{"zlib", Zlib}, {"libdeflate", Libdeflate}};
const size_t kSizes[] = {4 << 10, 64 << 10, 1 << 20};

const std::vector<uint8_t>& Input() {
  static const std::vector<uint8_t> bytes = [] {
    std::vector<uint8_t> v(1 << 20);
    std::mt19937_64 random(20240607);
    for (auto& b : v) b = static_cast<uint8_t>(random());
    return v;
  }();
  return bytes;
}

std::string RunName(const char* engine, size_t size) {
  return std::string("Crc32/") + engine + "/" + std::to_string(size);
}

void RunEngine(benchmark::State& state, Crc32Routine run, size_t size) {
  const uint8_t* data = Input().data();
  uint32_t crc = 0;
  for (auto _ : state) {
    crc = run(crc, data, size);
    benchmark::DoNotOptimize(crc);
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(size));
}

// Console output as usual, plus the throughput of each run by name for the ratio table.
class RatioReporter : public benchmark::ConsoleReporter {
 public:
  void ReportRuns(const std::vector<Run>& runs) override {
    for (const Run& run : runs) {
      const auto it = run.counters.find("bytes_per_second");
      if (run.error_occurred || it == run.counters.end()) continue;
      const bool median = run.run_type == Run::RT_Aggregate && run.aggregate_name == "median";
      if (run.run_type == Run::RT_Iteration || median) throughput_[run.run_name.str()] = it->second.value;
    }
    ConsoleReporter::ReportRuns(runs);
  }

  void PrintRatios() const {
    std::printf("\nThroughput ratios (higher is better for ours)\n");
    std::printf("%-10s %-14s %10s %12s %12s\n", "size", "ours", "GB/s", "ours/zlib", "ours/libdefl");
    for (size_t size : kSizes) {
      const double zlib = Find(RunName(kPeers[0].name, size));
      const double libdeflate = Find(RunName(kPeers[1].name, size));
      for (const Engine& ours : Ours()) {
        const double mine = Find(RunName(ours.name, size));
        if (mine <= 0 || zlib <= 0 || libdeflate <= 0) continue;
        std::printf("%-10zu %-14s %10.2f %12.2f %12.2f\n", size, ours.name, mine / 1e9, mine / zlib,
                    mine / libdeflate);
      }
    }
  }

 private:
  double Find(const std::string& name) const {
    const auto it = throughput_.find(name);
    return it == throughput_.end() ? 0.0 : it->second;
  }

  std::map<std::string, double> throughput_;
};

}  // namespace

int main(int argc, char** argv) {
  // The routines must agree before their speeds mean anything.
  const auto& input = Input();
  const uint32_t expected = Zlib(0, input.data(), input.size());
  for (const Engine& engine : Ours()) {
    if (engine.run(0, input.data(), input.size()) != expected) {
      std::fprintf(stderr, "%s disagrees with zlib\n", engine.name);
      return 1;
    }
  }

  std::printf("RkCrc32 runs %s here\n", RkLib::RkCrc32RoutineName());

  std::vector<Engine> engines = Ours();
  engines.insert(engines.end(), std::begin(kPeers), std::end(kPeers));
  for (size_t size : kSizes) {
    for (const Engine& engine : engines) {
      benchmark::RegisterBenchmark(RunName(engine.name, size).c_str(), RunEngine, engine.run, size);
    }
  }

  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  RatioReporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  reporter.PrintRatios();
  benchmark::Shutdown();
  return 0;
}
