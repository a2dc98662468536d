// RkReadBuf: a large buffer in front of RkSpanIn, so that the central directory costs one system
// call per buffer and the records are copied out of memory.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

namespace RkArcLib {

class RkSpanIn;

class RkReadBuf {
 public:
  static constexpr size_t kDefaultSize = 0x100000;

  explicit RkReadBuf(std::shared_ptr<RkSpanIn> spanIn, size_t size = kDefaultSize);

  // Positions only: the reads are positional, so that readers of several threads can share one
  // span.
  bool Seek(int64_t part, uint64_t offset);
  // The reads from here need about `bytes` bytes: refills read no more than that until they have
  // come, so that a small entry does not cost a whole buffer. 0: whole buffers.
  void SetReadAhead(uint64_t bytes);
  // Delivers up to `count` bytes; a null buffer skips them. Short at the end of the data or after a
  // read failure (ReadFailed tells which).
  size_t Read(void* buffer, size_t count);
  int64_t CurrentPart() const;
  uint64_t CurrentOffset() const { return bufferOffset_ + readPos_; }
  // The reads since NoteStart ended in another part than the one they began in.
  bool CrossedPart() const { return CurrentPart() != startPart_; }
  void NoteStart() { startPart_ = CurrentPart(); }
  bool NextPart();
  void Reset();
  bool ReadFailed() const { return readFailed_; }
  bool EofHit() const { return eofHit_; }

 private:
  bool Refill();

  std::shared_ptr<RkSpanIn> spanIn_;
  size_t size_;
  std::vector<uint8_t> buffer_;
  size_t readPos_ = 0;
  size_t remaining_ = 0;
  int64_t startPart_ = 0;
  bool eofHit_ = false;
  bool readFailed_ = false;
  bool windowValid_ = false;
  uint64_t wanted_ = 0;   // the span's position is the window's end
  uint64_t bufferOffset_ = 0;  // offset in the part of buffer_[0]
};

}  // namespace RkArcLib
