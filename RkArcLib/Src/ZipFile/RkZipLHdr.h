// RkZipLHdr: the local header in front of an entry's data, fields in file order. Only checked
// against the central record, which wins for everything else.
#pragma once

#include <cstddef>
#include <cstdint>

namespace RkArcLib {

class RkZipCursor;

class RkZipLHdr {
 public:
  static constexpr size_t kSize = 30;       // with the signature
  static constexpr size_t kFixedSize = 26;  // behind it

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

  // The 26 bytes behind the signature.
  void Parse(RkZipCursor& cursor);
};

}  // namespace RkArcLib
