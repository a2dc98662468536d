#include <gtest/gtest.h>

#include "RkTestUtil.h"

#include <unistd.h>

#include <string>

#include "RkBuffer.h"
#include "RkString.h"

using namespace RkLib;

namespace {

std::string Hex(const std::string& s) {
  std::string out;
  char buf[4];
  for (unsigned char c : s) {
    std::snprintf(buf, sizeof buf, "%02X ", c);
    out += buf;
  }
  return out;
}

struct NarrowCase {
  const char* name;
  std::u16string wide;
  int selector;
  std::string narrow;
};

class RkStringNarrow : public testing::TestWithParam<NarrowCase> {};

TEST_P(RkStringNarrow, EncodesToTheSelectedForm) {
  const NarrowCase& c = GetParam();
  RkString s(c.wide);
  EXPECT_EQ(Hex(s.toNarrow(c.selector)), Hex(c.narrow));
  EXPECT_EQ(s.narrowLength(c.selector), c.narrow.size());
}

// Each selector's own mapping of non-ASCII text, and what a character it lacks becomes.
INSTANTIATE_TEST_SUITE_P(
    Selectors, RkStringNarrow,
    testing::Values(
        NarrowCase{"oem_umlauts", u"\u00FC\u00E9\u00C4", kNarrowOem, "\x81\x82\x8E"},
        NarrowCase{"oem_box_drawing", u"\u2554\u2550\u2557", kNarrowOem, "\xC9\xCD\xBB"},
        NarrowCase{"oem_lacks_euro", u"a\u20ACb", kNarrowOem, "a?b"},
        NarrowCase{"ansi_euro_and_quotes", u"\u20AC\u201C\u00E9", kNarrowAnsi, "\x80\x93\xE9"},
        NarrowCase{"ansi_lacks_box_drawing", u"\u2554x", kNarrowAnsi, "?x"},
        NarrowCase{"ansi_lacks_cjk", u"\u65E5\u672C", kNarrowAnsi, "??"},
        NarrowCase{"surrogate_pair_is_one_char", u"\U0001F600", kNarrowAnsi, "?"},
        NarrowCase{"utf8_two_three_four_bytes", u"\u00E9\u20AC\U0001F600", kNarrowUtf8,
                   "\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80"},
        NarrowCase{"utf8_lone_surrogate_is_replacement", std::u16string(1, char16_t(0xD800)), kNarrowUtf8,
                   "\xEF\xBF\xBD"},
        NarrowCase{"ascii_is_ascii_everywhere", u"Name_01.txt", kNarrowOem, "Name_01.txt"}),
    RkCaseName());

TEST(RkString, EveryByteOfTheCodePagesSurvivesARoundTrip) {
  for (int selector : {kNarrowOem, kNarrowAnsi}) {
    std::string all;
    for (int b = 1; b < 256; ++b) all += static_cast<char>(b);
    RkString wide = RkString::FromNarrow(all, selector);
    ASSERT_EQ(wide.length(), 255u);
    EXPECT_EQ(wide.toNarrow(selector), all) << "selector " << selector;
  }
  // The five bytes CP1252 leaves undefined keep their value as the code point.
  EXPECT_EQ(RkString::FromNarrow("\x81\x8D", kNarrowAnsi).view(), u"\u0081\u008D");
  EXPECT_EQ(RkString::FromNarrow("\x9B", kNarrowOem).view(), u"\u00A2");
}

TEST(RkString, InvalidUtf8BecomesReplacementCharacters) {
  struct {
    std::string in;
    std::u16string out;
  } cases[] = {
      {"a\xFF" "b", u"a\uFFFDb"},
      {"\xC0\xAF", u"\uFFFD\uFFFD"},              // overlong '/' is never a separator
      {"\xED\xA0\x80", u"\uFFFD\uFFFD\uFFFD"},     // encoded surrogate
      {"\xE2\x82", u"\uFFFD"},                     // truncated at the end
      {"\xF4\x90\x80\x80", u"\uFFFD\uFFFD\uFFFD\uFFFD"},  // above U+10FFFF
      {"\xF0\x9F\x98\x80", u"\U0001F600"},
  };
  for (const auto& c : cases) EXPECT_EQ(RkString::FromUtf8(c.in).view(), c.out) << Hex(c.in);
}

TEST(RkStringDeathTest, SelectorTwoIsAnAssertion) {
  EXPECT_EXIT(
      {
        dup2(2, 1);
        RkString(u"x").toNarrow(2);
      },
      testing::ExitedWithCode(999 & 0xFF), "assert failure");
}

TEST(RkString, PasswordGoesToASecureBufferWithATerminator) {
  RkSecureBuffer out;
  RkString(u"p\u00E4ss").toNarrow(kNarrowOem, out);
  ASSERT_EQ(out.Size(), 5u);
  EXPECT_EQ(std::string(reinterpret_cast<const char*>(out.Data())), "p\x84ss");
}

// Long enough to outgrow any first guess at the size, with one-, two-, three- and four-byte UTF-8
// forms; a stale byte or a lost tail of an earlier, longer value would show.
TEST(RkString, LongNonAsciiPasswordReachesTheSecureBufferWhole) {
  const struct {
    int selector;
    std::string piece;
  } rows[] = {
      {kNarrowUtf8, "p\xC3\xA4\xE2\x82\xAC\xF0\x9F\x98\x80"},
      {kNarrowAnsi, "p\xE4\x80?"},
      {kNarrowOem, "p\x84??"},
  };
  std::u16string wide;
  for (int i = 0; i < 200; ++i) wide += u"p\u00E4\u20AC\U0001F600";
  for (const auto& row : rows) {
    std::string expected;
    for (int i = 0; i < 200; ++i) expected += row.piece;
    RkSecureBuffer out;
    out.Assign(std::string(4 * expected.size(), 'x').data(), 4 * expected.size());
    RkString(wide).toNarrow(row.selector, out);
    ASSERT_EQ(out.Size(), expected.size() + 1) << "selector " << row.selector;
    EXPECT_EQ(Hex(std::string(reinterpret_cast<const char*>(out.Data()), expected.size())), Hex(expected))
        << "selector " << row.selector;
    EXPECT_EQ(out.Data()[expected.size()], 0);
  }
}

TEST(RkString, WipeOverwritesTheStorage) {
  RkString s(u"secret password that is long enough to live on the heap");
  const char16_t* storage = s.c_str();
  size_t n = s.length();
  s.wipe();
  EXPECT_TRUE(s.empty());
  // The storage is still owned by the emptied string, so reading it is defined.
  for (size_t i = 0; i < n; ++i) ASSERT_EQ(storage[i], 0) << "at " << i;
}

TEST(RkString, FormatFollowsThePrintfRules) {
  EXPECT_EQ(RkString::Format(u"%d|%5d|%-4d|%04x|%X", -12, 42, 7, 255u, 0xABCu).view(), u"-12|   42|7   |00ff|ABC");
  EXPECT_EQ(RkString::Format(u"%lld %llu %zu", -5000000000LL, 18446744073709551615ULL, size_t(3)).view(),
            u"-5000000000 18446744073709551615 3");
  EXPECT_EQ(RkString::Format(u"%s and %hs, %c%%", u"wide \u00E9", "narrow \xC3\xA9", int(u'\u20AC')).view(),
            u"wide \u00E9 and narrow \u00E9, \u20AC%");
  EXPECT_EQ(RkString::Format(u"[%6s][%-6s][%.2s]", u"ab", u"cd", u"efgh").view(), u"[    ab][cd    ][ef]");
  EXPECT_EQ(RkString::Format(u"%.2f %*d", 3.14159, 4, 9).view(), u"3.14    9");
  EXPECT_EQ(RkString::Format(u"%s", static_cast<const char16_t*>(nullptr)).view(), u"(null)");
  EXPECT_EQ(RkString::Format(u"100%").view(), u"100");  // a lone trailing % is dropped
}

TEST(RkString, TypedValueFormatsIgnoreLengthLetters) {
  // A 64-bit value under a plain %d must neither truncate nor read beyond itself.
  EXPECT_EQ(RkFormatSigned(u"%d", -5000000000LL).view(), u"-5000000000");
  EXPECT_EQ(RkFormatUnsigned(u"%hx", 0x12345u).view(), u"12345");
  EXPECT_EQ(RkFormatSigned(u"%d and %d", 7).view(), u"7 and 7");
  EXPECT_EQ(RkFormatChar(u"<%c>", u'\u00E9').view(), u"<\u00E9>");
  EXPECT_EQ(RkFormatSigned(u"%s", 12).view(), u"12");
}

TEST(RkString, CaseInsensitiveComparisonCoversLatinGreekCyrillic) {
  EXPECT_EQ(RkString(u"README.TXT").compareNoCase(u"readme.txt"), 0);
  EXPECT_EQ(RkString(u"\u00C4RGER").compareNoCase(u"\u00E4rger"), 0);
  EXPECT_EQ(RkString(u"\u0391\u0392\u0393").compareNoCase(u"\u03B1\u03B2\u03B3"), 0);
  EXPECT_EQ(RkString(u"\u0416").compareNoCase(u"\u0436"), 0);
  EXPECT_LT(RkString(u"abc").compareNoCase(u"ABD"), 0);
  EXPECT_GT(RkString(u"abcd").compareNoCase(u"ABC"), 0);
  EXPECT_TRUE(RkString(u"Photo.JPEG").endsWithNoCase(u".jpeg"));
  EXPECT_TRUE(RkString(u"Rakona32.ini").startsWithNoCase(u"RAKONA"));
  EXPECT_FALSE(RkString(u"Rak").startsWithNoCase(u"Rakona"));
  EXPECT_EQ(RkString(u"\u00C9t\u00C9").toLower().view(), u"\u00E9t\u00E9");
}

TEST(RkString, NullPointerIsEmpty) {
  EXPECT_TRUE(RkString(static_cast<const char16_t*>(nullptr)).empty());
  EXPECT_TRUE(RkString(nullptr, 5).empty());
}

}  // namespace
