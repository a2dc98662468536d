// The bzip2 node in a real pipe with tiny buffers, two ways. Round trip: the data goes through
// libbz2's own encoder and must come back whole. Raw: the bytes are a stream as they come, and
// must decode or fail with one of the node's codes (7006, 7010); a crash, a hang or a
// different failure is the fault looked for.
#include <bzlib.h>
#include <fuzzer/FuzzedDataProvider.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "RkBunzip2.h"
#include "RkDecoderFuzz.h"
#include "RkError.h"

namespace {

void Check(bool ok) {
  if (!ok) __builtin_trap();
}

std::vector<uint8_t> Compress(const std::vector<uint8_t>& data, int level) {
  unsigned length = static_cast<unsigned>(data.size() + data.size() / 100 + 600);
  std::vector<uint8_t> out(length);
  char none = 0;  // the library refuses a null source even for no bytes
  char* source = data.empty() ? &none : const_cast<char*>(reinterpret_cast<const char*>(data.data()));
  const int result = BZ2_bzBuffToBuffCompress(reinterpret_cast<char*>(out.data()), &length, source,
                                              static_cast<unsigned>(data.size()), level, 0, 0);
  Check(result == BZ_OK);
  out.resize(length);
  return out;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  FuzzedDataProvider in(data, size);
  RkPipeLib::RkStreamSettings settings;
  settings.pipeBufferSize = in.ConsumeIntegralInRange<int32_t>(1, 96);
  settings.pipeBufferCount = in.ConsumeIntegralInRange<int32_t>(2, 3);
  const bool roundTrip = in.ConsumeBool();
  const int level = in.ConsumeIntegralInRange(1, 9);
  const bool twice = in.ConsumeBool();
  const std::vector<uint8_t> rest = in.ConsumeRemainingBytes<uint8_t>();

  std::vector<uint8_t> input = rest, expected = rest;
  if (roundTrip) {
    input = Compress(rest, level);
    if (twice) {  // two streams back to back are one output
      const std::vector<uint8_t> again = Compress(rest, 10 - level);
      input.insert(input.end(), again.begin(), again.end());
      expected.insert(expected.end(), rest.begin(), rest.end());
    }
  }
  RkFuzz::CheckDecode(input, settings, roundTrip, expected, {7006, 7010},
                      [](const RkPipeLib::RkStreamSettings& output) { return std::make_unique<RkPipeLib::RkBunzip2>(nullptr, nullptr, output); });
  return 0;
}
