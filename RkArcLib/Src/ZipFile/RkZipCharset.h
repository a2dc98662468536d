// Text decoding of zip names and comments. Zips from DOS and Windows hosts carry their text in the
// OEM or ANSI code page without saying which, so the bytes are judged by how they read.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "RkString.h"

namespace RkArcLib {

// The machine-wide choice of how zip text without a UTF-8 mark is read.
enum RkZipCharsetMode : int {
  kZipCharsetAuto = 0,
  kZipCharsetOem = 1,
  kZipCharsetAnsi = 2,
  kZipCharsetUtf8 = 3,
};

// Trailing NULs dropped; an inner NUL becomes `innerNul`.
std::string RkZipTrimText(std::string_view raw, char innerNul);
// The ANSI reading of the bytes unless the OEM one is as clean and only differs in letters.
RkLib::RkString RkZipOemDetect(std::string_view bytes);
// Host systems of the version-made-by field that decide how a name was written.
enum RkZipHost : uint8_t {
  kZipHostMsDos = 0,
  kZipHostUnix = 3,
  kZipHostHpfs = 6,
  kZipHostNtfs = 11,
};

// The flag that marks name and comment as UTF-8.
inline constexpr uint16_t kZipFlagUtf8 = 0x800;

// An entry name from its raw bytes: trimmed, then read by the UTF-8 flag, the host that wrote it and
// the mode. A name is never refused for bytes that do not decode.
RkLib::RkString RkZipDecodeName(std::string_view raw, uint16_t versionMadeBy, uint16_t flags,
                                int charsetMode);
// A comment of the archive or an entry: already trimmed bytes, read by the mode.
RkLib::RkString RkZipDecodeComment(std::string_view bytes, int charsetMode);

}  // namespace RkArcLib
