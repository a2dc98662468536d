// The WavPack node in a real pipe with tiny buffers: the bytes are a stream as it comes (start
// from the wavpack tool's files as seeds), with the length the node is told picked by the input,
// and must decode or fail with one of the node's codes (7006, 7010); a crash, a hang, an
// exception through the library's C frames or a different failure is the fault looked for.
#include <fuzzer/FuzzedDataProvider.h>

#include <cstddef>
#include <cstdint>
#include <vector>

#include "RkCountOut.h"
#include "RkError.h"
#include "RkMemIn.h"
#include "RkPipe.h"
#include "RkWavUnpack.h"

namespace {

void Check(bool ok) {
  if (!ok) __builtin_trap();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  FuzzedDataProvider in(data, size);
  RkPipeLib::RkStreamSettings settings;
  settings.pipeBufferSize = in.ConsumeIntegralInRange<int32_t>(1, 96);
  settings.pipeBufferCount = in.ConsumeIntegralInRange<int32_t>(2, 3);
  const bool trueLength = in.ConsumeBool();
  const uint64_t claimed = in.ConsumeIntegral<uint32_t>();
  const std::vector<uint8_t> input = in.ConsumeRemainingBytes<uint8_t>();

  // Audio comes out larger than it went in; output buffers of 64 to 6144 bytes keep the
  // hand-overs between threads in bounds while still cutting samples anywhere.
  RkPipeLib::RkStreamSettings output = settings;
  output.pipeBufferSize *= 64;
  RkPipeLib::RkMemIn source(input.data(), input.size(), nullptr, nullptr, settings);
  RkPipeLib::RkWavUnpack node(trueLength ? input.size() : claimed, nullptr, nullptr, output);
  RkPipeLib::RkCountOut target(nullptr, nullptr, output);
  RkPipeLib::RkPipe pipe(&source, {&node}, &target);
  try {
    Check(pipe.Run(nullptr));
  } catch (const RkLib::RkError& e) {
    Check(e.severity() == RkLib::kSeveritySevere && (e.code() == 7006 || e.code() == 7010));
  }
  return 0;
}
