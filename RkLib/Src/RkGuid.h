// Random (version 4) GUIDs, and the temporary file names made from them.
#pragma once

#include <array>
#include <cstdint>

#include "RkFid.h"

namespace RkLib {

struct RkGuid {
  uint32_t data1 = 0;
  uint16_t data2 = 0;
  uint16_t data3 = 0;
  std::array<uint8_t, 8> data4{};

  static RkGuid New();
  // "XXXXXXXX-XXXX-XXXX-XXXX-XXXXXXXXXXXX", upper-case hexadecimal.
  RkString ToString() const;
  friend bool operator==(const RkGuid&, const RkGuid&) = default;
};

// folder\prefix<GUID><extension>: a name no other file has, for frames' and extractors'
// temporary files. The extension includes its dot (".tmp").
FidString RkTempName(const FidString& folder, std::u16string_view prefix, std::u16string_view extension);

}  // namespace RkLib
