// Arbitrary bytes as imploded data through RkMemIn -> RkExplode -> RkMemOut in a real pipe, with
// the flags, the declared size and the input's buffer size taken from the end of the input.
// The run must end with the declared size (or the output limit) delivered, or with one of our
// errors: never a crash, a hang, a read past the input or a fault of our own invariants.
#include <fuzzer/FuzzedDataProvider.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "RkError.h"
#include "RkExplode.h"
#include "RkMemIn.h"
#include "RkMemOut.h"
#include "RkPipe.h"

namespace {

constexpr uint64_t kOutputLimit = 1u << 18;

void Check(bool ok) {
  if (!ok) __builtin_trap();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  FuzzedDataProvider in(data, size);
  RkPipeLib::RkStreamSettings inputSettings;
  // Mostly whole blocks, which keep the runs fast; now and then tiny ones, which put every code
  // across a cut.
  const uint8_t shape = in.ConsumeIntegral<uint8_t>();
  inputSettings.pipeBufferSize = shape < 16 ? 1 + shape % 8 : 1 << 14;
  RkPipeLib::RkStreamSettings outputSettings;
  outputSettings.pipeBufferSize = 1 << 16;
  const uint8_t flags = in.ConsumeIntegral<uint8_t>();
  const uint64_t declared = in.ConsumeIntegralInRange<uint64_t>(0, kOutputLimit * 2);
  const std::vector<uint8_t> input = in.ConsumeRemainingBytes<uint8_t>();

  RkPipeLib::RkMemIn source(input.data(), input.size(), nullptr, nullptr, inputSettings);
  RkPipeLib::RkExplode node(flags, declared, nullptr, nullptr, outputSettings);
  RkPipeLib::RkMemOut target(nullptr, nullptr, kOutputLimit, outputSettings);
  RkPipeLib::RkPipe pipe(&source, {&node}, &target);
  try {
    Check(pipe.Run(nullptr));
    Check(target.Bytes().size() == std::min(declared, kOutputLimit));
    Check(node.InputStream()->bytesRead() <= input.size());
  } catch (const RkLib::RkError& e) {
    Check((e.code() == 7010 || e.code() == 7006) && e.severity() == RkLib::kSeveritySevere);
  }
  return 0;
}
