#include "RkUnshrink.h"

#include <algorithm>
#include <cstring>

namespace RkPipeLib {

namespace {

constexpr uint32_t kBadData = kPipeBadData;
constexpr uint16_t kFree = 0xFFFF;
constexpr uint32_t kEscape = 256;
constexpr uint32_t kFirstCode = 257;
constexpr uint32_t kMinWidth = 9;
constexpr uint32_t kMaxWidth = 13;
constexpr uint32_t kWiden = 1;
constexpr uint32_t kPartialClear = 2;

[[noreturn]] void BadData() { throw RkLib::RkSevereError(kBadData); }

}  // namespace

RkUnshrink::RkUnshrink(RkLib::RkMsgQueue* first, RkLib::RkMsgQueue* second, const RkStreamSettings& settings)
    : RkLinkNode(first, second, settings),
      writer_(&output_),
      parent_(new uint16_t[kTableSize]),
      suffix_(new uint8_t[kTableSize]),
      stack_(new uint8_t[kTableSize]),
      out_(new uint8_t[kOutSize]) {
  output_.Reset();
}

void RkUnshrink::Reset() { output_.Reset(); }

void RkUnshrink::InitTable() noexcept {
  for (uint32_t c = 0; c < 256; ++c) {
    parent_[c] = 0;
    suffix_[c] = static_cast<uint8_t>(c);
  }
  std::fill(parent_.get() + kEscape, parent_.get() + kTableSize, kFree);
  nextFree_ = kFirstCode;
}

void RkUnshrink::FindFree(uint32_t from) noexcept {
  while (from < kTableSize && parent_[from] != kFree) ++from;
  nextFree_ = from;
}

// Frees every code that no other code names as its parent. A code whose own parent was freed by
// an earlier clear still marks that slot: the writer reuses the slot, and the orphan then stands
// for the new string there plus its byte.
void RkUnshrink::PartialClear() noexcept {
  uint8_t* isParent = stack_.get();
  std::memset(isParent, 0, kTableSize);
  for (uint32_t c = kFirstCode; c < kTableSize; ++c) {
    const uint16_t p = parent_[c];
    if (p != kFree && p >= kFirstCode) isParent[p] = 1;
  }
  for (uint32_t c = kFirstCode; c < kTableSize; ++c)
    if (!isParent[c]) parent_[c] = kFree;
  FindFree(kFirstCode);
}

// Walks from `code` to its first byte, writing the string backwards into the end of stack_.
//
// The decoder defines each code one step after the writer did: the slot that this step fills
// (the lowest free one) holds the previous string plus the first byte of the current string. The
// writer may already have used it, as the current code itself or anywhere down its chain; since
// the current string then begins with the previous one, that slot's string is the previous string
// and its own first byte. Any other free slot in a chain, or a chain longer than the table (only
// a loop can be), is damaged data.
uint32_t RkUnshrink::Expand(uint32_t code) const {
  uint32_t pos = kTableSize;
  bool pendingMet = false;
  while (code >= kFirstCode) {
    if (pos <= 1) BadData();
    const uint16_t p = parent_[code];
    if (p == kFree) {
      if (code != nextFree_ || pendingMet) BadData();
      pendingMet = true;
      stack_[--pos] = prevFirst_;
      code = prev_;
      continue;
    }
    stack_[--pos] = suffix_[code];
    code = p;
  }
  if (code == kEscape) BadData();
  stack_[--pos] = static_cast<uint8_t>(code);
  return pos;
}

void RkUnshrink::Emit(const uint8_t* data, uint32_t length) {
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

void RkUnshrink::Run() {
  RK_ASSERT(input_ != nullptr);
  reader_.attach(input_);
  bits_.Attach(&reader_);
  InitTable();
  outCount_ = 0;

  uint32_t width = kMinWidth;
  bool started = false;
  for (;;) {
    if (bits_.Fill(width) < width) {
      // What is left pads the last byte; eight bits or more are a code cut off.
      if (bits_.Held() >= 8) throw RkLib::RkSevereError(kPipeReadPastEnd);
      break;
    }
    const uint32_t code = bits_.Peek(width);
    bits_.Drop(width);

    if (code == kEscape) {
      const uint32_t command = bits_.Take(width);
      if (command == kWiden) {
        if (++width > kMaxWidth) BadData();
      } else if (command == kPartialClear) {
        PartialClear();
      } else {
        BadData();
      }
      continue;
    }

    if (!started) {
      if (code >= kEscape) BadData();  // nothing is defined yet
      prevFirst_ = static_cast<uint8_t>(code);
      Emit(&prevFirst_, 1);
      prev_ = code;
      started = true;
      continue;
    }

    const uint32_t start = Expand(code);
    Emit(stack_.get() + start, kTableSize - start);
    if (nextFree_ >= kTableSize) BadData();  // the writer must clear before the table overflows
    parent_[nextFree_] = static_cast<uint16_t>(prev_);
    suffix_[nextFree_] = stack_[start];
    FindFree(nextFree_ + 1);
    prev_ = code;
    prevFirst_ = stack_[start];
  }

  if (outCount_) writer_.writeBytes(out_.get(), outCount_);
  outCount_ = 0;
  bits_.StoreConsumption();
  writer_.finishOutput();
}

}  // namespace RkPipeLib
