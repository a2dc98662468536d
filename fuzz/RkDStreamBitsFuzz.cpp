// The byte and bit reader of RkDStream against a plain model of it. The input is a script of reads
// (bits of any width, single bits, byte reads with any minimum and maximum, alignments) and the
// bytes they read, sent through buffers of a size the input picks, so that the fast paths meet
// every buffer edge. The model keeps a byte position, the unread bits of the current byte and
// whether the end has been delivered.
#include <fuzzer/FuzzedDataProvider.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "RkDStream.h"

namespace {

void Check(bool ok) {
  if (!ok) __builtin_trap();
}

struct Model {
  const std::vector<uint8_t>& data;
  size_t bufferSize;
  size_t at = 0;         // next byte the stream gives
  uint32_t pending = 0;  // unread low bits of the last byte the bit reader took
  uint32_t pendingCount = 0;
  bool endDelivered = false;
};

// The outcome the model expects: raised 7006, or a result with a value and a count.
struct Expect {
  bool raises = false;
  bool result = false;
  uint64_t value = 0;
  uint64_t count = 0;
};

Expect ModelBits(Model& m, uint32_t width) {
  if (width == 0) return {false, true, 0, 0};
  // More bits than are pending ask the stream, which may have delivered its end already: a
  // byte read can meet the end while the bit reader still holds part of a byte.
  if (width > m.pendingCount && m.at == m.data.size()) {
    if (m.endDelivered) return {true};
    if (m.pendingCount == 0) {
      m.endDelivered = true;
      return {false, false, 0, 0};
    }
  }
  uint64_t value = 0;
  uint32_t got = 0;
  while (got < width) {
    if (m.pendingCount == 0) {
      if (m.at == m.data.size()) break;
      m.pending = m.data[m.at++];
      m.pendingCount = 8;
    }
    value = value << 1 | ((m.pending >> (m.pendingCount - 1)) & 1);
    --m.pendingCount;
    ++got;
  }
  return {false, true, value, got};
}

Expect ModelRead(Model& m, uint64_t maximum, uint64_t minimum) {
  if (minimum > maximum) return {false, false, 0, 0};
  uint64_t got = 0;
  for (;;) {
    if (m.at == m.data.size()) {
      if (got > 0) return {false, true, 0, got};
      if (m.endDelivered) return {true};
      m.endDelivered = true;
      return {false, false, 0, 0};
    }
    const size_t inBuffer = std::min(m.bufferSize - m.at % m.bufferSize, m.data.size() - m.at);
    const uint64_t n = std::min<uint64_t>(minimum - got, inBuffer);
    m.at += n;
    got += n;
    if (got >= minimum) return {false, true, 0, got};
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  FuzzedDataProvider in(data, size);
  const size_t bufferSize = in.ConsumeIntegralInRange<size_t>(1, 16);
  const std::vector<uint8_t> script = in.ConsumeBytes<uint8_t>(in.ConsumeIntegralInRange<size_t>(0, 128));
  const std::vector<uint8_t> bytes = in.ConsumeRemainingBytes<uint8_t>();

  RkPipeLib::RkStreamSettings settings;
  settings.pipeBufferSize = static_cast<int32_t>(bufferSize);
  settings.pipeBufferCount = static_cast<int32_t>(bytes.size() / bufferSize + 2);  // nothing waits
  RkPipeLib::RkDStream stream(settings);
  stream.write(bytes.data(), bytes.size());
  stream.finish(nullptr);
  stream.setLast();

  Model model{bytes, bufferSize};
  for (size_t i = 0; i < script.size(); ++i) {
    const uint8_t op = script[i];
    Expect expect;
    Expect seen;
    try {
      switch (op & 3) {
        case 0: {
          const uint32_t width = (op >> 2) % 33;
          expect = ModelBits(model, width);
          uint32_t value = 0, got = 0;
          seen.result = stream.readBits(value, width, got);
          seen.value = value;
          seen.count = seen.result ? got : 0;
          break;
        }
        case 1: {
          expect = ModelBits(model, 1);
          uint32_t bit = 0;
          seen.result = stream.readBit(bit);
          seen.value = bit;
          seen.count = seen.result ? 1 : 0;
          break;
        }
        case 2:
          model.pendingCount = 0;
          stream.alignRead();
          continue;
        default: {
          const uint64_t maximum = (op >> 2) & 15;
          const uint64_t minimum = (op >> 6) * 5;
          expect = ModelRead(model, maximum, minimum);
          std::vector<uint8_t> out(maximum + 1);
          uint64_t count = 0;
          seen.result = stream.read(out.data(), maximum, minimum, count);
          seen.count = count;
          Check(count == expect.count);
          const auto from = bytes.begin() + static_cast<ptrdiff_t>(model.at - count);
          Check(std::equal(out.begin(), out.begin() + static_cast<ptrdiff_t>(count), from));
          break;
        }
      }
    } catch (const RkLib::RkError& e) {
      Check(expect.raises && e.code() == RkPipeLib::kPipeReadPastEnd);
      return 0;
    }
    Check(!expect.raises);
    Check(seen.result == expect.result && seen.count == expect.count);
    if ((op & 3) != 3) Check(!seen.result || seen.value == expect.value);
  }
  return 0;
}
