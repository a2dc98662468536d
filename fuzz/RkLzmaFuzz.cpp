// The ZIP LZMA node in a real pipe with tiny buffers, two ways. Round trip: the data goes
// through liblzma's own LZMA1 encoder, with or without the end marker and with properties
// picked by the input, behind the four-byte ZIP header, and must come back whole. Raw: the
// bytes are an entry's data as it comes, with a size picked by the input, and must decode or
// fail with one of the node's codes (7006, 7010, 7016, 7017); a crash, a hang, an allocation
// sized by the dictionary claim or a different failure is the fault looked for.
#include <fuzzer/FuzzedDataProvider.h>
#include <lzma.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "RkDecoderFuzz.h"
#include "RkError.h"
#include "RkLzmaDecoder.h"

namespace {

void Check(bool ok) {
  if (!ok) __builtin_trap();
}

std::vector<uint8_t> Encode(const std::vector<uint8_t>& data, bool endMarker, uint32_t lc, uint32_t lp, uint32_t pb,
                            uint32_t preset) {
  lzma_options_lzma options;
  Check(!lzma_lzma_preset(&options, preset));
  options.lc = lc;
  options.lp = lp;
  options.pb = pb;
  options.ext_flags = 0;  // the extended form writes no marker without the flag
  lzma_filter filters[] = {{endMarker ? LZMA_FILTER_LZMA1 : LZMA_FILTER_LZMA1EXT, &options},
                           {LZMA_VLI_UNKNOWN, nullptr}};
  std::vector<uint8_t> out = {9, 20, 5, 0, 0, 0, 0, 0, 0};
  lzma_filter plain = {LZMA_FILTER_LZMA1, &options};
  Check(lzma_properties_encode(&plain, out.data() + 4) == LZMA_OK);
  const size_t at = out.size();
  out.resize(at + data.size() + data.size() / 2 + 4096);
  size_t pos = at;
  Check(lzma_raw_buffer_encode(filters, nullptr, data.data(), data.size(), out.data(), &pos, out.size()) == LZMA_OK);
  out.resize(pos);
  return out;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  FuzzedDataProvider in(data, size);
  RkPipeLib::RkStreamSettings settings;
  settings.pipeBufferSize = in.ConsumeIntegralInRange<int32_t>(1, 96);
  settings.pipeBufferCount = in.ConsumeIntegralInRange<int32_t>(2, 3);
  const bool roundTrip = in.ConsumeBool();
  const bool endMarker = in.ConsumeBool();
  const bool sizeKnown = in.ConsumeBool();
  const uint32_t lc = in.ConsumeIntegralInRange<uint32_t>(0, 4);
  const uint32_t lp = in.ConsumeIntegralInRange<uint32_t>(0, 4 - lc);
  const uint32_t pb = in.ConsumeIntegralInRange<uint32_t>(0, 4);
  const uint32_t preset = in.ConsumeIntegralInRange<uint32_t>(0, 2);
  const uint64_t claimed = in.ConsumeIntegral<uint32_t>();
  const std::vector<uint8_t> rest = in.ConsumeRemainingBytes<uint8_t>();

  std::vector<uint8_t> input = rest;
  uint64_t nodeSize = sizeKnown ? claimed : RkPipeLib::RkLzmaDecoder::kSizeUnknown;
  if (roundTrip) {
    input = Encode(rest, endMarker, lc, lp, pb, preset);
    // A marker may also be read with the size known; without one the size is needed.
    nodeSize = endMarker && !sizeKnown ? RkPipeLib::RkLzmaDecoder::kSizeUnknown : rest.size();
  }
  RkFuzz::CheckDecode(input, settings, roundTrip, rest, {7006, 7010, 7016, 7017},
                      [&](const RkPipeLib::RkStreamSettings& output) { return std::make_unique<RkPipeLib::RkLzmaDecoder>(nodeSize, nullptr, nullptr, output); });
  return 0;
}
