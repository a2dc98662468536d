// RkZipCHdr: the fixed part of one central directory record, fields in file order. The 64-bit
// working values start as copies of the 32-bit ones; the zip64 extra replaces them.
#pragma once

#include <cstddef>
#include <cstdint>

namespace RkArcLib {

class RkZipCursor;

class RkZipCHdr {
 public:
  static constexpr size_t kSize = 46;       // with the signature
  static constexpr size_t kFixedSize = 42;  // behind it

  uint16_t versionMadeBy = 0;
  uint16_t versionNeeded = 0;
  uint16_t flags = 0;
  uint16_t method = 0;
  uint16_t modTime = 0;
  uint16_t modDate = 0;
  uint32_t crc = 0;
  uint32_t compressedSize = 0;
  uint32_t originalSize = 0;
  uint16_t nameLength = 0;
  uint16_t extraLength = 0;
  uint16_t commentLength = 0;
  uint16_t startPart = 0;
  uint16_t internalAttributes = 0;
  uint32_t externalAttributes = 0;
  uint32_t localOffset = 0;

  uint64_t compressedSize64 = 0;
  uint64_t originalSize64 = 0;
  uint64_t localOffset64 = 0;
  uint32_t startPart32 = 0;

  // The 42 bytes behind the signature.
  void Parse(RkZipCursor& cursor);
  uint8_t HostSystem() const noexcept { return static_cast<uint8_t>(versionMadeBy >> 8); }
  // Name, extra and comment together.
  size_t VariableLength() const noexcept { return size_t{nameLength} + extraLength + commentLength; }
};

}  // namespace RkArcLib
