// The string body's behaviour: narrow forms, formatting and case folding of RkString.
#include <iconv.h>
#include <locale.h>
#include <wctype.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <mutex>
#include <vector>

#include "RkBuffer.h"
#include "RkError.h"
#include "RkString.h"

namespace RkLib {

namespace {

// ---------------------------------------------------------------------------------------------
// Single-byte code pages. The upper halves are read from iconv once; a byte that the code page
// leaves undefined (five in CP1252) keeps its value as the code point, as the Windows
// converters do, so that every byte string survives a round trip.

struct RkCodePage {
  std::array<char16_t, 256> toWide{};
  // Upper half sorted by code point, for encoding by binary search.
  std::vector<std::pair<char16_t, uint8_t>> fromWide;

  explicit RkCodePage(const char* iconvName) {
    for (int b = 0; b < 256; ++b) toWide[b] = static_cast<char16_t>(b);
    iconv_t cd = iconv_open("UTF-16LE", iconvName);
    RK_API_CHECK(cd != reinterpret_cast<iconv_t>(-1));
    for (int b = 0x80; b < 256; ++b) {
      char in = static_cast<char>(b);
      unsigned char out[4];
      char* inp = &in;
      char* outp = reinterpret_cast<char*>(out);
      size_t inLeft = 1, outLeft = sizeof out;
      iconv(cd, nullptr, nullptr, nullptr, nullptr);
      if (iconv(cd, &inp, &inLeft, &outp, &outLeft) != static_cast<size_t>(-1) && outLeft == 2)
        toWide[b] = static_cast<char16_t>(out[0] | (out[1] << 8));
    }
    iconv_close(cd);
    for (int b = 0x80; b < 256; ++b) fromWide.emplace_back(toWide[b], static_cast<uint8_t>(b));
    std::sort(fromWide.begin(), fromWide.end());
  }

