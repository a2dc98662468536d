// Arbitrary bytes as a PPMd stream of ZIP method 98 (the first two bytes are its header), through
// RkMemIn -> RkPPMdDecoder -> RkMemOut in a real pipe, the input in buffers of 1 to 64 bytes. The
// pipe must end normally or with the decoder's own codes (7010 bad data, 7006 short input, 7001
// no memory); the output is cut off at 64 KiB, which stops the pipe quietly.
//
// One input in four also goes the other way: its bytes, stretched to 4 to 36 KiB so that a 1 MiB
// model of a high order runs full, are encoded with the model's own encoding half under the order and
// restore method that its header bytes name, and must decode to themselves.
//
// The buffer sizes come from the last bytes (FuzzedDataProvider takes integers from the end),
// so the stream keeps its header at the front.
#include <fuzzer/FuzzedDataProvider.h>

#include <cstddef>
#include <cstdint>
#include <vector>

#include "RkError.h"
#include "RkMemIn.h"
#include "RkMemOut.h"
#include "RkPPMdDecoder.h"
#include "RkPipe.h"

namespace {

void Check(bool ok) {
  if (!ok) __builtin_trap();
}

constexpr uint64_t kOutputLimit = 64 << 10;

// Runs the stream through a pipe; the output, or nothing after one of the decoder's errors.
bool Decode(const std::vector<uint8_t>& stream, const RkPipeLib::RkStreamSettings& inputSettings,
            const RkPipeLib::RkStreamSettings& settings, std::vector<uint8_t>& output) {
  RkPipeLib::RkMemIn source(stream.data(), stream.size(), nullptr, nullptr, inputSettings);
  RkPipeLib::RkPPMdDecoder decoder(nullptr, nullptr, settings);
  RkPipeLib::RkMemOut target(nullptr, nullptr, kOutputLimit, settings);
  RkPipeLib::RkPipe pipe(&source, {&decoder}, &target);
  try {
    Check(pipe.Run(nullptr));
  } catch (const RkLib::RkError& e) {
    const uint32_t code = e.code();
    Check(code == 7010 || code == 7006 || code == 7001);
    return false;
  }
  output = target.Bytes();
  Check(output.size() <= kOutputLimit + static_cast<uint64_t>(settings.pipeBufferSize));
  return true;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  FuzzedDataProvider in(data, size);
  // Small input buffers put every read of the range decoder at a cut now and then; the output
  // ones stay larger, or the output would take a hand-over per byte.
  RkPipeLib::RkStreamSettings inputSettings;
  inputSettings.pipeBufferSize = in.ConsumeIntegralInRange<int32_t>(1, 64);
  RkPipeLib::RkStreamSettings settings;
  settings.pipeBufferSize = in.ConsumeIntegralInRange<int32_t>(256, 16384);
  settings.pipeBufferCount = in.ConsumeIntegralInRange<int32_t>(2, 3);
  const bool roundTrip = in.ConsumeIntegralInRange<int>(0, 3) == 0;
  const std::vector<uint8_t> stream = in.ConsumeRemainingBytes<uint8_t>();

  std::vector<uint8_t> output;
  Decode(stream, inputSettings, settings, output);

  if (roundTrip && stream.size() >= 2) {
    const unsigned bits = stream[0] | stream[1] << 8;
    const unsigned order = 2 + (bits & 15) % 15;
    const unsigned method = (bits >> 12) % 3;
    std::vector<uint8_t> plain;
    const size_t target = 4096 + ((bits >> 4) & 255) * 128;
    for (size_t i = 0; plain.size() < target; ++i)
      plain.push_back(static_cast<uint8_t>(stream[i % stream.size()] + (i / stream.size()) * 0x9D));

    std::vector<uint8_t> encoded = {static_cast<uint8_t>(order - 1), static_cast<uint8_t>(method << 4)};
    RkPipeLib::RkPPMdMod model;
    model.Allocate(1 << 20);
    model.Start(order, method);
    RkPipeLib::RkPPMdRangeEncoder rc(encoded);
    for (uint8_t b : plain) model.EncodeSymbol(b, rc);
    model.EncodeSymbol(RkPipeLib::RkPPMdMod::kEndMark, rc);
    rc.Flush();

    std::vector<uint8_t> decoded;
    Check(Decode(encoded, settings, settings, decoded));
    Check(decoded == plain);
  }
  return 0;
}
