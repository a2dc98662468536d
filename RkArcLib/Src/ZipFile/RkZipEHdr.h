// The records at the end of a zip: the end of central directory record, and the zip64 locator and
// end record that stand in for its fields when they overflow.
#pragma once

#include <cstdint>
#include <string>

#include "RkString.h"

namespace RkArcLib {

class RkZipCursor;

// Signatures as little-endian 32-bit values.
enum RkZipSignature : uint32_t {
  kZipSigCentral = 0x02014B50,
  kZipSigDigitalSignature = 0x05054B50,
  kZipSigLocal = 0x04034B50,
  kZipSigEnd = 0x06054B50,
  kZipSigExtendedLocal = 0x08074B50,
  kZipSigZ64End = 0x06064B50,
  kZipSigZ64Locator = 0x07064B50,
};

// A header signature where none may stand, which marks a file as damaged.
bool RkZipIsHeaderSignature(uint32_t value) noexcept;

struct RkZipLocation {
  int64_t part = 0;
  uint64_t offset = 0;
};

class RkZipEHdr {
 public:
  static constexpr size_t kSize = 22;  // with the signature
  static constexpr uint16_t kAllOnes16 = 0xFFFF;
  static constexpr uint32_t kAllOnes32 = 0xFFFFFFFF;

  // As read.
  uint16_t thisPartRead = 0;
  uint16_t cdirStartPartRead = 0;
  uint16_t entriesThisPartRead = 0;
  uint16_t entriesTotalRead = 0;
  uint32_t cdirSizeRead = 0;
  uint32_t cdirOffsetRead = 0;
  uint16_t commentLength = 0;
  // Working copies, which the zip64 record overrides.
  uint64_t thisPart = 0;
  uint64_t cdirStartPart = 0;
  uint64_t entriesThisPart = 0;
  uint64_t entriesTotal = 0;
  uint64_t cdirSize = 0;
  uint64_t cdirOffset = 0;

  RkZipLocation location;
  bool isZip64 = false;
  bool found = false;
  std::string rawComment;
  RkLib::RkString comment;

  // The 18 bytes behind the signature.
  void Parse(RkZipCursor& cursor);
  // Any field that holds its all-ones value, which says that the zip64 record has the real one.
  bool HasAllOnesField() const noexcept;
};

class RkZipZ64Loc {
 public:
  static constexpr size_t kSize = 20;

  uint32_t endRecordPart = 0;
  uint64_t endRecordOffset = 0;
  uint32_t totalParts = 0;
  bool found = false;

  // The 16 bytes behind the signature.
  void Parse(RkZipCursor& cursor);
};

class RkZipZ64EHdr {
 public:
  static constexpr uint64_t kMinRecordSize = 44;

  uint64_t recordSize = 0;
  uint16_t versionMadeBy = 0;
  uint16_t versionNeeded = 0;
  uint32_t thisPart = 0;
  uint32_t cdirStartPart = 0;
  uint64_t entriesThisPart = 0;
  uint64_t entriesTotal = 0;
  uint64_t cdirSize = 0;
  uint64_t cdirOffset = 0;

  // The 44 fixed bytes behind the size field.
  void Parse(RkZipCursor& cursor);
};

}  // namespace RkArcLib