  // 0 means "not in the code page"; NUL itself is handled by the ASCII path.
  uint8_t encode(char16_t c) const {
    if (c < 0x80) return static_cast<uint8_t>(c);
    auto it = std::lower_bound(fromWide.begin(), fromWide.end(), std::pair<char16_t, uint8_t>(c, 0));
    return (it != fromWide.end() && it->first == c) ? it->second : 0;
  }
};

const RkCodePage& CodePage(int selector) {
  static const RkCodePage oem("CP437");
  static const RkCodePage ansi("CP1252");
  return selector == kNarrowOem ? oem : ansi;
}

void CheckSelector(int selector) {
  RK_ASSERT(selector == kNarrowOem || selector == kNarrowAnsi || selector == kNarrowUtf8);
}

bool IsHighSurrogate(char16_t c) { return c >= 0xD800 && c <= 0xDBFF; }
bool IsLowSurrogate(char16_t c) { return c >= 0xDC00 && c <= 0xDFFF; }

// Walks UTF-16 as code points; an unpaired surrogate comes out as U+FFFD.
template <typename Sink>
void ForEachCodePoint(std::u16string_view s, Sink&& sink) {
  for (size_t i = 0; i < s.size(); ++i) {
    char32_t c = s[i];
    if (IsHighSurrogate(s[i]) && i + 1 < s.size() && IsLowSurrogate(s[i + 1])) {
      c = 0x10000 + ((char32_t(s[i]) - 0xD800) << 10) + (char32_t(s[i + 1]) - 0xDC00);
      ++i;
    } else if (IsHighSurrogate(s[i]) || IsLowSurrogate(s[i])) {
      c = 0xFFFD;
    }
    sink(c);
  }
}

void AppendUtf16(std::u16string& out, char32_t c) {
  if (c < 0x10000) {
    out += static_cast<char16_t>(c);
  } else {
    c -= 0x10000;
    out += static_cast<char16_t>(0xD800 + (c >> 10));
    out += static_cast<char16_t>(0xDC00 + (c & 0x3FF));
  }
}

// Strict UTF-8 (no overlongs, no surrogates, nothing above U+10FFFF). A bad sequence gives one
// U+FFFD for each maximal subpart, the Unicode recommended practice, so the count of
// replacements does not depend on where the decoder resynchronises.
std::u16string DecodeUtf8(std::string_view s) {
  // Most text is ASCII throughout, or for a long stretch first: that part widens in a plain loop.
  size_t i = 0;
  while (i < s.size() && static_cast<unsigned char>(s[i]) < 0x80) ++i;
  std::u16string out(i, u'\0');
  for (size_t k = 0; k < i; ++k) out[k] = static_cast<unsigned char>(s[k]);
  if (i == s.size()) return out;
  out.reserve(s.size());
  while (i < s.size()) {
    const unsigned char b = static_cast<unsigned char>(s[i]);
    if (b < 0x80) {
      out += static_cast<char16_t>(b);
      ++i;
      continue;
    }
    int extra;
    char32_t c;
    unsigned char lo = 0x80, hi = 0xBF;  // allowed range of the second byte
    if (b >= 0xC2 && b <= 0xDF) {
      extra = 1, c = b & 0x1F;
    } else if (b >= 0xE0 && b <= 0xEF) {
      extra = 2, c = b & 0x0F;
      if (b == 0xE0) lo = 0xA0;  // overlong
      if (b == 0xED) hi = 0x9F;  // surrogates
    } else if (b >= 0xF0 && b <= 0xF4) {
      extra = 3, c = b & 0x07;
      if (b == 0xF0) lo = 0x90;  // overlong
      if (b == 0xF4) hi = 0x8F;  // above U+10FFFF
    } else {
      out += u'\uFFFD';
      ++i;
      continue;
    }
    size_t j = i + 1;
    for (int k = 0; k < extra; ++k, ++j) {
      const unsigned char t = j < s.size() ? static_cast<unsigned char>(s[j]) : 0;
      if (t < (k == 0 ? lo : 0x80) || t > (k == 0 ? hi : 0xBF)) break;
      c = (c << 6) | (t & 0x3F);
    }
    if (j - i == static_cast<size_t>(extra) + 1) {
      AppendUtf16(out, c);
    } else {
      out += u'\uFFFD';
    }
    i = j;
  }
  return out;
}

size_t NarrowLength(std::u16string_view s, int selector) {
  CheckSelector(selector);
  size_t n = 0;
  if (selector == kNarrowUtf8) {
    ForEachCodePoint(s, [&](char32_t c) { n += RkUtf8Length(c); });
  } else {
    ForEachCodePoint(s, [&](char32_t) { ++n; });
  }
  return n;
}

// Writes the narrow form into `out`, which holds exactly NarrowLength(s, selector) bytes: the
// caller owns the storage, so a password never passes through a buffer that grows and leaves its
// old block unwiped on the heap.
void EncodeInto(std::u16string_view s, int selector, char* out) {
  CheckSelector(selector);
  if (selector == kNarrowUtf8) {
    ForEachCodePoint(s, [&](char32_t c) { out += RkPutUtf8(out, c); });
  } else {
    const RkCodePage& cp = CodePage(selector);
    ForEachCodePoint(s, [&](char32_t c) {
      uint8_t b = c < 0x10000 ? cp.encode(static_cast<char16_t>(c)) : 0;
      *out++ = (b != 0 || c == 0) ? static_cast<char>(b) : '?';
    });
  }
}

std::string Encode(std::u16string_view s, int selector) {
  std::string out(NarrowLength(s, selector), '\0');
  EncodeInto(s, selector, out.data());
  return out;
}

// ---------------------------------------------------------------------------------------------
// Formatting. One engine serves the variadic form and the typed message parameters: it asks an
// argument source for a value of the class that each conversion needs.

class RkFormatArgs {
 public:
  virtual ~RkFormatArgs() = default;
  virtual long long Signed(char length) = 0;
  virtual unsigned long long Unsigned(char length) = 0;
  virtual long double Real(bool isLong) = 0;
  virtual char32_t Char(bool narrow) = 0;
  virtual std::u16string String(bool narrow) = 0;
  virtual const void* Pointer() = 0;
  virtual int StarInt() = 0;
};

class RkVaArgs final : public RkFormatArgs {
 public:
  explicit RkVaArgs(va_list args) { va_copy(args_, args); }
  ~RkVaArgs() override { va_end(args_); }
  RkVaArgs(const RkVaArgs&) = delete;
  RkVaArgs& operator=(const RkVaArgs&) = delete;

