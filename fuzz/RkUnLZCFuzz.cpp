// Arbitrary bytes as compress (.Z) data through the LZC decoder.
#include <memory>

#include "RkDecoderFuzz.h"
#include "RkUnLZC.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  RkFuzz::RunDecoder(data, size, 1u << 20, {7010, 7006}, [](FuzzedDataProvider&, const auto& settings) {
    return std::make_unique<RkPipeLib::RkUnLZC>(nullptr, nullptr, settings);
  });
  return 0;
}
