// Arbitrary bytes as reduced data (zip methods 2 to 5) through the unreduce decoder, with the
// factor and the declared size taken from the input: the output is exactly the declared size, or
// an error.
#include <algorithm>
#include <memory>

#include "RkDecoderFuzz.h"
#include "RkUnreduce.h"

namespace {
constexpr uint64_t kOutputLimit = 1u << 18;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  uint64_t declared = 0;
  const RkFuzz::DecoderRun run =
      RkFuzz::RunDecoder(data, size, kOutputLimit, {7010, 7006}, [&](FuzzedDataProvider& in, const auto& settings) {
        const uint32_t factor = in.ConsumeIntegralInRange<uint32_t>(1, 4);
        declared = in.ConsumeIntegralInRange<uint64_t>(0, kOutputLimit * 2);
        return std::make_unique<RkPipeLib::RkUnreduce>(factor, declared, nullptr, nullptr, settings);
      });
  if (run.ended) {
    RkFuzz::Check(run.output == std::min(declared, kOutputLimit));
    RkFuzz::Check(run.inputRead <= run.inputSize);
  }
  return 0;
}