  // Length letters: 'H' hh, 'h', 'l', 'q' ll, 'j', 'z', 't', 0 for none.
  long long Signed(char length) override {
    switch (length) {
      case 'l': return va_arg(args_, long);
      case 'q': case 'j': return va_arg(args_, long long);
      case 'z': case 't': return va_arg(args_, ptrdiff_t);
      case 'h': return static_cast<short>(va_arg(args_, int));
      case 'H': return static_cast<signed char>(va_arg(args_, int));
      default: return va_arg(args_, int);
    }
  }
  unsigned long long Unsigned(char length) override {
    switch (length) {
      case 'l': return va_arg(args_, unsigned long);
      case 'q': case 'j': return va_arg(args_, unsigned long long);
      case 'z': case 't': return va_arg(args_, size_t);
      case 'h': return static_cast<unsigned short>(va_arg(args_, unsigned));
      case 'H': return static_cast<unsigned char>(va_arg(args_, unsigned));
      default: return va_arg(args_, unsigned);
    }
  }
  long double Real(bool isLong) override { return isLong ? va_arg(args_, long double) : va_arg(args_, double); }
  char32_t Char(bool narrow) override {
    int c = va_arg(args_, int);
    return narrow ? static_cast<unsigned char>(c) : static_cast<char16_t>(c);
  }
  std::u16string String(bool narrow) override {
    if (narrow) {
      const char* s = va_arg(args_, const char*);
      return s ? DecodeUtf8(s) : std::u16string(u"(null)");
    }
    const char16_t* s = va_arg(args_, const char16_t*);
    return s ? std::u16string(s) : std::u16string(u"(null)");
  }
  const void* Pointer() override { return va_arg(args_, const void*); }
  int StarInt() override { return va_arg(args_, int); }

