#include "RkZipDirReader.h"

#include <algorithm>
#include <vector>

#include "RkError.h"
#include "RkReadBuf.h"
#include "RkSpanIn.h"
#include "RkZipCharset.h"
#include "RkZipCursor.h"

namespace RkArcLib {

using RkLib::RkFatalError;

namespace {

constexpr uint32_t kEncryptedCdirVersion = 62;
constexpr size_t kMaxFieldLength = 0xFFFF;


}  // namespace

RkZipDirReader::RkZipDirReader(std::shared_ptr<RkSpanIn> spanIn, RkZipReport report, int charsetMode)
    : spanIn_(std::move(spanIn)), report_(std::move(report)), charsetMode_(charsetMode) {
  RK_ASSERT(spanIn_);
}

RkZipDirReader::~RkZipDirReader() = default;

void RkZipDirReader::Report(uint32_t level, uint32_t messageId, int64_t number) {
  if (report_) report_(level, messageId, number);
}

void RkZipDirReader::Fail(uint32_t code, uint32_t messageId, int64_t number) {
  if (messageId != 0) Report(RkLib::kSeverityFatal, messageId, number);
  throw RkFatalError(code);
}

void RkZipDirReader::Locate() {
  endRecord_ = RkZipEHdr();
  z64Locator_ = RkZipZ64Loc();
  z64EndRecord_ = RkZipZ64EHdr();
  if (!FindEndRecord()) {
    spanIn_->Close();
    Fail(kZipErrNotZip, kZipMsgNoEndRecord);
  }
  if (FindZ64Locator() && !ReadZ64EndRecord()) {
    spanIn_->Close();
    throw RkFatalError(kZipErrNotZip);
  }
}

bool RkZipDirReader::FindEndRecord() {
  // Asking for the last part of a set on removable media comes with spanned archives.
  return ScanForEndRecord(std::min<uint64_t>(spanIn_->PartSize(), kTailScanSize));
}

bool RkZipDirReader::ScanForEndRecord(uint64_t n) {
  RK_ASSERT(n <= kTailScanSize);
  std::vector<uint8_t> tail(n);
  const uint64_t start = spanIn_->PartSize() - n;
  if (spanIn_->Seek(-1, static_cast<int64_t>(start)) < 0 ||
      spanIn_->Read(tail.data(), n) != static_cast<int64_t>(n)) {
    Fail(kZipErrRead, kZipMsgReadFailed);
  }
  if (n < RkZipEHdr::kSize) return false;
  size_t at = n - RkZipEHdr::kSize + 1;
  do {
    --at;
    if (tail[at] == 'P' && RkZipLe32(&tail[at]) == kZipSigEnd) break;
  } while (at > 0);
  if (RkZipLe32(&tail[at]) != kZipSigEnd) return false;

  RkZipCursor cursor(&tail[at + 4], n - at - 4);
  endRecord_.Parse(cursor);
  endRecord_.found = true;
  // The part that holds the end record is the last one, whatever the file is called.
  spanIn_->SetPartNumbers(static_cast<int64_t>(endRecord_.thisPart),
                          static_cast<int64_t>(endRecord_.thisPart));
  endRecord_.location = {spanIn_->CurrentPart(), start + at};

  const size_t afterRecord = n - at - RkZipEHdr::kSize;
  if (endRecord_.commentLength != 0 && afterRecord < endRecord_.commentLength) {
    Report(RkLib::kSeverityNone, kZipMsgCommentCut);
    endRecord_.commentLength = static_cast<uint16_t>(afterRecord);
  }
  const size_t commentStart = at + RkZipEHdr::kSize;
  if (endRecord_.commentLength != 0) {
    endRecord_.rawComment.assign(reinterpret_cast<const char*>(&tail[commentStart]),
                                 endRecord_.commentLength);
    endRecord_.comment = RkZipDecodeComment(RkZipTrimText(endRecord_.rawComment, ' '), charsetMode_);
  }
  const size_t commentEnd = commentStart + endRecord_.commentLength;
  if (n - commentEnd >= 4 && RkZipIsHeaderSignature(RkZipLe32(&tail[commentEnd]))) {
    Fail(kZipErrNotZip, kZipMsgNoEndRecord);
  }
  return true;
}

bool RkZipDirReader::FindZ64Locator() {
  const RkZipLocation& end = endRecord_.location;
  if (end.offset < RkZipZ64Loc::kSize || !endRecord_.HasAllOnesField()) return false;
  uint8_t bytes[RkZipZ64Loc::kSize];
  if (spanIn_->Seek(end.part, static_cast<int64_t>(end.offset - RkZipZ64Loc::kSize)) < 0 ||
      spanIn_->Read(bytes, sizeof bytes) != static_cast<int64_t>(sizeof bytes) ||
      RkZipLe32(bytes) != kZipSigZ64Locator) {
    return false;
  }
  RkZipCursor cursor(bytes + 4, sizeof bytes - 4);
  z64Locator_.Parse(cursor);
  z64Locator_.found = true;
  if (endRecord_.thisPartRead == RkZipEHdr::kAllOnes16) {
    const int64_t last = static_cast<int64_t>(z64Locator_.totalParts) - 1;
    spanIn_->SetPartNumbers(last, last);
  }
  return true;
}

bool RkZipDirReader::ReadZ64EndRecord() {
  if (z64Locator_.endRecordOffset > static_cast<uint64_t>(INT64_MAX)) return false;
  uint8_t head[12];
  if (spanIn_->Seek(z64Locator_.endRecordPart, static_cast<int64_t>(z64Locator_.endRecordOffset)) < 0 ||
      spanIn_->Read(head, sizeof head) != static_cast<int64_t>(sizeof head) || RkZipLe32(head) != kZipSigZ64End) {
    return false;
  }
  RkZipCursor sizeCursor(head + 4, 8);
  z64EndRecord_.recordSize = sizeCursor.U64();
  if (z64EndRecord_.recordSize < RkZipZ64EHdr::kMinRecordSize) return false;
  uint8_t fixed[RkZipZ64EHdr::kMinRecordSize];
  if (spanIn_->Read(fixed, sizeof fixed) != static_cast<int64_t>(sizeof fixed)) return false;
  RkZipCursor cursor(fixed, sizeof fixed);
  z64EndRecord_.Parse(cursor);

  const uint32_t version = z64EndRecord_.versionNeeded & 0xFF;
  if (version == kEncryptedCdirVersion) Fail(kZipErrEncryptedCdir, kZipMsgEncryptedCdir);
  if (version > kEncryptedCdirVersion) Fail(kZipErrNewerVersion, kZipMsgNewerVersion, version);
  if (z64EndRecord_.thisPart != z64Locator_.endRecordPart) return false;

  // Only the fields that overflowed take the zip64 value; the others stand even where they differ.
  RkZipEHdr& e = endRecord_;
  if (e.thisPartRead == RkZipEHdr::kAllOnes16) e.thisPart = z64Locator_.totalParts - uint64_t{1};
  if (e.cdirStartPartRead == RkZipEHdr::kAllOnes16) e.cdirStartPart = z64EndRecord_.cdirStartPart;
  if (e.entriesThisPartRead == RkZipEHdr::kAllOnes16) e.entriesThisPart = z64EndRecord_.entriesThisPart;
  if (e.entriesTotalRead == RkZipEHdr::kAllOnes16) e.entriesTotal = z64EndRecord_.entriesTotal;
  if (e.cdirSizeRead == RkZipEHdr::kAllOnes32) e.cdirSize = z64EndRecord_.cdirSize;
  if (e.cdirOffsetRead == RkZipEHdr::kAllOnes32) e.cdirOffset = z64EndRecord_.cdirOffset;
  e.isZip64 = true;
  return true;
}

void RkZipDirReader::FailRecord(uint32_t code, uint64_t index) {
  const int64_t number = static_cast<int64_t>(index) + 1;
  readBuf_.reset();
  spanIn_->Close();
  switch (code) {
    case kZipErrHeaderEof:
      Fail(code, kZipMsgShortRecord, number);
    case kZipErrNotZip:
      Fail(code, index == 0 ? kZipMsgFirstNotCentral : kZipMsgNotCentral, number);
    case kZipErrBadHeader:
      Fail(code, kZipMsgBadRecord, number);
    default:
      throw RkFatalError(code);
  }
}

bool RkZipDirReader::ReadExact(void* buffer, size_t count) { return readBuf_->Read(buffer, count) == count; }

void RkZipDirReader::ReadFixedHeader(uint64_t index, RkZipRecord& record) {
  record.location = {readBuf_->CurrentPart(), readBuf_->CurrentOffset()};
  recordLocation_ = record.location;
  uint8_t fixed[RkZipCHdr::kSize];
  if (!ReadExact(fixed, 4)) FailRecord(kZipErrHeaderEof, index);
  if (RkZipLe32(fixed) != kZipSigCentral) FailRecord(kZipErrNotZip, index);
  if (!ReadExact(fixed + 4, RkZipCHdr::kFixedSize)) FailRecord(kZipErrHeaderEof, index);
  RkZipCursor cursor(fixed + 4, RkZipCHdr::kFixedSize);
  record.header.Parse(cursor);
}

// Every record takes at least its fixed 46 bytes, so a count that cannot fit in the file is
// refused before anything is sized by it.
void RkZipDirReader::CheckCountClaim() {
  const uint64_t fits = spanIn_->PartSize() / RkZipCHdr::kSize;
  if (endRecord_.entriesTotal > fits) FailRecord(kZipErrHeaderEof, fits);
}

void RkZipDirReader::Walk(int64_t first, int64_t last, const Visitor& visit) {
  readBuf_ = std::make_unique<RkReadBuf>(spanIn_, kCdirBufferSize);
  if (endRecord_.cdirOffset > static_cast<uint64_t>(INT64_MAX) ||
      !readBuf_->Seek(static_cast<int64_t>(endRecord_.cdirStartPart), endRecord_.cdirOffset)) {
    readBuf_.reset();
    Fail(kZipErrCdirSeek, kZipMsgCdirSeek);
  }
  recordLocation_ = {readBuf_->CurrentPart(), readBuf_->CurrentOffset()};
  CheckCountClaim();
  scratch_.resize(3 * kMaxFieldLength);
  const uint64_t count = endRecord_.entriesTotal;
  const uint64_t from = first < 0 ? 0 : static_cast<uint64_t>(first);
  const uint64_t to = last < 0 ? count - 1 : static_cast<uint64_t>(last);  // count 0 gives no index
  for (uint64_t index = 0; index < count; ++index) {
    RkZipRecord record;
    readBuf_->NoteStart();
    ReadFixedHeader(index, record);
    const RkZipCHdr& h = record.header;
    if (index < from || index > to) {
      if (h.nameLength == 0) FailRecord(kZipErrNotZip, index);
      if (readBuf_->Read(nullptr, h.VariableLength()) != h.VariableLength())
        FailRecord(kZipErrHeaderEof, index);
      continue;
    }
    if (h.nameLength == 0) FailRecord(kZipErrBadHeader, index);
    char* name = scratch_.data();
    char* extra = name + h.nameLength;
    char* comment = extra + h.extraLength;
    if (!ReadExact(name, h.VariableLength())) FailRecord(kZipErrHeaderEof, index);
    record.name = std::string_view(name, h.nameLength);
    record.extra = std::string_view(extra, h.extraLength);
    record.comment = std::string_view(comment, h.commentLength);
    visit(index, record);
  }
  uint8_t after[4];
  recordLocation_ = {readBuf_->CurrentPart(), readBuf_->CurrentOffset()};
  if (!ReadExact(after, sizeof after)) FailRecord(kZipErrHeaderEof, count);
  readBuf_.reset();
  if (RkZipLe32(after) == kZipSigCentral) Fail(kZipErrTooManyRecords, kZipMsgTooManyRecords);
}

}  // namespace RkArcLib
