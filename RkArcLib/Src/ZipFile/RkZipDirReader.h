// RkZipDirReader: finds the end of a zip and walks its central directory.
//
// The tail is scanned once for the last end record; the zip64 locator and record are followed
// only when the end record has a field at its all-ones value. The walk reads every record through
// one large buffer and hands the ones inside the wanted range to the caller, which builds its
// entries from them. Damage throws RkFatalError with the code the caller shows; the message that
// belongs to it has gone to the report function first.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>

#include "RkZipCHdr.h"
#include "RkZipEHdr.h"

namespace RkArcLib {

class RkReadBuf;
class RkSpanIn;

// Codes of the zip reader.
enum RkZipCode : uint32_t {
  kZipErrCdirSeek = 11,
  kZipErrRead = 12,
  kZipErrNotZip = 200,
  kZipErrEncryptedCdir = 201,
  kZipErrNewerVersion = 202,
  kZipErrBadHeader = 203,
  kZipErrTooManyRecords = 204,
};

// Message ids of the zip reader.
enum RkZipMessage : uint32_t {
  kZipMsgNoEndRecord = 50327,
  kZipMsgReadFailed = 50328,
  kZipMsgCdirSeek = 50371,
  kZipMsgTooManyRecords = 50372,
  kZipMsgFirstNotCentral = 50373,
  kZipMsgNotCentral = 50374,
  kZipMsgShortRecord = 50375,
  kZipMsgBadRecord = 50376,
  kZipMsgEncryptedCdir = 50476,
  kZipMsgNewerVersion = 50477,
  kZipMsgCommentCut = 50494,
};

// level (0 information, 10 warning, 40 error), message id, and the number it names (an entry's
// 1-based number or a version), -1 for none.
using RkZipReport = std::function<void(uint32_t level, uint32_t messageId, int64_t number)>;

struct RkZipRecord {
  RkZipCHdr header;
  RkZipLocation location;  // of the signature
  std::string_view name;
  std::string_view extra;
  std::string_view comment;
};

class RkZipDirReader {
 public:
  // The end record need not lie further from the end than this; the comment that can precede it is
  // held to the same allowance.
  static constexpr uint64_t kTailScanSize = 70096;
  static constexpr size_t kCdirBufferSize = 0x100000;

  RkZipDirReader(std::shared_ptr<RkSpanIn> spanIn, RkZipReport report, int charsetMode);
  ~RkZipDirReader();
  RkZipDirReader(const RkZipDirReader&) = delete;
  RkZipDirReader& operator=(const RkZipDirReader&) = delete;

  // The end record and, where it points to them, the zip64 records. Throws when the file is no zip.
  void Locate();
  bool FindEndRecord();
  bool ScanForEndRecord(uint64_t n);
  bool FindZ64Locator();
  bool ReadZ64EndRecord();

  // Reads every record and passes those with first <= index <= last to `visit`; last -1 means to
  // the end, first -1 from 0.
  using Visitor = std::function<void(uint64_t index, const RkZipRecord& record)>;
  void Walk(int64_t first, int64_t last, const Visitor& visit);

  const RkZipEHdr& EndRecord() const { return endRecord_; }
  const RkZipZ64Loc& Z64Locator() const { return z64Locator_; }
  const RkZipZ64EHdr& Z64EndRecord() const { return z64EndRecord_; }
  // Where the record that the walk reads now, or failed on, begins.
  const RkZipLocation& RecordLocation() const { return recordLocation_; }

 private:
  [[noreturn]] void Fail(uint32_t code, uint32_t messageId, int64_t number = -1);
  [[noreturn]] void FailRecord(uint32_t code, uint64_t index);
  // Reads exactly `count` bytes at the reader; false when fewer came.
  bool ReadExact(void* buffer, size_t count);
  void ReadFixedHeader(uint64_t index, RkZipRecord& record);
  void CheckCountClaim();
  void Report(uint32_t level, uint32_t messageId, int64_t number = -1);

  std::shared_ptr<RkSpanIn> spanIn_;
  RkZipReport report_;
  int charsetMode_;
  RkZipEHdr endRecord_;
  RkZipZ64Loc z64Locator_;
  RkZipZ64EHdr z64EndRecord_;
  std::unique_ptr<RkReadBuf> readBuf_;
  std::string scratch_;
  RkZipLocation recordLocation_;
};

}  // namespace RkArcLib
