// The xz node in a real pipe with tiny buffers, two ways. Round trip: the data goes through
// liblzma's own stream encoder with a check type and a filter chain picked by the input,
// sometimes as two streams with padding between, and must come back whole. Raw: the bytes are
// a file as it comes (start from xz files as seeds), and must decode or fail with one of the
// node's codes (7006, 7010, 7016, 7017); a crash, a hang, an allocation sized by a claim in the
// input or a different failure is the fault looked for.
#include <fuzzer/FuzzedDataProvider.h>
#include <lzma.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "RkDecoderFuzz.h"
#include "RkError.h"
#include "RkXzDecoder.h"

namespace {

void Check(bool ok) {
  if (!ok) __builtin_trap();
}

struct Encoding {
  lzma_check check;
  int branch;  // 0 none, 1 x86, 2 ARM64, 3 delta
  uint32_t distance;
  uint32_t preset;
};

void AppendStream(std::vector<uint8_t>& out, const std::vector<uint8_t>& data, const Encoding& e) {
  lzma_options_lzma lzma2;
  Check(!lzma_lzma_preset(&lzma2, e.preset));
  lzma_options_delta delta{};
  delta.type = LZMA_DELTA_TYPE_BYTE;
  delta.dist = e.distance;
  lzma_filter filters[3];
  int n = 0;
  if (e.branch == 1) filters[n++] = {LZMA_FILTER_X86, nullptr};
  if (e.branch == 2) filters[n++] = {LZMA_FILTER_ARM64, nullptr};
  if (e.branch == 3) filters[n++] = {LZMA_FILTER_DELTA, &delta};
  filters[n++] = {LZMA_FILTER_LZMA2, &lzma2};
  filters[n] = {LZMA_VLI_UNKNOWN, nullptr};
  const size_t at = out.size();
  out.resize(at + lzma_stream_buffer_bound(data.size()));
  size_t pos = at;
  Check(lzma_stream_buffer_encode(filters, e.check, nullptr, data.data(), data.size(), out.data(), &pos, out.size()) ==
        LZMA_OK);
  out.resize(pos);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  FuzzedDataProvider in(data, size);
  RkPipeLib::RkStreamSettings settings;
  settings.pipeBufferSize = in.ConsumeIntegralInRange<int32_t>(1, 96);
  settings.pipeBufferCount = in.ConsumeIntegralInRange<int32_t>(2, 3);
  const bool roundTrip = in.ConsumeBool();
  constexpr lzma_check kChecks[] = {LZMA_CHECK_NONE, LZMA_CHECK_CRC32, LZMA_CHECK_CRC64, LZMA_CHECK_SHA256};
  Encoding encoding{kChecks[in.ConsumeIntegralInRange(0, 3)], in.ConsumeIntegralInRange(0, 3),
                    in.ConsumeIntegralInRange<uint32_t>(1, 256), in.ConsumeIntegralInRange<uint32_t>(0, 2)};
  const int padding = in.ConsumeIntegralInRange(-1, 2);  // -1: one stream; else 4 * n zero bytes
  const std::vector<uint8_t> rest = in.ConsumeRemainingBytes<uint8_t>();

  std::vector<uint8_t> input = rest, expected = rest;
  if (roundTrip) {
    input.clear();
    AppendStream(input, rest, encoding);
    if (padding >= 0) {
      input.insert(input.end(), 4 * static_cast<size_t>(padding), 0);
      encoding.check = LZMA_CHECK_CRC32;
      AppendStream(input, rest, encoding);
      expected.insert(expected.end(), rest.begin(), rest.end());
    }
  }
  RkFuzz::CheckDecode(input, settings, roundTrip, expected, {7006, 7010, 7016, 7017},
                      [](const RkPipeLib::RkStreamSettings& output) { return std::make_unique<RkPipeLib::RkXzDecoder>(nullptr, nullptr, output); });
  return 0;
}
