// Arbitrary bytes through RkMemIn -> RkCrLfConverter -> RkMemOut in a real pipe with tiny
// buffers, so that pairs and the sniffed start fall across blocks anywhere. The output must be
// what a plain conversion of the whole input gives, with the decision taken on the first block.
#include <fuzzer/FuzzedDataProvider.h>

#include <algorithm>
#include <cctype>
#include <cstddef>
#include <cstdint>
#include <string_view>
#include <vector>

#include "RkCrLfConverter.h"
#include "RkMemIn.h"
#include "RkMemOut.h"
#include "RkPipe.h"

namespace {

void Check(bool ok) {
  if (!ok) __builtin_trap();
}

bool StartsWithNoCase(const std::vector<uint8_t>& data, size_t n, std::string_view magic) {
  if (n < magic.size()) return false;
  for (size_t i = 0; i < magic.size(); ++i)
    if (std::tolower(data[i]) != magic[i]) return false;
  return true;
}

// The rules written out once more, as plainly as possible.
std::vector<uint8_t> Reference(const std::vector<uint8_t>& data, size_t firstBlock) {
  const size_t n = std::min<size_t>({data.size(), firstBlock, 80});
  bool convert = !(n >= 7 && (StartsWithNoCase(data, n, "%pdf-") || StartsWithNoCase(data, n, "{\\rtf1")));
  for (size_t i = 0; i < n && convert; ++i) {
    const uint8_t b = data[i];
    if (b >= 128 || (b < 32 && b != '\t' && b != '\n' && b != '\f' && b != '\r')) convert = false;
  }
  if (!convert) return data;
  std::vector<uint8_t> out;
  for (size_t i = 0; i < data.size(); ++i) {
    const bool afterCr = i > 0 && data[i - 1] == '\r';
    if (data[i] == '\n' && !afterCr) out.push_back('\r');
    if (data[i] != '\n' && afterCr) out.push_back('\n');
    out.push_back(data[i]);
  }
  return out;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  FuzzedDataProvider in(data, size);
  RkPipeLib::RkStreamSettings settings;
  settings.pipeBufferSize = in.ConsumeIntegralInRange<int32_t>(1, 96);
  settings.pipeBufferCount = in.ConsumeIntegralInRange<int32_t>(2, 4);
  const std::vector<uint8_t> input = in.ConsumeRemainingBytes<uint8_t>();

  RkPipeLib::RkMemIn source(input.data(), input.size(), nullptr, nullptr, settings);
  RkPipeLib::RkCrLfConverter converter(nullptr, nullptr, settings);
  RkPipeLib::RkMemOut target(nullptr, nullptr, RkPipeLib::RkMemOut::kNoLimit, settings);
  RkPipeLib::RkPipe pipe(&source, {&converter}, &target);
  Check(pipe.Run(nullptr));
  Check(target.Bytes() == Reference(input, static_cast<size_t>(settings.pipeBufferSize)));
  return 0;
}
