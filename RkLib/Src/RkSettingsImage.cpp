#include "RkSettingsImage.h"

#include <cstdio>
#include <utility>

namespace RkLib {

namespace {

constexpr std::string_view kUtf8Bom = "\xEF\xBB\xBF";
constexpr std::string_view kBlanks = " \t";

std::string_view Trim(std::string_view s) {
  size_t first = s.find_first_not_of(kBlanks);
  if (first == std::string_view::npos) return {};
  size_t last = s.find_last_not_of(kBlanks);
  return s.substr(first, last - first + 1);
}

bool StartsWithAsciiNoCase(std::string_view s, std::string_view prefix) {
  if (s.size() < prefix.size()) return false;
  for (size_t i = 0; i < prefix.size(); ++i) {
    char c = s[i];
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c + 32);
    if (c != prefix[i]) return false;
  }
  return true;
}

int HexDigit(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

// 1 to maxDigits hexadecimal digits and nothing else.
std::optional<uint64_t> ParseHex(std::string_view s, size_t maxDigits) {
  if (s.empty() || s.size() > maxDigits) return std::nullopt;
  uint64_t v = 0;
  for (char c : s) {
    int d = HexDigit(c);
    if (d < 0) return std::nullopt;
    v = (v << 4) | static_cast<uint64_t>(d);
  }
  return v;
}

// "01,ab, ff": each byte one or two digits; an empty list is an empty value.
std::optional<std::vector<uint8_t>> ParseHexBytes(std::string_view s) {
  std::vector<uint8_t> bytes;
  if (Trim(s).empty()) return bytes;
  while (true) {
    size_t comma = s.find(',');
    std::optional<uint64_t> b = ParseHex(Trim(s.substr(0, comma)), 2);
    if (!b) return std::nullopt;
    bytes.push_back(static_cast<uint8_t>(*b));
    if (comma == std::string_view::npos) return bytes;
    s.remove_prefix(comma + 1);
  }
}

// The one-letter escapes of quoted text, and what they stand for.
constexpr std::string_view kEscapeLetters = "\\\"nrt";
constexpr std::string_view kEscapedChars = "\\\"\n\r\t";

// A quoted string at the start of `s`. Escapes: \\ \" \n \r \t \xHH; a backslash before anything
// else stays a backslash, so a hand-written "C:\dir" survives. `end` receives the index after the
// closing quote.
std::optional<std::string> ParseQuoted(std::string_view s, size_t& end) {
  std::string out;
  for (size_t i = 1; i < s.size(); ++i) {
    char c = s[i];
    if (c == '"') {
      end = i + 1;
      return out;
    }
    if (c != '\\') {
      out += c;
      continue;
    }
    if (i + 1 >= s.size()) return std::nullopt;
    size_t letter = kEscapeLetters.find(s[i + 1]);
    if (letter != std::string_view::npos) {
      out += kEscapedChars[letter];
      i += 1;
    } else if (s[i + 1] == 'x' && i + 3 < s.size() && HexDigit(s[i + 2]) >= 0 && HexDigit(s[i + 3]) >= 0) {
      out += static_cast<char>(HexDigit(s[i + 2]) * 16 + HexDigit(s[i + 3]));
      i += 3;
    } else {
      out += c;
    }
  }
  return std::nullopt;
}

void AppendQuoted(std::string& out, std::string_view s) {
  out += '"';
  for (char c : s) {
    auto u = static_cast<unsigned char>(c);
    size_t escaped = kEscapedChars.find(c);
    if (escaped != std::string_view::npos) {
      out += '\\';
      out += kEscapeLetters[escaped];
    } else if (u < 0x20 || u == 0x7F) {
      char hex[8];
      std::snprintf(hex, sizeof hex, "\\x%02x", u);
      out += hex;
    } else {
      out += c;
    }
  }
  out += '"';
}

std::optional<RkRegValue> DecodeValue(std::string_view v) {
  if (!v.empty() && v.front() == '"') {
    size_t end = 0;
    std::optional<std::string> s = ParseQuoted(v, end);
    // `v` is trimmed, so text after the closing quote is junk and not a comment.
    if (!s || end != v.size()) return std::nullopt;
    return RkRegValue::String(RkString::FromUtf8(*s));
  }
  if (StartsWithAsciiNoCase(v, "dword:")) {
    std::optional<uint64_t> n = ParseHex(v.substr(6), 8);
    if (!n) return std::nullopt;
    return RkRegValue::Dword(static_cast<uint32_t>(*n));
  }
  if (StartsWithAsciiNoCase(v, "qword:")) {
    std::optional<uint64_t> n = ParseHex(v.substr(6), 16);
    if (!n) return std::nullopt;
    return RkRegValue::Qword(*n);
  }
  if (StartsWithAsciiNoCase(v, "hex:")) {
    std::optional<std::vector<uint8_t>> bytes = ParseHexBytes(v.substr(4));
    if (!bytes) return std::nullopt;
    return RkRegValue::Binary(std::move(*bytes));
  }
  return RkRegValue::String(RkString::FromUtf8(v));
}

bool EncodeValue(std::string& out, const RkRegValue& value) {
  char number[32];
  switch (value.type) {
    case RkRegValue::kString:
      AppendQuoted(out, value.text.toUtf8());
      return true;
    case RkRegValue::kDword:
      std::snprintf(number, sizeof number, "dword:%08x", static_cast<unsigned>(value.number & 0xFFFFFFFFu));
      out += number;
      return true;
    case RkRegValue::kQword:
      std::snprintf(number, sizeof number, "qword:%016llx", static_cast<unsigned long long>(value.number));
      out += number;
      return true;
    case RkRegValue::kBinary:
      out += "hex:";
      for (size_t i = 0; i < value.bytes.size(); ++i) {
        std::snprintf(number, sizeof number, i ? ",%02x" : "%02x", value.bytes[i]);
        out += number;
      }
      return true;
  }
  return false;
}

// A name goes unquoted when reading it back unquoted gives the same name.
bool NameNeedsQuotes(std::string_view name) {
  if (name.empty() || name == "@") return true;
  if (name.front() == ' ' || name.front() == '\t' || name.back() == ' ' || name.back() == '\t') return true;
  if (name.front() == '[' || name.front() == ';' || name.front() == '#') return true;
  for (char c : name) {
    auto u = static_cast<unsigned char>(c);
    if (c == '=' || c == '"' || u < 0x20 || u == 0x7F) return true;
  }
  return false;
}

void EncodeName(std::string& out, const RkString& name) {
  if (name.empty()) {
    out += '@';
    return;
  }
  std::string utf8 = name.toUtf8();
  if (NameNeedsQuotes(utf8)) {
    AppendQuoted(out, utf8);
  } else {
    out += utf8;
  }
}

struct Line {
  enum Kind { kIgnored, kSection, kBadSection, kEntry };
  Kind kind = kIgnored;
  std::string_view full;  // with its line end, for copying
  std::string_view body;  // without line end and surrounding blanks
};

// Splits on '\n' and drops a '\r' before it, so both line end conventions read alike.
class LineCursor {
 public:
  explicit LineCursor(std::string_view text) : rest_(text) {}

  bool Next(Line& line) {
    if (rest_.empty()) return false;
    size_t nl = rest_.find('\n');
    size_t fullLength = nl == std::string_view::npos ? rest_.size() : nl + 1;
    line.full = rest_.substr(0, fullLength);
    std::string_view content = rest_.substr(0, nl == std::string_view::npos ? rest_.size() : nl);
    if (!content.empty() && content.back() == '\r') content.remove_suffix(1);
    rest_.remove_prefix(fullLength);
    line.body = Trim(content);
    if (line.body.empty() || line.body.front() == ';' || line.body.front() == '#') {
      line.kind = Line::kIgnored;
    } else if (line.body.front() == '[') {
      size_t close = line.body.rfind(']');
      line.kind = close == std::string_view::npos ? Line::kBadSection : Line::kSection;
    } else {
      line.kind = Line::kEntry;
    }
    return true;
  }

 private:
  std::string_view rest_;
};

RkString SectionPath(const Line& line) {
  size_t close = line.body.rfind(']');
  return RkSettingsImage::NormalizeKeyPath(RkString::FromUtf8(line.body.substr(1, close - 1)).view());
}

enum class Relation { kOther, kEqual, kBelow };

Relation Relate(const RkString& section, const RkString& key) {
  if (section.equalsNoCase(key.view())) return Relation::kEqual;
  if (section.length() > key.length() && section[key.length()] == u'\\' &&
      RkCompareNoCase(section.view().substr(0, key.length()), key.view()) == 0) {
    return Relation::kBelow;
  }
  return Relation::kOther;
}

struct Entry {
  RkString name;
  std::string_view value;
};

// Store syntax: a quoted name with escapes, or the text before the first '='; "@" is the unnamed
// value.
std::optional<Entry> SplitStoreEntry(std::string_view body) {
  Entry entry;
  std::string_view rest;
  if (body.front() == '"') {
    size_t end = 0;
    std::optional<std::string> name = ParseQuoted(body, end);
    if (!name) return std::nullopt;
    rest = Trim(body.substr(end));
    if (rest.empty() || rest.front() != '=') return std::nullopt;
    entry.name = RkString::FromUtf8(*name);
  } else {
    size_t eq = body.find('=');
    if (eq == std::string_view::npos) return std::nullopt;
    std::string_view name = Trim(body.substr(0, eq));
    if (name.empty()) return std::nullopt;
    if (name != "@") entry.name = RkString::FromUtf8(name);
    rest = body.substr(eq);
  }
  entry.value = Trim(rest.substr(1));
  return entry;
}

bool IsNamed(const Line& line, const RkString& name) {
  std::optional<Entry> entry = SplitStoreEntry(line.body);
  return entry && entry->name.equalsNoCase(name.view());
}

// Lines are copied whole; a last line without its end gets one, so anything appended after it
// starts on a line of its own.
void CopyLine(std::string& out, const Line& line) {
  out += line.full;
  if (line.full.back() != '\n') out += '\n';
}

}  // namespace

RkSettingsImage::RkSettingsImage(std::string_view text) : text_(text) {
  hasBom_ = text_.starts_with(kUtf8Bom);
  if (hasBom_) text_.remove_prefix(kUtf8Bom.size());
}

// A rewrite keeps the mark: were it dropped, a second mark behind it would start to count as
// the first, and the first line would change its meaning.
std::string RkSettingsImage::StartRewrite(size_t extra) const {
  std::string out;
  out.reserve(text_.size() + kUtf8Bom.size() + extra);
  if (hasBom_) out += kUtf8Bom;
  return out;
}

RkString RkSettingsImage::NormalizeKeyPath(std::u16string_view keyPath) {
  auto isEdge = [](char16_t c) { return c == u' ' || c == u'\t' || c == u'\\'; };
  while (!keyPath.empty() && isEdge(keyPath.front())) keyPath.remove_prefix(1);
  while (!keyPath.empty() && isEdge(keyPath.back())) keyPath.remove_suffix(1);
  return RkString(keyPath);
}

bool RkSettingsImage::IsStorableKeyPath(const RkString& normalizedPath) {
  if (normalizedPath.empty()) return false;
  for (char16_t c : normalizedPath.view()) {
    if (c < 0x20 || c == 0x7F) return false;
  }
  return true;
}

std::optional<RkRegValue> RkSettingsImage::Find(const RkString& keyPath, const RkString& name) const {
  RkString key = NormalizeKeyPath(keyPath.view());
  if (key.empty()) return std::nullopt;
  LineCursor cursor(text_);
  Line line;
  bool inKey = false;
  while (cursor.Next(line)) {
    if (line.kind == Line::kSection || line.kind == Line::kBadSection) {
      inKey = line.kind == Line::kSection && Relate(SectionPath(line), key) == Relation::kEqual;
    } else if (line.kind == Line::kEntry && inKey) {
      std::optional<Entry> entry = SplitStoreEntry(line.body);
      if (!entry || !entry->name.equalsNoCase(name.view())) continue;
      if (std::optional<RkRegValue> value = DecodeValue(entry->value)) return value;
    }
  }
  return std::nullopt;
}

std::optional<RkString> RkSettingsImage::FindText(const RkString& section, const RkString& name) const {
  RkString wanted = NormalizeKeyPath(section.view());
  LineCursor cursor(text_);
  Line line;
  bool inSection = false;
  while (cursor.Next(line)) {
    if (line.kind == Line::kSection || line.kind == Line::kBadSection) {
      inSection = line.kind == Line::kSection && SectionPath(line).equalsNoCase(wanted.view());
      continue;
    }
    if (line.kind != Line::kEntry || !inSection) continue;
    size_t eq = line.body.find('=');
    if (eq == std::string_view::npos) continue;
    if (!RkString::FromUtf8(Trim(line.body.substr(0, eq))).equalsNoCase(name.view())) continue;
    std::string_view value = Trim(line.body.substr(eq + 1));
    if (value.size() >= 2 && (value.front() == '"' || value.front() == '\'') &&
        value.back() == value.front()) {
      value = value.substr(1, value.size() - 2);
    }
    return RkString::FromUtf8(value);
  }
  return std::nullopt;
}

bool RkSettingsImage::HasKey(const RkString& keyPath) const {
  RkString key = NormalizeKeyPath(keyPath.view());
  if (key.empty()) return false;
  LineCursor cursor(text_);
  Line line;
  while (cursor.Next(line)) {
    if (line.kind == Line::kSection && Relate(SectionPath(line), key) != Relation::kOther) return true;
  }
  return false;
}

std::optional<std::string> RkSettingsImage::WithValue(const RkString& keyPath, const RkString& name,
                                                      const RkRegValue& value) const {
  RkString key = NormalizeKeyPath(keyPath.view());
  if (!IsStorableKeyPath(key)) return std::nullopt;
  std::string entryLine;
  EncodeName(entryLine, name);
  entryLine += '=';
  if (!EncodeValue(entryLine, value)) return std::nullopt;
  entryLine += '\n';

  std::string out = StartRewrite(entryLine.size() + 3 * key.length() + 8);
  LineCursor cursor(text_);
  Line line;
  bool inKey = false;
  bool inFirstSection = false;
  bool sawSection = false;
  bool written = false;
  size_t insertAt = std::string::npos;
  while (cursor.Next(line)) {
    if (line.kind == Line::kSection || line.kind == Line::kBadSection) {
      inKey = line.kind == Line::kSection && Relate(SectionPath(line), key) == Relation::kEqual;
      inFirstSection = inKey && !sawSection;
      sawSection = sawSection || inKey;
    } else if (line.kind == Line::kEntry && inKey && IsNamed(line, name)) {
      if (!written) out += entryLine;
      written = true;
      if (inFirstSection) insertAt = out.size();
      continue;
    }
    CopyLine(out, line);
    if (inFirstSection && line.kind != Line::kIgnored) insertAt = out.size();
  }
  if (written) return out;
  if (insertAt != std::string::npos) {
    out.insert(insertAt, entryLine);
    return out;
  }
  if (out.size() > (hasBom_ ? kUtf8Bom.size() : 0)) out += '\n';
  out += '[';
  out += key.toUtf8();
  out += "]\n";
  out += entryLine;
  return out;
}

std::optional<std::string> RkSettingsImage::WithoutValue(const RkString& keyPath,
                                                         const RkString& name) const {
  RkString key = NormalizeKeyPath(keyPath.view());
  if (key.empty()) return std::nullopt;
  std::string out = StartRewrite(0);
  LineCursor cursor(text_);
  Line line;
  bool inKey = false;
  bool removed = false;
  while (cursor.Next(line)) {
    if (line.kind == Line::kSection || line.kind == Line::kBadSection) {
      inKey = line.kind == Line::kSection && Relate(SectionPath(line), key) == Relation::kEqual;
    } else if (line.kind == Line::kEntry && inKey && IsNamed(line, name)) {
      removed = true;
      continue;
    }
    CopyLine(out, line);
  }
  if (!removed) return std::nullopt;
  return out;
}

std::optional<std::string> RkSettingsImage::WithoutKey(const RkString& keyPath) const {
  RkString key = NormalizeKeyPath(keyPath.view());
  if (key.empty()) return std::nullopt;
  std::string out = StartRewrite(0);
  LineCursor cursor(text_);
  Line line;
  bool dropping = false;
  bool removed = false;
  while (cursor.Next(line)) {
    if (line.kind == Line::kSection || line.kind == Line::kBadSection) {
      dropping = line.kind == Line::kSection && Relate(SectionPath(line), key) != Relation::kOther;
      removed = removed || dropping;
    }
    if (!dropping) CopyLine(out, line);
  }
  if (!removed) return std::nullopt;
  return out;
}

}  // namespace RkLib
