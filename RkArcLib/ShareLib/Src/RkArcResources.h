// Message texts of the archive library, by resource id. The host's resource file may replace them;
// these are the built-in English forms.
#pragma once

#include <cstdint>

#include "RkString.h"

namespace RkArcLib {

// Display names of the container types: type code + this.
inline constexpr uint32_t kArcTypeNameBase = 49999;
inline constexpr uint32_t kArcTypeNameUnknown = 50014;

// The text of a resource id; a generic line that names the id when there is no built-in text.
RkLib::RkString RkArcResourceText(uint32_t id);

}  // namespace RkArcLib