 private:
  va_list args_;
};

std::u16string FormatWith(const char16_t* format, RkFormatArgs& args) {
  std::u16string out;
  if (!format) return out;
  for (const char16_t* p = format; *p;) {
    if (*p != u'%') {
      out += *p++;
      continue;
    }
    ++p;
    if (*p == u'%') {
      out += u'%';
      ++p;
      continue;
    }
    std::string spec = "%";
    bool leftAlign = false;
    while (*p && std::u16string_view(u"-+ #0'").find(*p) != std::u16string_view::npos) {
      if (*p == u'-') leftAlign = true;
      spec += static_cast<char>(*p++);
    }
    int width = -1, precision = -1;
    if (*p == u'*') {
      width = args.StarInt();
      if (width < 0) { leftAlign = true; width = -width; spec += '-'; }
      ++p;
    } else {
      for (width = 0; *p >= u'0' && *p <= u'9'; ++p) width = std::min(width * 10 + (*p - u'0'), 100000);
      if (width == 0) width = -1;
    }
    if (*p == u'.') {
      ++p;
      if (*p == u'*') {
        precision = args.StarInt();
        ++p;
      } else {
        for (precision = 0; *p >= u'0' && *p <= u'9'; ++p) precision = std::min(precision * 10 + (*p - u'0'), 100000);
      }
    }
    if (width >= 0) spec += std::to_string(width);
    if (precision >= 0) spec += "." + std::to_string(precision);
    char length = 0;
    bool narrowText = false, longDouble = false;
    if (*p == u'h') {
      ++p;
      length = 'h';
      narrowText = true;
      if (*p == u'h') { length = 'H'; ++p; }
    } else if (*p == u'l') {
      ++p;
      length = 'l';
      if (*p == u'l') { length = 'q'; ++p; }
    } else if (*p == u'j' || *p == u'z' || *p == u't') {
      length = static_cast<char>(*p++);
    } else if (*p == u'L') {
      longDouble = true;
      ++p;
    } else if (p[0] == u'I' && p[1] == u'6' && p[2] == u'4') {
      length = 'q';
      p += 3;
    }
    const char16_t conv = *p;
    if (!conv) break;
    ++p;
    char buf[512];
    auto emitNarrow = [&](int n) {
      if (n > 0) for (int i = 0; i < n && i < static_cast<int>(sizeof buf) - 1; ++i) out += static_cast<unsigned char>(buf[i]);
    };
    auto pad = [&](std::u16string text) {
      if (width > static_cast<int>(text.size())) {
        std::u16string fill(width - text.size(), u' ');
        text = leftAlign ? text + fill : fill + text;
      }
      out += text;
    };
    switch (conv) {
      case u'd': case u'i':
        emitNarrow(std::snprintf(buf, sizeof buf, (spec + "lld").c_str(), args.Signed(length)));
        break;
      case u'u': case u'o': case u'x': case u'X':
        emitNarrow(std::snprintf(buf, sizeof buf, (spec + "ll" + static_cast<char>(conv)).c_str(), args.Unsigned(length)));
        break;
      case u'e': case u'E': case u'f': case u'F': case u'g': case u'G': case u'a': case u'A':
        emitNarrow(std::snprintf(buf, sizeof buf, (spec + "L" + static_cast<char>(conv)).c_str(), args.Real(longDouble)));
        break;
      case u'p':
        emitNarrow(std::snprintf(buf, sizeof buf, "%p", args.Pointer()));
        break;
      case u'c': case u'C': {
        std::u16string one;
        AppendUtf16(one, args.Char(narrowText));
        pad(one);
        break;
      }
      case u's': case u'S': {
        std::u16string text = args.String(narrowText);
        if (precision >= 0 && static_cast<size_t>(precision) < text.size()) text.resize(precision);
        pad(std::move(text));
        break;
      }
      default:  // unknown conversion: shown as written, consuming nothing
        out += u'%';
        out += conv;
        break;
    }
  }
  return out;
}

locale_t Utf8Locale() {
  static locale_t loc = [] {
    locale_t l = newlocale(LC_CTYPE_MASK, "C.UTF-8", static_cast<locale_t>(nullptr));
    return l ? l : newlocale(LC_CTYPE_MASK, "C", static_cast<locale_t>(nullptr));
  }();
  return loc;
}

}  // namespace

// Typed single-value formatting for message parameters: every conversion takes the one value.
class RkOneValueArgs final : public RkFormatArgs {
 public:
  enum Kind { kSigned, kUnsigned, kChar };
  RkOneValueArgs(Kind kind, long long s, unsigned long long u) : kind_(kind), s_(s), u_(u) {}
  long long Signed(char) override { return kind_ == kSigned ? s_ : static_cast<long long>(u_); }
  unsigned long long Unsigned(char) override { return kind_ == kSigned ? static_cast<unsigned long long>(s_) : u_; }
  long double Real(bool) override { return kind_ == kSigned ? static_cast<long double>(s_) : static_cast<long double>(u_); }
  char32_t Char(bool) override { return static_cast<char32_t>(kind_ == kSigned ? s_ : u_); }
  std::u16string String(bool) override {
    std::u16string out;
    if (kind_ == kChar) AppendUtf16(out, static_cast<char32_t>(u_));
    else for (char c : kind_ == kSigned ? std::to_string(s_) : std::to_string(u_)) out += static_cast<char16_t>(c);
    return out;
  }
  const void* Pointer() override { return nullptr; }
  int StarInt() override { return 0; }

