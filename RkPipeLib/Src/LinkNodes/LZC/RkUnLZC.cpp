#include "RkUnLZC.h"

#include <algorithm>
#include <cstring>

namespace RkPipeLib {

namespace {

constexpr uint32_t kBadData = kPipeBadData;
constexpr uint32_t kMagic0 = 0x1F;
constexpr uint32_t kMagic1 = 0x9D;
constexpr uint32_t kWidthMask = 0x1F;
constexpr uint32_t kBlockMode = 0x80;
constexpr uint32_t kMinWidth = 9;
constexpr uint32_t kMaxWidth = 16;
constexpr uint32_t kClear = 256;
constexpr uint32_t kGroupCodes = 8;

[[noreturn]] void BadData() { throw RkLib::RkSevereError(kBadData); }

}  // namespace

RkUnLZC::RkUnLZC(RkLib::RkMsgQueue* first, RkLib::RkMsgQueue* second, const RkStreamSettings& settings)
    : RkLinkNode(first, second, settings),
      writer_(&output_),
      prefix_(new uint16_t[kTableSize]()),
      suffix_(new uint8_t[kTableSize]()),
      stack_(new uint8_t[kTableSize]),
      out_(new uint8_t[kOutSize]) {
  output_.Reset();
}

void RkUnLZC::Reset() { output_.Reset(); }

void RkUnLZC::Emit(const uint8_t* data, uint32_t length) {
  while (length > 0) {
    const uint32_t n = std::min(length, kOutSize - outCount_);
    std::memcpy(out_.get() + outCount_, data, n);
    outCount_ += n;
    data += n;
    length -= n;
    if (outCount_ == kOutSize) {
      writer_.writeBytes(out_.get(), outCount_);
      outCount_ = 0;
    }
  }
}

void RkUnLZC::Run() {
  RK_ASSERT(input_ != nullptr);
  reader_.attach(input_);
  bits_.Attach(&reader_);
  outCount_ = 0;

  if (bits_.Take(8) != kMagic0 || bits_.Take(8) != kMagic1) BadData();
  const uint32_t flags = bits_.Take(8);
  const uint32_t maxWidth = flags & kWidthMask;
  if (maxWidth < kMinWidth || maxWidth > kMaxWidth) BadData();
  const bool blockMode = (flags & kBlockMode) != 0;
  const uint32_t codeLimit = 1u << maxWidth;  // no code is defined at or past this

  uint32_t width = kMinWidth;
  uint32_t maxCode = (1u << width) - 1;
  uint32_t nextFree = blockMode ? kClear + 1 : kClear;
  uint32_t inGroup = 0;  // codes read in the current group of eight
  bool first = true;
  int32_t prev = -1;      // the code before; -1 at the start and after a clear
  uint8_t firstByte = 0;  // the first byte of the previous string

  // Skips the rest of the current group; false if the input ends inside it.
  const auto newGroup = [&] {
    const uint32_t unused = inGroup ? (kGroupCodes - inGroup) * width : 0;
    inGroup = 0;
    return bits_.Skip(unused);
  };

  for (;;) {
    if (nextFree > maxCode) {
      if (!newGroup()) break;
      ++width;
      maxCode = width == maxWidth ? codeLimit : (1u << width) - 1;
      RK_ASSERT(width <= kMaxWidth);
    }
    if (bits_.Fill(width) < width) break;  // what is left cannot hold a code
    uint32_t code = bits_.Peek(width);
    bits_.Drop(width);
    inGroup = (inGroup + 1) % kGroupCodes;

    if (first) {
      if (code >= kClear) BadData();  // nothing is defined yet
      first = false;
    } else if (code == kClear && blockMode) {
      if (!newGroup()) break;
      width = kMinWidth;
      maxCode = (1u << width) - 1;
      nextFree = kClear + 1;
      prev = -1;
      continue;
    }

    if (prev < 0) {
      // After a clear, too, the first code can only be a byte.
      if (code >= kClear) BadData();
      firstByte = static_cast<uint8_t>(code);
      Emit(&firstByte, 1);
      prev = static_cast<int32_t>(code);
      continue;
    }

    const uint32_t thisCode = code;
    uint32_t pos = kTableSize;
    if (code >= nextFree) {
      // Only the code that this step defines may be used early: the previous string and its
      // own first byte.
      if (code > nextFree) BadData();
      stack_[--pos] = firstByte;
      code = static_cast<uint32_t>(prev);
    }
    while (code >= kClear) {
      // Each entry's prefix is an older code, so a chain ends; the bound is for the stack.
      if (pos <= 1) BadData();
      stack_[--pos] = suffix_[code];
      code = prefix_[code];
    }
    firstByte = static_cast<uint8_t>(code);
    stack_[--pos] = firstByte;
    Emit(stack_.get() + pos, kTableSize - pos);

    if (nextFree < codeLimit) {
      prefix_[nextFree] = static_cast<uint16_t>(prev);
      suffix_[nextFree] = firstByte;
      ++nextFree;
    }
    prev = static_cast<int32_t>(thisCode);
  }

  if (outCount_) writer_.writeBytes(out_.get(), outCount_);
  outCount_ = 0;
  bits_.StoreConsumption();
  writer_.finishOutput();
}

}  // namespace RkPipeLib
