// The local headers of a zip: read when an entry is extracted, checked against the central
// record. A damaged local header costs its entry, never the archive.
#include <cstring>

#include "RkArcCallback.h"
#include "RkError.h"
#include "RkReadBuf.h"
#include "RkSpanIn.h"
#include "RkZipCursor.h"
#include "RkZipEntry.h"
#include "RkZipExtra.h"
#include "RkZipFile.h"

namespace RkArcLib {

using RkLib::RkSevereError;
using RkLib::RkString;

namespace {

constexpr size_t kDuplicateRecordSize = 20;
constexpr uint8_t kDuplicateSourceKind = 3;
// The flag bits that describe the data itself: encryption, method options, descriptor, strong
// encryption and UTF-8 names.
constexpr uint16_t kComparedFlags = 0x087F;


RkString Hex(uint64_t value) { return RkLib::RkFormatUnsigned(u"%llX", value); }
RkString Decimal(uint64_t value) { return RkLib::RkFormatUnsigned(u"%llu", value); }

}  // namespace

void RkZipFile::FailLocal(const RkZipEntry& entry, uint32_t code) {
  uint32_t message = 0;
  switch (code) {
    case kZipErrLocalShort:
      message = kZipMsgLocalShort;
      break;
    case kZipErrLocalUnreadable:
      message = kZipMsgLocalUnreadable;
      break;
    case kZipErrLocalSignature:
      message = kZipMsgLocalNotFound;
      break;
    case kZipErrLocalSeek:
      message = kZipMsgLocalSeek;
      break;
    default:
      break;
  }
  if (message != 0) Report(RkLib::kSeveritySevere, MessageText(message, {entry.name}));
  throw RkSevereError(code);
}

void RkZipFile::ReadLocalRecord(const RkZipEntry& entry, RkReadBuf& in, RkZipLHdr& header, std::string& extra) {
  const auto failShort = [&] { FailLocal(entry, in.ReadFailed() ? kZipErrLocalUnreadable : kZipErrLocalShort); };
  uint8_t fixed[RkZipLHdr::kSize];
  if (in.Read(fixed, 4) != 4) failShort();
  if (RkZipLe32(fixed) != kZipSigLocal) FailLocal(entry, kZipErrLocalSignature);
  if (in.Read(fixed + 4, RkZipLHdr::kFixedSize) != RkZipLHdr::kFixedSize) failShort();
  RkZipCursor cursor(fixed + 4, RkZipLHdr::kFixedSize);
  header.Parse(cursor);
  // The name is the central one's; only the extra is kept.
  extra.assign(header.extraLength, '\0');
  if (in.Read(nullptr, header.nameLength) != header.nameLength || in.Read(extra.data(), extra.size()) != extra.size())
    failShort();
}

void RkZipFile::ReadLocalHeader(RkZipEntry& entry, RkReadBuf& in) {
  const auto seek = [&](const RkZipEntry& at) {
    if (at.localOffset64 > static_cast<uint64_t>(INT64_MAX) || !in.Seek(at.startPart32, at.localOffset64))
      FailLocal(entry, kZipErrLocalSeek);
  };
  seek(entry);
  RkZipEntryDetail& detail = entry.Detail();
  detail.localHeader = std::make_unique<RkZipLHdr>();
  ReadLocalRecord(entry, in, *detail.localHeader, detail.localExtra);

  if (entry.HasReference() && entry.EffectiveMethod() == kZipMethodDuplicate) {
    // The duplicate's own record, then the target's local header, which its data follows.
    detail.duplicateRecord.assign(kDuplicateRecordSize, '\0');
    if (in.Read(detail.duplicateRecord.data(), kDuplicateRecordSize) != kDuplicateRecordSize)
      FailLocal(entry, kZipErrLocalShort);
    detail.sourceKind = kDuplicateSourceKind;
    const RkZipEntry* target = detail.target;
    if (!target) FailLocal(entry, kZipErrNoDuplicateTarget);
    seek(*target);
    RkZipLHdr targetHeader;
    std::string targetExtra;
    ReadLocalRecord(entry, in, targetHeader, targetExtra);
  }
  CheckLocalHeader(entry, false);
}

bool RkZipFile::ReadLocalHeader(int64_t index, RkState& state) {
  state.Clear();
  RkZipEntry* entry = index >= 0 && static_cast<uint64_t>(index) < entries_.size()
                          ? entries_[static_cast<size_t>(index)].get()
                          : nullptr;
  if (!loaded_ || !entry) {
    state.Set(!loaded_ ? kArcNotLoaded : kArcSlotNotLoaded, RkLib::kSeverityFatal);
    return false;
  }
  try {
    if (!spanIn_) spanIn_ = std::make_shared<RkSpanIn>();
    if (!spanIn_->IsOpen() && !spanIn_->Open(GetFileName(), 32768, 64)) FailLocal(*entry, kZipErrLocalSeek);
    // A header with its name and extra is at most 30 + 2 * 65535 bytes.
    RkReadBuf in(spanIn_, 0x10000);
    ReadLocalHeader(*entry, in);
  } catch (const RkLib::RkError& e) {
    state.Set(e);
  }
  CloseFiles();
  return state.severity == 0;
}

void RkZipFile::CheckLocalHeader(const RkZipEntry& entry, bool ignoreCompressedSize) {
  const RkZipEntryDetail* detail = entry.detail();
  RK_ASSERT(detail && detail->localHeader);
  const RkZipLHdr& local = *detail->localHeader;
  const auto fail = [&](uint32_t code, uint32_t message, const RkString& central, const RkString& found) {
    Report(RkLib::kSeveritySevere, MessageText(message, {central, found, entry.name}));
    throw RkSevereError(code);
  };

  if ((entry.flags & kZipFlagDescriptor) == 0) {
    if (local.crc != entry.crc) fail(kZipErrLocalCrc, kZipMsgLocalCrc, Hex(entry.crc), Hex(local.crc));
    uint64_t packed = local.compressedSize;
    uint64_t size = local.originalSize;
    // Sizes that do not fit 32 bits are in the local zip64 record, which may stand anywhere in the
    // local extra (some writers put their time records first), size first, then packed size.
    if (size == 0xFFFFFFFF || packed == 0xFFFFFFFF) {
      const std::string& extra = detail->localExtra;
      for (size_t at = 0; at + 4 <= extra.size();) {
        const auto* record = reinterpret_cast<const uint8_t*>(extra.data()) + at;
        const uint16_t id = RkZipLe16(record);
        const size_t length = RkZipLe16(record + 2);
        if (at + 4 + length > extra.size()) break;
        if (id == kExtraZip64) {
          RkZipCursor cursor(record + 4, length);
          if (size == 0xFFFFFFFF && cursor.Remaining() >= 8) size = cursor.U64();
          if (packed == 0xFFFFFFFF && cursor.Remaining() >= 8) packed = cursor.U64();
          break;
        }
        at += 4 + length;
      }
    }
    if (!ignoreCompressedSize && packed != entry.compressedSize64) {
      fail(kZipErrLocalPacked, kZipMsgLocalPacked, Decimal(entry.compressedSize64), Decimal(packed));
    }
    if (size != entry.originalSize64) {
      fail(kZipErrLocalSize, kZipMsgLocalSize, Decimal(entry.originalSize64), Decimal(size));
    }
  }
  if (local.method != entry.method) fail(kZipErrLocalMethod, kZipMsgLocalMethod, Decimal(entry.method), Decimal(local.method));
  if ((local.flags & kComparedFlags) != (entry.flags & kComparedFlags)) {
    fail(kZipErrLocalFlags, kZipMsgLocalFlags, Hex(entry.flags), Hex(local.flags));
  }
}

}  // namespace RkArcLib
