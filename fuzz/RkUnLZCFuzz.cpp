// Arbitrary bytes as compress (.Z) data through RkMemIn -> RkUnLZC -> RkMemOut in a real pipe,
// with the input's buffer size taken from the end of the input. The run must end with output
// or with one of our errors: never a crash, a hang, a read past the input or a fault of our own
// invariants. The output is capped, since a few codes can stand for long strings.
#include <fuzzer/FuzzedDataProvider.h>

#include <cstddef>
#include <cstdint>
#include <vector>

#include "RkError.h"
#include "RkMemIn.h"
#include "RkMemOut.h"
#include "RkPipe.h"
#include "RkUnLZC.h"

namespace {

constexpr uint64_t kOutputLimit = 1u << 20;

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
  const std::vector<uint8_t> input = in.ConsumeRemainingBytes<uint8_t>();

  RkPipeLib::RkMemIn source(input.data(), input.size(), nullptr, nullptr, inputSettings);
  RkPipeLib::RkUnLZC node(nullptr, nullptr, outputSettings);
  RkPipeLib::RkMemOut target(nullptr, nullptr, kOutputLimit, outputSettings);
  RkPipeLib::RkPipe pipe(&source, {&node}, &target);
  try {
    Check(pipe.Run(nullptr));
    Check(target.Bytes().size() <= kOutputLimit);
  } catch (const RkLib::RkError& e) {
    Check((e.code() == 7010 || e.code() == 7006) && e.severity() == RkLib::kSeveritySevere);
  }
  return 0;
}
