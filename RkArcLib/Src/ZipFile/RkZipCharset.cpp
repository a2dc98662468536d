#include "RkZipCharset.h"

namespace RkArcLib {

using RkLib::RkString;

namespace {

// Letters and digits of the scripts that the two code pages can hold.
bool IsAlphanumeric(char16_t c) {
  if ((c >= u'0' && c <= u'9') || (c >= u'A' && c <= u'Z') || (c >= u'a' && c <= u'z')) return true;
  if (c >= 0xC0 && c <= 0x24F) return c != 0xD7 && c != 0xF7;
  return (c >= 0x386 && c <= 0x3FF) || (c >= 0x400 && c <= 0x4FF);
}

bool IsCleanChar(char16_t c) { return c < 128 || IsAlphanumeric(c) || c == 0x20AC; }

bool IsClean(const RkString& text) {
  for (char16_t c : text.view()) {
    if (!IsCleanChar(c)) return false;
  }
  return true;
}

}  // namespace

std::string RkZipTrimText(std::string_view raw, char innerNul) {
  const size_t end = raw.find_last_not_of('\0');
  std::string text(raw.substr(0, end == std::string_view::npos ? 0 : end + 1));
  for (char& c : text) {
    if (c == '\0') c = innerNul;
  }
  return text;
}

RkString RkZipOemDetect(std::string_view bytes) {
  RkString ansi = RkString::FromNarrow(bytes, RkLib::kNarrowAnsi);
  if (IsClean(ansi)) return ansi;
  RkString oem = RkString::FromNarrow(bytes, RkLib::kNarrowOem);
  if (!IsClean(oem) || oem.length() != ansi.length()) return ansi;
  for (size_t i = 0; i < oem.length(); ++i) {
    if (oem[i] != ansi[i] && !IsAlphanumeric(oem[i]) && oem[i] != 0x20AC) return ansi;
  }
  return oem;
}

RkString RkZipDecodeName(std::string_view raw, uint16_t versionMadeBy, uint16_t flags, int charsetMode) {
  // Names nearly never hold a NUL; only those that do pay for a trimmed copy.
  const bool hasNul = raw.find('\0') != std::string_view::npos;
  const std::string trimmed = hasNul ? RkZipTrimText(raw, '_') : std::string();
  const std::string_view text = hasNul ? std::string_view(trimmed) : raw;
  const auto host = static_cast<uint8_t>(versionMadeBy >> 8);
  const auto version = static_cast<uint8_t>(versionMadeBy & 0xFF);
  const bool utf8Flag = (flags & kZipFlagUtf8) != 0;
  if (charsetMode == kZipCharsetAuto && !utf8Flag && host != kZipHostUnix) {
    // Windows tools that wrote NTFS as the host kept DOS names in the OEM page up to version 5.0;
    // later ones may have used either page.
    if (host == kZipHostMsDos || host == kZipHostHpfs || (host == kZipHostNtfs && version == 50)) {
      return RkString::FromNarrow(text, RkLib::kNarrowOem);
    }
    if (host == kZipHostNtfs) return RkZipOemDetect(text);
    return RkString::FromNarrow(text, RkLib::kNarrowAnsi);
  }
  if (charsetMode == kZipCharsetUtf8 || utf8Flag || host == kZipHostUnix) return RkString::FromUtf8(text);
  return RkString::FromNarrow(text, charsetMode == kZipCharsetOem ? RkLib::kNarrowOem : RkLib::kNarrowAnsi);
}

RkString RkZipDecodeComment(std::string_view bytes, int charsetMode) {
  switch (charsetMode) {
    case kZipCharsetOem:
      return RkString::FromNarrow(bytes, RkLib::kNarrowOem);
    case kZipCharsetAnsi:
      return RkString::FromNarrow(bytes, RkLib::kNarrowAnsi);
    case kZipCharsetUtf8:
      return RkString::FromUtf8(bytes);
    default:
      return RkZipOemDetect(bytes);
  }
}

}  // namespace RkArcLib
