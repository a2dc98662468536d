#include "RkReadBuf.h"

#include <algorithm>
#include <climits>
#include <cstring>

#include "RkError.h"
#include "RkSpanIn.h"

namespace RkArcLib {

RkReadBuf::RkReadBuf(std::shared_ptr<RkSpanIn> spanIn, size_t size)
    : spanIn_(std::move(spanIn)), size_(size) {
  RK_ASSERT(spanIn_ && size_ > 0);
}

bool RkReadBuf::Seek(int64_t part, uint64_t offset) {
  // Within the window only the pointer moves.
  if (windowValid_ && (part == -1 || part == CurrentPart()) && offset >= bufferOffset_ &&
      offset <= bufferOffset_ + readPos_ + remaining_) {
    const size_t pos = static_cast<size_t>(offset - bufferOffset_);
    remaining_ = readPos_ + remaining_ - pos;
    readPos_ = pos;
    eofHit_ = false;
    return true;
  }
  if (offset > static_cast<uint64_t>(INT64_MAX) || !spanIn_->IsOpen() || !spanIn_->CanReach(part)) return false;
  bufferOffset_ = offset;
  readPos_ = remaining_ = 0;
  eofHit_ = false;
  windowValid_ = true;
  return true;
}

void RkReadBuf::SetReadAhead(uint64_t bytes) { wanted_ = bytes; }

bool RkReadBuf::Refill() {
  if (buffer_.size() != size_) buffer_.resize(size_);
  bufferOffset_ += readPos_ + remaining_;
  readPos_ = remaining_ = 0;
  const size_t want = wanted_ ? static_cast<size_t>(std::min<uint64_t>(size_, wanted_)) : size_;
  // Positional, so that readers of other threads on the same span never move this one.
  const int64_t got = spanIn_->ReadAt(-1, bufferOffset_, buffer_.data(), want);
  if (got < 0) readFailed_ = true;
  if (got <= 0) {
    eofHit_ = true;
    return false;
  }
  remaining_ = static_cast<size_t>(got);
  wanted_ -= std::min<uint64_t>(wanted_, remaining_);
  return true;
}

size_t RkReadBuf::Read(void* buffer, size_t count) {
  size_t done = 0;
  auto* out = static_cast<uint8_t*>(buffer);
  while (done < count) {
    if (remaining_ == 0 && out && count - done >= size_ && !wanted_) {
      // A whole buffer's worth or more goes straight to the caller, not through the window.
      bufferOffset_ += readPos_;
      readPos_ = 0;
      const int64_t got = spanIn_->ReadAt(-1, bufferOffset_, out + done, count - done);
      if (got < 0) readFailed_ = true;
      if (got <= 0) {
        eofHit_ = true;
        break;
      }
      bufferOffset_ += static_cast<uint64_t>(got);
      done += static_cast<size_t>(got);
      continue;
    }
    if (remaining_ == 0 && !Refill()) break;
    const size_t n = std::min(count - done, remaining_);
    if (out) std::memcpy(out + done, buffer_.data() + readPos_, n);
    readPos_ += n;
    remaining_ -= n;
    done += n;
  }
  return done;
}

int64_t RkReadBuf::CurrentPart() const {
  const int64_t part = spanIn_->CurrentPart();
  return part < 0 ? 0 : part;
}

bool RkReadBuf::NextPart() {
  const int64_t last = spanIn_->LastPart();
  if (last >= 0 && CurrentPart() >= last) return false;
  return Seek(CurrentPart() + 1, 0);
}

void RkReadBuf::Reset() {
  bufferOffset_ = 0;
  readPos_ = remaining_ = 0;
  eofHit_ = readFailed_ = windowValid_ = false;
  wanted_ = 0;
  startPart_ = CurrentPart();
}

}  // namespace RkArcLib