 private:
  Kind kind_;
  long long s_;
  unsigned long long u_;
};

RkString RkFormatSigned(const char16_t* format, long long value) {
  RkOneValueArgs args(RkOneValueArgs::kSigned, value, 0);
  return RkString(FormatWith(format, args));
}
RkString RkFormatUnsigned(const char16_t* format, unsigned long long value) {
  RkOneValueArgs args(RkOneValueArgs::kUnsigned, 0, value);
  return RkString(FormatWith(format, args));
}
RkString RkFormatChar(const char16_t* format, char16_t value) {
  RkOneValueArgs args(RkOneValueArgs::kChar, 0, value);
  return RkString(FormatWith(format, args));
}

// ---------------------------------------------------------------------------------------------

size_t RkPutUtf8(char* out, char32_t c) noexcept {
  const size_t n = RkUtf8Length(c);
  static constexpr unsigned char kLead[5] = {0, 0x00, 0xC0, 0xE0, 0xF0};
  for (size_t k = n - 1; k > 0; --k, c >>= 6) out[k] = static_cast<char>(0x80 | (c & 0x3F));
  out[0] = static_cast<char>(kLead[n] | c);
  return n;
}

RkString::RkString(const char16_t* text) {
  if (text) body_ = text;
}

RkString RkString::FromNarrow(std::string_view text, int selector) {
  CheckSelector(selector);
  if (selector == kNarrowUtf8) return RkString(DecodeUtf8(text));
  const RkCodePage& cp = CodePage(selector);
  std::u16string out(text.size(), u'\0');
  for (size_t i = 0; i < text.size(); ++i) out[i] = cp.toWide[static_cast<unsigned char>(text[i])];
  return RkString(std::move(out));
}

RkString RkString::FromWchar(std::wstring_view text) {
  std::u16string out;
  out.reserve(text.size());
  for (wchar_t c : text) AppendUtf16(out, static_cast<char32_t>(c) <= 0x10FFFF ? static_cast<char32_t>(c) : 0xFFFD);
  return RkString(std::move(out));
}

RkString RkString::FromAscii(std::string_view text) {
  std::u16string out(text.size(), u'\0');
  for (size_t i = 0; i < text.size(); ++i) out[i] = static_cast<unsigned char>(text[i]);
  return RkString(std::move(out));
}

RkString RkString::Format(const char16_t* format, ...) {
  va_list args;
  va_start(args, format);
  RkString s = FormatV(format, args);
  va_end(args);
  return s;
}

RkString RkString::FormatV(const char16_t* format, va_list args) {
  RkVaArgs source(args);
  return RkString(FormatWith(format, source));
}

std::string RkString::toNarrow(int selector) const { return Encode(body_, selector); }

size_t RkString::narrowLength(int selector) const { return NarrowLength(body_, selector); }

void RkString::toNarrow(int selector, RkSecureBuffer& out) const {
  const size_t length = NarrowLength(body_, selector);
  // Sized once, terminator included; any block the buffer gives up on the way is wiped by it.
  out.Resize(length + 1, RkBuffer::kClearContents);
  EncodeInto(body_, selector, reinterpret_cast<char*>(out.Data()));
}

std::wstring RkString::toWchar() const {
  std::wstring out;
  out.reserve(body_.size());
  ForEachCodePoint(body_, [&](char32_t c) { out += static_cast<wchar_t>(c); });
  return out;
}

void RkString::wipe() noexcept {
  // Overwrite the whole capacity: a shorter value may have followed a longer one.
  if (body_.capacity() > 0) explicit_bzero(body_.data(), body_.capacity() * sizeof(char16_t));
  body_.clear();
}

char16_t RkToUpper(char16_t c) {
  if (c < 0x80) return (c >= u'a' && c <= u'z') ? static_cast<char16_t>(c - 32) : c;
  if (c >= 0xD800 && c <= 0xDFFF) return c;
  wint_t u = towupper_l(c, Utf8Locale());
  return u <= 0xFFFF ? static_cast<char16_t>(u) : c;
}

static char16_t ToLowerUnit(char16_t c) {
  if (c < 0x80) return (c >= u'A' && c <= u'Z') ? static_cast<char16_t>(c + 32) : c;
  if (c >= 0xD800 && c <= 0xDFFF) return c;
  wint_t l = towlower_l(c, Utf8Locale());
  return l <= 0xFFFF ? static_cast<char16_t>(l) : c;
}

// Comparison without regard to case maps both sides to upper case, as NTFS and FAT do.
char16_t RkFoldCase(char16_t c) { return RkToUpper(c); }

int RkCompareNoCase(std::u16string_view a, std::u16string_view b) {
  size_t n = std::min(a.size(), b.size());
  for (size_t i = 0; i < n; ++i) {
    char16_t x = RkFoldCase(a[i]), y = RkFoldCase(b[i]);
    if (x != y) return x < y ? -1 : 1;
  }
  return a.size() == b.size() ? 0 : (a.size() < b.size() ? -1 : 1);
}

int RkString::compareNoCase(std::u16string_view other) const { return RkCompareNoCase(body_, other); }

bool RkString::startsWithNoCase(std::u16string_view s) const {
  return s.size() <= body_.size() && RkCompareNoCase(view().substr(0, s.size()), s) == 0;
}

bool RkString::endsWithNoCase(std::u16string_view s) const {
  return s.size() <= body_.size() && RkCompareNoCase(view().substr(body_.size() - s.size()), s) == 0;
}

RkString RkString::toLower() const {
  std::u16string out(body_);
  for (char16_t& c : out) c = ToLowerUnit(c);
  return RkString(std::move(out));
}

RkString RkString::toUpper() const {
  std::u16string out(body_);
  for (char16_t& c : out) c = RkToUpper(c);
  return RkString(std::move(out));
}

}  // namespace RkLib
