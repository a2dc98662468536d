#include "RkExplode.h"

#include <algorithm>
#include <cstring>

namespace RkPipeLib {

namespace {

constexpr uint32_t kBadData = kPipeBadData;
constexpr uint32_t kLengthEscape = 63;  // this length is followed by 8 more bits to add
constexpr uint32_t kMaxDistance = 8192;

[[noreturn]] void BadData() { throw RkLib::RkSevereError(kBadData); }

uint32_t Reverse(uint32_t code, uint32_t length) {
  uint32_t reversed = 0;
  for (uint32_t i = 0; i < length; ++i, code >>= 1) reversed = reversed << 1 | (code & 1);
  return reversed;
}

}  // namespace

RkExplode::RkExplode(uint8_t flags, uint64_t uncompressedSize, RkLib::RkMsgQueue* first, RkLib::RkMsgQueue* second,
                     const RkStreamSettings& settings)
    : RkLinkNode(first, second, settings),
      writer_(&output_),
      window_(new uint8_t[kWindowSize]),
      flags_(flags),
      size_(uncompressedSize) {
  output_.Reset();
}

void RkExplode::Reset(uint8_t flags, uint64_t uncompressedSize) {
  output_.Reset();
  flags_ = flags;
  size_ = uncompressedSize;
}

void RkExplode::FlushWindow() {
  writer_.writeBytes(window_.get(), windowPos_);
  windowPos_ = 0;
}

// A tree is stored as a byte count less one, then bytes that each give a run of symbols with the
// same code length: the low nibble is the length less one, the high nibble the run less one.
//
// The codes are those of the format's own construction: symbols sorted by length, ties in
// symbol order; codes handed out from the last one upward in a 16-bit register, the step being
// the weight of the current length; each code is then read from the input most significant bit
// first. With lengths of 1 to 16 for every symbol, only a complete code is a prefix code, so
// anything else is refused before the construction.
void RkExplode::ReadTree(Tree& tree, uint32_t symbols) {
  uint8_t lengths[256];
  const uint32_t runs = bits_.Take(8) + 1;
  uint32_t n = 0;
  for (uint32_t i = 0; i < runs; ++i) {
    const uint32_t run = bits_.Take(8);
    const uint32_t count = (run >> 4) + 1;
    if (n + count > symbols) BadData();
    std::memset(lengths + n, static_cast<int>((run & 15) + 1), count);
    n += count;
  }
  if (n != symbols) BadData();

  uint32_t perLength[kMaxCodeBits + 1] = {};
  uint32_t space = 0;
  for (uint32_t s = 0; s < symbols; ++s) {
    ++perLength[lengths[s]];
    space += 1u << (kMaxCodeBits - lengths[s]);
  }
  if (space != 1u << kMaxCodeBits) BadData();
  uint32_t maxLength = kMaxCodeBits;
  while (perLength[maxLength] == 0) --maxLength;

  // A stable sort by length: each length's symbols start where the shorter ones end.
  uint32_t start[kMaxCodeBits + 2] = {};
  for (uint32_t len = 1; len <= kMaxCodeBits; ++len) start[len + 1] = start[len] + perLength[len];
  uint8_t order[256];
  for (uint32_t s = 0; s < symbols; ++s) order[start[lengths[s]]++] = static_cast<uint8_t>(s);

  uint32_t code = 0;
  uint32_t step = 0;
  uint32_t lastLength = 0;
  for (uint32_t i = symbols; i-- > 0;) {
    const uint32_t s = order[i];
    const uint32_t len = lengths[s];
    code += step;
    if (len != lastLength) {
      lastLength = len;
      step = 1u << (kMaxCodeBits - len);
    }
    const uint16_t entry = static_cast<uint16_t>(s | len << 8);
    for (uint32_t k = Reverse(code >> (kMaxCodeBits - len), len); k < (1u << maxLength); k += 1u << len)
      tree.table[k] = entry;
  }
  tree.bits = maxLength;
}

uint32_t RkExplode::Decode(const Tree& tree) {
  const uint32_t held = bits_.Fill(tree.bits);
  const uint16_t entry = tree.table[bits_.Peek(tree.bits)];
  const uint32_t length = entry >> 8;
  if (length > held) throw RkLib::RkSevereError(kPipeReadPastEnd);
  bits_.Drop(length);
  return entry & 0xFF;
}

void RkExplode::Run() {
  RK_ASSERT(input_ != nullptr);
  reader_.attach(input_);
  bits_.Attach(&reader_);
  windowPos_ = 0;
  // The first copies may reach back past the start, which wraps to the end of the window.
  std::memset(window_.get() + kWindowSize - kMaxDistance, 0, kMaxDistance);

  uint64_t left = size_;
  const bool literalTree = (flags_ & kLiteralTree) != 0;
  if (left > 0) {
    if (literalTree) ReadTree(literals_, 256);
    ReadTree(lengths_, 64);
    ReadTree(distances_, 64);
  }
  const uint32_t lowBits = (flags_ & kLargeWindow) ? 7 : 6;
  const uint32_t minMatch = literalTree ? 3 : 2;
  while (left > 0) {
    if (bits_.Take(1)) {
      Put(static_cast<uint8_t>(literalTree ? Decode(literals_) : bits_.Take(8)));
      --left;
      continue;
    }
    const uint32_t low = bits_.Take(lowBits);
    const uint32_t distance = (Decode(distances_) << lowBits | low) + 1;
    uint32_t length = Decode(lengths_);
    if (length == kLengthEscape) length += bits_.Take(8);
    const uint64_t count = std::min<uint64_t>(length + minMatch, left);
    uint32_t from = (windowPos_ - distance) & (kWindowSize - 1);
    for (uint64_t i = 0; i < count; ++i) {
      Put(window_[from]);
      from = (from + 1) & (kWindowSize - 1);
    }
    left -= count;
  }

  FlushWindow();
  bits_.StoreConsumption();
  writer_.finishOutput();
}

}  // namespace RkPipeLib
