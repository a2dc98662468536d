// Arbitrary bytes as shrunk data (zip method 1) through the unshrink decoder.
#include <memory>

#include "RkDecoderFuzz.h"
#include "RkUnshrink.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  RkFuzz::RunDecoder(data, size, 1u << 20, {7010, 7006}, [](FuzzedDataProvider&, const auto& settings) {
    return std::make_unique<RkPipeLib::RkUnshrink>(nullptr, nullptr, settings);
  });
  return 0;
}
