// The zstd node in a real pipe with tiny buffers, two ways. Round trip: the data goes through
// libzstd's own encoder, as one or two frames, and must come back whole. Raw: the bytes are
// frames as they come, and must decode or fail with one of the node's codes (7006, 7010,
// 7017); a crash, a hang or a different failure is the fault looked for.
#include <fuzzer/FuzzedDataProvider.h>
#include <zstd.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "RkDecoderFuzz.h"
#include "RkError.h"
#include "RkZstdDecoder.h"

namespace {

void Check(bool ok) {
  if (!ok) __builtin_trap();
}

void AppendFrame(std::vector<uint8_t>& out, const uint8_t* data, size_t size, int level) {
  const size_t at = out.size();
  out.resize(at + ZSTD_compressBound(size));
  const size_t n = ZSTD_compress(out.data() + at, out.size() - at, data, size, level);
  Check(!ZSTD_isError(n));
  out.resize(at + n);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  FuzzedDataProvider in(data, size);
  RkPipeLib::RkStreamSettings settings;
  settings.pipeBufferSize = in.ConsumeIntegralInRange<int32_t>(1, 96);
  settings.pipeBufferCount = in.ConsumeIntegralInRange<int32_t>(2, 3);
  const bool roundTrip = in.ConsumeBool();
  const int level = in.ConsumeIntegralInRange(-5, 12);
  const size_t split = in.ConsumeIntegral<uint16_t>();
  const std::vector<uint8_t> rest = in.ConsumeRemainingBytes<uint8_t>();

  std::vector<uint8_t> input = rest;
  if (roundTrip) {
    input.clear();
    const size_t cut = rest.empty() ? 0 : split % (rest.size() + 1);
    AppendFrame(input, rest.data(), cut, level);
    if (cut < rest.size()) AppendFrame(input, rest.data() + cut, rest.size() - cut, level + 1);
  }
  RkFuzz::CheckDecode(input, settings, roundTrip, rest, {7006, 7010, 7017},
                      [](const RkPipeLib::RkStreamSettings& output) { return std::make_unique<RkPipeLib::RkZstdDecoder>(nullptr, nullptr, output); });
  return 0;
}
