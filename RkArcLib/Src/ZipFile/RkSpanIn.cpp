#include "RkSpanIn.h"

#include <algorithm>
#include <cstdint>

namespace RkArcLib {

using RkLib::FidString;
using RkLib::RkSeekFrom;

bool RkSpanIn::Open(const FidString& path, uint16_t bufferSize, uint16_t shareMode) {
  Close();
  bufferSize_ = bufferSize;
  shareMode_ = shareMode;
  currentPart_ = -1;
  lastPart_ = -1;
  partSize_ = 0;
  archiveName_ = path;
  isZipx_ = path.HasExtension(u"zipx");
  if (path.empty() || !file_.Open(path, "rb")) return false;
  const int64_t size = file_.GetSize();
  if (size < 0) {
    file_.Close();
    return false;
  }
  partSize_ = static_cast<uint64_t>(size);
  return true;
}

void RkSpanIn::Close() { file_.Close(); }

void RkSpanIn::SetPartNumbers(int64_t current, int64_t last) {
  if (current != -1) currentPart_ = current;
  if (last != -1) lastPart_ = last;
}

// A lone file (last part 0) is every part there is: writers that put other numbers in the part
// fields of a single file are common, and their entries are read all the same.
bool RkSpanIn::CanReach(int64_t part) const {
  return lastPart_ == 0 || part == -1 || part == currentPart_ || currentPart_ == -1;
}

int64_t RkSpanIn::Seek(int64_t part, int64_t offset, RkSeekFrom origin) {
  if (!file_.IsOpen() || !CanReach(part)) return -1;
  int64_t base = 0;
  if (origin == RkSeekFrom::kCurrent) base = file_.Tell();
  if (origin == RkSeekFrom::kEnd) base = static_cast<int64_t>(partSize_);
  if (base < 0 || offset < -base) return -1;
  const int64_t target = base + offset;
  return file_.Seek(target) ? target : -1;
}

int64_t RkSpanIn::Read(void* buffer, size_t count) {
  if (!file_.IsOpen()) return -1;
  const size_t got = file_.Read(buffer, count);
  if (got < count && file_.LastError() != 0) return -1;
  return static_cast<int64_t>(got);
}

int64_t RkSpanIn::ReadAt(int64_t part, uint64_t offset, void* buffer, size_t count) const {
  if (!file_.IsOpen() || !CanReach(part) || offset > static_cast<uint64_t>(INT64_MAX)) return -1;
  if (offset >= partSize_) return 0;
  count = static_cast<size_t>(std::min<uint64_t>(count, partSize_ - offset));
  const size_t got = file_.ReadAt(buffer, count, static_cast<int64_t>(offset));
  // The part's size is known, so a short count is a failure, not its end.
  return got == count ? static_cast<int64_t>(got) : -1;
}

}  // namespace RkArcLib
