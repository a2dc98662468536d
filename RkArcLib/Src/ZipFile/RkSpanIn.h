// RkSpanIn: the archive's parts seen as one stream addressed by (part, offset).
//
// This is the single-file form: the archive is its own last part, part numbers given to Seek are
// ignored once the last part is known to be 0, and a read never crosses into another file.
#pragma once

#include <cstddef>
#include <cstdint>

#include "RkFileIO.h"
#include "RkString.h"

namespace RkArcLib {

class RkSpanIn {
 public:
  RkSpanIn() = default;
  RkSpanIn(const RkSpanIn&) = delete;
  RkSpanIn& operator=(const RkSpanIn&) = delete;

  // Opens the part that the path names; both part numbers become unknown. false on failure.
  bool Open(const RkLib::FidString& path, uint16_t bufferSize, uint16_t shareMode);
  void Close();
  bool IsOpen() const { return file_.IsOpen(); }

  // Whether Seek and ReadAt can get to `part` (-1: the current one).
  bool CanReach(int64_t part) const;
  // -1 leaves a number as it is.
  void SetPartNumbers(int64_t current, int64_t last);
  int64_t CurrentPart() const { return currentPart_; }
  int64_t LastPart() const { return lastPart_; }
  uint64_t PartSize() const { return partSize_; }
  const RkLib::RkString& ArchiveName() const { return archiveName_; }
  bool IsZipx() const { return isZipx_; }

  // The new position in the part, or -1: a position before the start, or a part that this
  // form cannot reach.
  int64_t Seek(int64_t part, int64_t offset, RkLib::RkSeekFrom origin = RkLib::RkSeekFrom::kBegin);
  int64_t Tell() const { return file_.Tell(); }
  // Bytes read, short at the end of the part; -1 on a read failure.
  int64_t Read(void* buffer, size_t count);
  // The same at a place of its own, leaving the position alone: readers on several threads
  // share one span through it. Short only at the end of the part.
  int64_t ReadAt(int64_t part, uint64_t offset, void* buffer, size_t count) const;

 private:

  RkLib::RkFileIO file_;
  uint16_t bufferSize_ = 0;
  uint16_t shareMode_ = 0;
  int64_t currentPart_ = -1;
  int64_t lastPart_ = -1;
  uint64_t partSize_ = 0;
  bool isZipx_ = false;
  RkLib::RkString archiveName_;
};

}  // namespace RkArcLib
