// The harness that every decoder target shares: arbitrary bytes through RkMemIn -> decoder ->
// RkMemOut in a real pipe. The first byte chooses the input's buffer size, mostly whole blocks
// (fast runs) and now and then tiny ones (every code across a cut). The run must end with output
// or with one of the decoder's own errors: never a crash, a hang, a read past the input or a
// broken invariant. The output is capped, since a few codes can stand for long strings.
#pragma once

#include <fuzzer/FuzzedDataProvider.h>

#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <vector>

#include "RkCountOut.h"
#include "RkError.h"
#include "RkMemIn.h"
#include "RkMemOut.h"
#include "RkNode.h"
#include "RkPipe.h"

namespace RkFuzz {

inline void Check(bool ok) {
  if (!ok) __builtin_trap();
}

struct DecoderRun {
  bool ended = false;             // the pipe returned normally
  uint64_t output = 0;            // bytes delivered
  uint64_t inputSize = 0;
  uint64_t inputRead = 0;         // the decoder's report of what it consumed
};

// `makeNode(in, outputSettings)` builds the decoder, reading any parameters it needs from `in`
// before the rest becomes the data. A failure must be severe, with one of `codes`.
template <typename MakeNode>
DecoderRun RunDecoder(const uint8_t* data, size_t size, uint64_t outputLimit, std::initializer_list<uint32_t> codes,
                      MakeNode&& makeNode) {
  FuzzedDataProvider in(data, size);
  RkPipeLib::RkStreamSettings inputSettings;
  const uint8_t shape = in.ConsumeIntegral<uint8_t>();
  inputSettings.pipeBufferSize = shape < 16 ? 1 + shape % 8 : 1 << 14;
  RkPipeLib::RkStreamSettings outputSettings;
  outputSettings.pipeBufferSize = 1 << 16;
  auto node = makeNode(in, outputSettings);
  const std::vector<uint8_t> input = in.ConsumeRemainingBytes<uint8_t>();

  RkPipeLib::RkMemIn source(input.data(), input.size(), nullptr, nullptr, inputSettings);
  RkPipeLib::RkMemOut target(nullptr, nullptr, outputLimit, outputSettings);
  RkPipeLib::RkPipe pipe(&source, {node.get()}, &target);
  DecoderRun run;
  run.inputSize = input.size();
  try {
    Check(pipe.Run(nullptr));
    run.ended = true;
    run.output = target.Bytes().size();
    run.inputRead = node->InputStream()->bytesRead();
    Check(run.output <= outputLimit);
  } catch (const RkLib::RkError& e) {
    bool known = false;
    for (uint32_t code : codes) known = known || e.code() == code;
    Check(known && e.severity() == RkLib::kSeveritySevere);
  }
  return run;
}

// The round-trip form of the library decoders' targets. With `roundTrip`, `input` was made by the
// library's own encoder and must decode to `expected` exactly; otherwise it is arbitrary bytes,
// which must decode or fail with one of `codes`. Arbitrary bytes may decode to megabytes, and in
// tiny buffers every few bytes would be a hand-over between threads: raw runs write 64 KiB
// buffers, round trips (no longer than their data) the tiny ones.
template <typename MakeNode>
void CheckDecode(const std::vector<uint8_t>& input, const RkPipeLib::RkStreamSettings& settings, bool roundTrip,
                 const std::vector<uint8_t>& expected, std::initializer_list<uint32_t> codes, MakeNode&& makeNode) {
  RkPipeLib::RkStreamSettings output = settings;
  if (!roundTrip) output.pipeBufferSize = 65536;
  RkPipeLib::RkMemIn source(input.data(), input.size(), nullptr, nullptr, settings);
  auto node = makeNode(output);
  RkPipeLib::RkMemOut memory(nullptr, nullptr, RkPipeLib::RkMemOut::kNoLimit, output);
  RkPipeLib::RkCountOut count(nullptr, nullptr, output);
  RkPipeLib::RkTargetNode* target = roundTrip ? static_cast<RkPipeLib::RkTargetNode*>(&memory) : &count;
  RkPipeLib::RkPipe pipe(&source, {node.get()}, target);
  try {
    Check(pipe.Run(nullptr));
    Check(!roundTrip || memory.Bytes() == expected);
  } catch (const RkLib::RkError& e) {
    Check(!roundTrip);
    bool known = false;
    for (uint32_t code : codes) known = known || e.code() == code;
    Check(known && e.severity() == RkLib::kSeveritySevere);
  }
}

}  // namespace RkFuzz
