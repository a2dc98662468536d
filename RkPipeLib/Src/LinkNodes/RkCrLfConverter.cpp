#include "RkCrLfConverter.h"

#include <algorithm>
#include <string_view>

namespace RkPipeLib {

namespace {

constexpr uint8_t kCr = 13;
constexpr uint8_t kLf = 10;
constexpr uint64_t kMaxBlock = 0x7FFFFFFF;
constexpr uint64_t kSniffBytes = 80;
constexpr uint64_t kMagicMinBlock = 7;

// A byte that no plain text file holds: a control code other than tab, line feed, form feed and
// carriage return, or anything past ASCII. Delete (127) passes, as the classic C table has it.
constexpr bool IsBinary(uint8_t b) { return b >= 128 || (b < 32 && b != 9 && b != 10 && b != 12 && b != 13); }

bool StartsWithNoCase(const uint8_t* block, uint64_t length, std::string_view magic) {
  if (length < magic.size()) return false;
  for (size_t i = 0; i < magic.size(); ++i) {
    uint8_t b = block[i];
    if (b >= 'A' && b <= 'Z') b = static_cast<uint8_t>(b + ('a' - 'A'));
    if (b != static_cast<uint8_t>(magic[i])) return false;
  }
  return true;
}

}  // namespace

bool RkCrLfConverter::ShouldConvert(const uint8_t* block, uint64_t length) {
  const uint64_t n = std::min(length, kSniffBytes);
  if (n >= kMagicMinBlock && (StartsWithNoCase(block, n, "%pdf-") || StartsWithNoCase(block, n, "{\\rtf1")))
    return false;
  return std::none_of(block, block + n, IsBinary);
}

void RkCrLfConverter::Convert(const uint8_t* block, uint64_t length) {
  uint64_t inserted = 0;
  uint8_t previous = previous_;
  for (uint64_t i = 0; i < length; ++i) {
    const uint8_t b = block[i];
    inserted += (b == kLf) ? previous != kCr : previous == kCr;
    previous = b;
  }
  converted_.resize(length + inserted);
  uint8_t* out = converted_.data();
  previous = previous_;
  for (uint64_t i = 0; i < length; ++i) {
    const uint8_t b = block[i];
    if (b == kLf && previous != kCr) *out++ = kCr;
    if (b != kLf && previous == kCr) *out++ = kLf;
    *out++ = b;
    previous = b;
  }
  previous_ = previous;
  writer_.writeBytes(converted_.data(), converted_.size());
}

void RkCrLfConverter::Run() {
  RK_ASSERT(input_ != nullptr);
  reader_.attach(input_);
  previous_ = 0;
  bool first = true;
  bool convert = false;
  for (;;) {
    const uint8_t* block;
    const uint64_t n = reader_.peek(block, kMaxBlock, 0);
    if (n == 0) break;
    if (first) {
      convert = ShouldConvert(block, n);
      first = false;
    }
    if (convert) {
      Convert(block, n);
    } else {
      writer_.writeBytes(block, n);
    }
    reader_.skip(n);
  }
  writer_.finishOutput();
}

}  // namespace RkPipeLib
