// RkArcItem: one entry of any container, as the viewer lists it. A format fills what it knows;
// the rest keeps the defaults below, all ones for sizes and offsets it cannot tell.
#pragma once

#include <cstdint>
#include <optional>

#include "RkArcMethod.h"
#include "RkString.h"
#include "RkTimeStamp.h"

namespace RkArcLib {

struct RkArcAttributes {
  bool archive = false;
  bool directory = false;
  bool hidden = false;
  bool system = false;
  bool readOnly = false;
  bool symbolicLink = false;
  uint8_t raw = 0;
};

inline constexpr uint64_t kArcUnknownSize = ~uint64_t{0};

class RkArcItem {
 public:
  RkLib::RkString name;  // '\' separates the path parts
  RkLib::RkTimeStamp modified;
  RkLib::RkTimeStamp created;
  RkArcAttributes attributes;
  uint64_t originalSize = kArcUnknownSize;
  uint64_t compressedSize = kArcUnknownSize;
  uint64_t offset = kArcUnknownSize;
  uint64_t headerSize = kArcUnknownSize;
  uint32_t crc = 0;
  RkLib::RkString comment;
  RkArcMethod method = RkArcMethod::kNone;
  uint32_t encryption = 0;
  uint8_t hostSystem = 0;
  uint8_t hostVersion = 0;
  uint8_t neededSystem = 0;
  uint8_t neededVersion = 0;
  uint32_t startPart = 0;
  bool isLabel = false;
  std::optional<int64_t> duplicateOf;
  std::optional<int64_t> duplicateCount;
};

}  // namespace RkArcLib
