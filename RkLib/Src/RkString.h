// RkString: the one string of the libraries. The body is UTF-16; narrow forms are made on
// request by a selector (RkNarrow). RkString only forwards: the behaviour lives in RkGutz.cpp.
#pragma once

#include <cstdarg>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <utility>

namespace RkLib {

class RkSecureBuffer;

// Selectors of the narrow forms. OEM and ANSI are the fixed code pages CP437 and CP1252; a
// password is hashed from the form its archive format names, so the values are the format's
// own choice and not the user's locale. Any other selector is an assertion failure.
enum RkNarrow : int {
  kNarrowOem = 0,
  kNarrowAnsi = 1,
  kNarrowUtf8 = 3,
};

class RkString {
 public:
  static constexpr size_t npos = std::u16string::npos;

  RkString() = default;
  RkString(const char16_t* text);  // NOLINT(google-explicit-constructor): null gives empty
  RkString(const char16_t* text, size_t length) : body_(text ? std::u16string(text, length) : std::u16string()) {}
  RkString(std::u16string_view text) : body_(text) {}  // NOLINT(google-explicit-constructor)
  RkString(std::u16string&& text) noexcept : body_(std::move(text)) {}  // NOLINT
  RkString(const RkString&) = default;
  RkString(RkString&&) noexcept = default;
  RkString& operator=(const RkString&) = default;
  RkString& operator=(RkString&&) noexcept = default;
  ~RkString() = default;

  // Narrow text in the selector's form; bytes that a code page does not define keep their
  // value as the code point, invalid UTF-8 gives U+FFFD.
  static RkString FromNarrow(std::string_view text, int selector);
  static RkString FromUtf8(std::string_view text) { return FromNarrow(text, kNarrowUtf8); }
  static RkString FromWchar(std::wstring_view text);
  static RkString FromAscii(std::string_view text);

  // printf-style with a wide format. %s and %c take char16_t strings and characters (the wide
  // printf convention); %hs takes a narrow UTF-8 char*. Numeric conversions follow C.
  static RkString Format(const char16_t* format, ...);
  static RkString FormatV(const char16_t* format, va_list args);

  bool empty() const noexcept { return body_.empty(); }
  size_t length() const noexcept { return body_.size(); }
  size_t size() const noexcept { return body_.size(); }
  const char16_t* c_str() const noexcept { return body_.c_str(); }
  std::u16string_view view() const noexcept { return body_; }
  operator std::u16string_view() const noexcept { return body_; }  // NOLINT(google-explicit-constructor)
  const std::u16string& str() const noexcept { return body_; }
  char16_t operator[](size_t i) const { return body_[i]; }
  char16_t back() const { return body_.back(); }

  // Narrow forms. Characters the code page lacks become '?'; a surrogate pair is one
  // character and gives one '?'.
  std::string toNarrow(int selector) const;
  size_t narrowLength(int selector) const;
  // The narrow form with a terminating zero into a pinned buffer, for passwords: it is written
  // there directly, and no other copy of it is made.
  void toNarrow(int selector, RkSecureBuffer& out) const;
  std::string toUtf8() const { return toNarrow(kNarrowUtf8); }
  std::wstring toWchar() const;

  RkString& append(std::u16string_view text) {
    body_.append(text);
    return *this;
  }
  RkString& append(char16_t c) {
    body_.push_back(c);
    return *this;
  }
  RkString& operator+=(std::u16string_view text) { return append(text); }
  RkString& operator+=(const RkString& text) { return append(text.view()); }
  RkString& operator+=(char16_t c) { return append(c); }
  void insert(size_t pos, std::u16string_view text) { body_.insert(pos, text); }
  void erase(size_t pos, size_t count = npos) { body_.erase(pos, count); }
  void resize(size_t n) { body_.resize(n); }
  void replaceAll(char16_t from, char16_t to) noexcept {
    for (char16_t& c : body_)
      if (c == from) c = to;
  }

  size_t find(char16_t c, size_t from = 0) const noexcept { return body_.find(c, from); }
  size_t find(std::u16string_view s, size_t from = 0) const noexcept { return body_.find(s, from); }
  size_t rfind(char16_t c, size_t from = npos) const noexcept { return body_.rfind(c, from); }
  size_t findLastOf(std::u16string_view set, size_t from = npos) const noexcept {
    return body_.find_last_of(set, from);
  }
  RkString substr(size_t pos, size_t count = npos) const { return RkString(body_.substr(pos, count)); }
  bool startsWith(std::u16string_view s) const noexcept { return view().starts_with(s); }
  bool endsWith(std::u16string_view s) const noexcept { return view().ends_with(s); }
  bool startsWithNoCase(std::u16string_view s) const;
  bool endsWithNoCase(std::u16string_view s) const;

  int compare(const RkString& other) const noexcept { return body_.compare(other.body_); }
  // Ordinal comparison after simple Unicode case folding, as file systems that ignore case do.
  int compareNoCase(std::u16string_view other) const;
  bool equalsNoCase(std::u16string_view other) const { return compareNoCase(other) == 0; }
  RkString toLower() const;
  RkString toUpper() const;

  void clear() noexcept { body_.clear(); }
  // The wiping clear: the characters are overwritten with zero before the length drops, so a
  // password leaves no copy in this string's storage.
  void wipe() noexcept;

  friend bool operator==(const RkString& a, const RkString& b) noexcept { return a.body_ == b.body_; }
  friend auto operator<=>(const RkString& a, const RkString& b) noexcept { return a.body_ <=> b.body_; }
  friend RkString operator+(RkString a, std::u16string_view b) { return std::move(a.append(b)); }
  friend RkString operator+(RkString a, const RkString& b) { return std::move(a.append(b.view())); }

 private:
  std::u16string body_;
};

// Applies a printf format to one typed value: every conversion in the format takes that value,
// so a message parameter can never read an argument that is not there.
RkString RkFormatSigned(const char16_t* format, long long value);
RkString RkFormatUnsigned(const char16_t* format, unsigned long long value);
RkString RkFormatChar(const char16_t* format, char16_t value);

// Case folding and classification of single UTF-16 units, shared by the string and path code.
char16_t RkFoldCase(char16_t c);
char16_t RkToUpper(char16_t c);
int RkCompareNoCase(std::u16string_view a, std::u16string_view b);

// The UTF-8 form of one code point (at most U+10FFFF), written with no allocation, for the code
// that must not touch the heap. RkPutUtf8 writes RkUtf8Length(c) bytes and returns that count.
constexpr size_t RkUtf8Length(char32_t c) noexcept { return c < 0x80 ? 1 : c < 0x800 ? 2 : c < 0x10000 ? 3 : 4; }
size_t RkPutUtf8(char* out, char32_t c) noexcept;

}  // namespace RkLib
