#include "RkUnreduce.h"

#include <algorithm>
#include <cstring>

namespace RkPipeLib {

namespace {

constexpr uint32_t kBadData = kPipeBadData;
constexpr uint8_t kEscape = 144;
constexpr uint32_t kMinMatch = 3;

[[noreturn]] void BadData() { throw RkLib::RkSevereError(kBadData); }

// The width of an index into a follower set of n bytes: enough for n - 1, and at least one bit.
constexpr uint8_t IndexBits(uint32_t n) {
  uint8_t bits = 1;
  while ((1u << bits) < n) ++bits;
  return bits;
}

// The expansion stage between bytes: after a plain byte, after the escape, after the byte that
// opens a copy whose length needs a further byte, and before the distance's low byte.
enum class Expand { kPlain, kEscaped, kLengthByte, kDistanceByte };

}  // namespace

RkUnreduce::RkUnreduce(uint32_t factor, uint64_t uncompressedSize, RkLib::RkMsgQueue* first, RkLib::RkMsgQueue* second,
                       const RkStreamSettings& settings)
    : RkLinkNode(first, second, settings),
      writer_(&output_),
      window_(new uint8_t[kWindowSize]),
      followers_(new uint8_t[256][kMaxFollowers]),
      factor_(factor),
      size_(uncompressedSize) {
  RK_ASSERT(factor >= 1 && factor <= 4);
  output_.Reset();
}

void RkUnreduce::Reset(uint32_t factor, uint64_t uncompressedSize) {
  RK_ASSERT(factor >= 1 && factor <= 4);
  output_.Reset();
  factor_ = factor;
  size_ = uncompressedSize;
}

void RkUnreduce::FlushWindow() {
  writer_.writeBytes(window_.get(), windowPos_);
  windowPos_ = 0;
}

// The sets come for byte 255 first, down to byte 0: a 6-bit count, then the bytes.
void RkUnreduce::ReadFollowerSets() {
  for (int32_t j = 255; j >= 0; --j) {
    const uint32_t n = bits_.Take(6);
    if (n > kMaxFollowers) BadData();
    followerCount_[j] = static_cast<uint8_t>(n);
    indexBits_[j] = IndexBits(n);
    for (uint32_t i = 0; i < n; ++i) followers_[j][i] = static_cast<uint8_t>(bits_.Take(8));
  }
}

uint8_t RkUnreduce::NextByte(uint8_t last) {
  const uint32_t n = followerCount_[last];
  if (n == 0 || bits_.Take(1)) return static_cast<uint8_t>(bits_.Take(8));
  const uint32_t index = bits_.Take(indexBits_[last]);
  if (index >= n) BadData();
  return followers_[last][index];
}

void RkUnreduce::Run() {
  RK_ASSERT(input_ != nullptr);
  reader_.attach(input_);
  bits_.Attach(&reader_);
  windowPos_ = 0;
  std::memset(window_.get(), 0, kWindowSize);

  uint64_t left = size_;
  if (left > 0) ReadFollowerSets();
  const uint32_t lengthBits = 8 - factor_;
  const uint32_t lengthMask = (1u << lengthBits) - 1;
  Expand state = Expand::kPlain;
  uint8_t last = 0;
  uint32_t opener = 0;  // the byte after the escape
  uint32_t length = 0;
  while (left > 0) {
    const uint8_t c = NextByte(last);
    last = c;
    switch (state) {
      case Expand::kPlain:
        if (c == kEscape) {
          state = Expand::kEscaped;
        } else {
          Put(c);
          --left;
        }
        break;
      case Expand::kEscaped:
        if (c == 0) {
          Put(kEscape);
          --left;
          state = Expand::kPlain;
        } else {
          opener = c;
          length = c & lengthMask;
          state = length == lengthMask ? Expand::kLengthByte : Expand::kDistanceByte;
        }
        break;
      case Expand::kLengthByte:
        length += c;
        state = Expand::kDistanceByte;
        break;
      case Expand::kDistanceByte: {
        const uint32_t distance = (opener >> lengthBits) * 256 + c + 1;
        const uint64_t count = std::min<uint64_t>(length + kMinMatch, left);
        uint32_t from = (windowPos_ - distance) & (kWindowSize - 1);
        for (uint64_t i = 0; i < count; ++i) {
          Put(window_[from]);
          from = (from + 1) & (kWindowSize - 1);
        }
        left -= count;
        state = Expand::kPlain;
        break;
      }
    }
  }

  FlushWindow();
  bits_.StoreConsumption();
  writer_.finishOutput();
}

}  // namespace RkPipeLib
