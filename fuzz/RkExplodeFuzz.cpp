// Arbitrary bytes as imploded data (zip method 6) through the explode decoder, with the flags and
// the declared size taken from the input: the output is exactly the declared size, or an error.
#include <algorithm>
#include <memory>

#include "RkDecoderFuzz.h"
#include "RkExplode.h"

namespace {
constexpr uint64_t kOutputLimit = 1u << 18;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  uint64_t declared = 0;
  const RkFuzz::DecoderRun run =
      RkFuzz::RunDecoder(data, size, kOutputLimit, {7010, 7006}, [&](FuzzedDataProvider& in, const auto& settings) {
        const uint8_t flags = in.ConsumeIntegral<uint8_t>();
        declared = in.ConsumeIntegralInRange<uint64_t>(0, kOutputLimit * 2);
        return std::make_unique<RkPipeLib::RkExplode>(flags, declared, nullptr, nullptr, settings);
      });
  if (run.ended) {
    RkFuzz::Check(run.output == std::min(declared, kOutputLimit));
    RkFuzz::Check(run.inputRead <= run.inputSize);
  }
  return 0;
}
