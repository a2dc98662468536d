// Helpers of the library-backed decoder tests: a scratch folder where the real tools make the
// fixtures at test time, sample data, and one decode through a real pipe (RkMemIn -> node ->
// RkMemOut) that gives the bytes or the error.
#pragma once

#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <optional>
#include <string>
#include <vector>

#include "RkError.h"
#include "RkMemIn.h"
#include "RkMemOut.h"
#include "RkPipe.h"
#include "RkPipeTestUtil.h"

namespace RkPipeTest {

using Bytes = std::vector<uint8_t>;

class ScratchFolder {
 public:
  ScratchFolder() {
    static std::atomic<int> serial{0};
    path_ = std::filesystem::temp_directory_path() /
            ("RkCodecTest." + std::to_string(getpid()) + "." + std::to_string(serial++));
    std::filesystem::create_directories(path_);
  }
  ~ScratchFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }
  ScratchFolder(const ScratchFolder&) = delete;
  ScratchFolder& operator=(const ScratchFolder&) = delete;

  std::string operator/(const std::string& name) const { return (path_ / name).string(); }

 private:
  std::filesystem::path path_;
};

inline Bytes ReadAll(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return Bytes(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

inline void WriteAll(const std::string& path, const Bytes& bytes) {
  std::ofstream(path, std::ios::binary)
      .write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
}

inline Bytes Concat(const Bytes& a, const Bytes& b) {
  Bytes out = a;
  out.insert(out.end(), b.begin(), b.end());
  return out;
}

inline Bytes FromString(const std::string& s) { return Bytes(s.begin(), s.end()); }

// Runs a shell command, quietly (its own redirections still apply); true when it exited with 0.
inline bool Shell(const std::string& command) {
  return std::system(("( " + command + " ) >/dev/null 2>&1").c_str()) == 0;
}

inline bool HaveTool(const std::string& name) { return Shell("command -v " + name); }

#define RK_REQUIRE_TOOL(name)                                                                \
  do {                                                                                       \
    if (!HaveTool(name)) GTEST_SKIP() << name << " is not installed (scripts/install-deps)"; \
  } while (0)

// Text-like data that compresses, with runs, a binary stretch and a repeat from far back, so
// that every decoder meets literals, short and long matches and a window that wraps.
inline Bytes SampleData(size_t size, uint32_t seed = 1) {
  static const char* const kWords[] = {"pipe ", "buffer ", "node ", "stream ", "decoder ", "the ",
                                       "of ",   "window ", "\n",    "block ",  "match ",   "literal "};
  Bytes out;
  out.reserve(size);
  uint32_t state = seed * 2654435761u + 1;
  auto next = [&state] {
    state = state * 1103515245u + 12345u;
    return state >> 16;
  };
  while (out.size() < size) {
    const uint32_t r = next() % 16;
    if (r < 12) {
      for (const char* p = kWords[r]; *p; ++p) out.push_back(static_cast<uint8_t>(*p));
    } else if (r == 12) {
      out.insert(out.end(), 1 + next() % 300, static_cast<uint8_t>(next()));
    } else if (r == 13) {
      for (uint32_t i = next() % 64; i > 0; --i) out.push_back(static_cast<uint8_t>(next()));
    } else if (out.size() > 1000) {
      const size_t from = next() % (out.size() - 500);
      for (size_t i = 0; i < 200; ++i) out.push_back(out[from + i]);
    }
  }
  out.resize(size);
  return out;
}

struct DecodeResult {
  Bytes output;
  std::optional<RkErrorInfo> error;
  uint64_t bytesRead = 0;  // what the node took from its input
};

inline std::string Describe(const std::optional<RkErrorInfo>& error) {
  if (!error) return "success";
  return "code " + std::to_string(error->code()) + " severity " + std::to_string(error->severity());
}

// Runs `node` once between a memory source with `sourceSettings` (its buffer size is the size
// of every input block the node sees) and a memory target.
template <typename Node>
DecodeResult RunNode(Node& node, const Bytes& input, const RkStreamSettings& sourceSettings) {
  Watchdog watchdog(std::chrono::seconds(120), "a decoder pipe");
  RkPipeLib::RkMemIn source(input.data(), input.size(), nullptr, nullptr, sourceSettings);
  RkPipeLib::RkMemOut target(nullptr, nullptr, RkPipeLib::RkMemOut::kNoLimit, node.OutputStream()->settings());
  RkPipeLib::RkPipe pipe(&source, {&node}, &target);
  DecodeResult result;
  try {
    EXPECT_TRUE(pipe.Run(nullptr));
  } catch (const RkLib::RkError& e) {
    result.error = RkErrorInfo(e);
  }
  result.output = target.Bytes();
  result.bytesRead = node.InputStream()->bytesRead();
  return result;
}

// Builds the node from `args` (then the two queues and the settings) and runs it once.
template <typename Node, typename... Args>
DecodeResult Decode(const Bytes& input, const RkStreamSettings& sourceSettings, const RkStreamSettings& nodeSettings,
                    Args... args) {
  Node node(args..., nullptr, nullptr, nodeSettings);
  return RunNode(node, input, sourceSettings);
}

template <typename Node, typename... Args>
DecodeResult Decode(const Bytes& input, Args... args) {
  const RkStreamSettings settings = SmallSettings(64 * 1024);
  return Decode<Node>(input, settings, settings, args...);
}

// The buffer shapes every decoder runs through: the default, input in 1-byte buffers with small
// output buffers, and a few odd sizes so that records and blocks straddle the cuts. Each small
// buffer costs a hand-over between threads, so those shapes take smaller data.
struct BufferShape {
  const char* name;
  int32_t inputSize;
  int32_t outputSize;
  size_t maxData;

  size_t Fit(size_t size) const { return std::min(size, maxData); }
};
inline const BufferShape kBufferShapes[] = {
    {"Default", RkStreamSettings::kDefaultBufferSize, RkStreamSettings::kDefaultBufferSize, SIZE_MAX},
    {"OddSmall", 7, 13, 60000},
    {"ByteInput", 1, 3, 20000},
};

inline testing::AssertionResult Decoded(const DecodeResult& result, const Bytes& expected) {
  if (result.error) return testing::AssertionFailure() << "failed with " << Describe(result.error);
  if (result.output != expected)
    return testing::AssertionFailure() << "output of " << result.output.size() << " bytes differs from the "
                                       << expected.size() << " expected";
  return testing::AssertionSuccess();
}

inline testing::AssertionResult FailedWith(const DecodeResult& result, uint32_t code,
                                           uint32_t severity = RkLib::kSeveritySevere) {
  if (result.error && result.error->code() == code && result.error->severity() == severity)
    return testing::AssertionSuccess();
  return testing::AssertionFailure() << "expected code " << code << " severity " << severity << ", got "
                                     << Describe(result.error);
}

}  // namespace RkPipeTest
