#include <gtest/gtest.h>

#include <unistd.h>

#include <cstring>
#include <stdexcept>

#include "RkBuffer.h"

using namespace RkLib;

namespace {

TEST(RkBuffer, AtAndWchAtThrowNamingTheOperation) {
  RkBuffer b("\x41\x00\x42\x00\x43", 5);
  EXPECT_EQ(b.At(4), 0x43);
  EXPECT_EQ(b.WchAt(1), u'B');
  try {
    b.At(5);
    FAIL() << "no throw";
  } catch (const std::out_of_range& e) {
    EXPECT_STREQ(e.what(), "RkBuffer::At()");
  }
  try {
    b.WchAt(2);  // only bytes 4..5 would hold it, and byte 5 is missing
    FAIL() << "no throw";
  } catch (const std::out_of_range& e) {
    EXPECT_STREQ(e.what(), "RkBuffer::WchAt()");
  }
}

TEST(RkBuffer, ResizeKeepsOrClearsByMode) {
  RkBuffer b("abc", 3);
  b.Resize(6, RkBuffer::kKeepContents);
  EXPECT_EQ(0, std::memcmp(b.Data(), "abc\0\0\0", 6));
  b.Resize(2, RkBuffer::kKeepContents);
  EXPECT_EQ(b.Size(), 2u);
  b.Resize(4, RkBuffer::kClearContents);
  EXPECT_EQ(0, std::memcmp(b.Data(), "\0\0\0\0", 4));
}

TEST(RkBuffer, AppendFromItselfSurvivesGrowth) {
  RkBuffer b("0123456789", 10);
  for (int i = 0; i < 6; ++i) b.Append(b.Data(), b.Size());  // doubles, reallocating on the way
  ASSERT_EQ(b.Size(), 640u);
  for (size_t i = 0; i < b.Size(); ++i) ASSERT_EQ(b.Data()[i], '0' + i % 10) << i;
}

TEST(RkBuffer, CopiesAreIndependent) {
  RkBuffer a("xyz", 3);
  RkBuffer b(a);
  b.At(0) = 'q';
  EXPECT_EQ(a.At(0), 'x');
  RkBuffer c(std::move(b));
  EXPECT_EQ(c.At(0), 'q');
  EXPECT_TRUE(b.Empty());  // NOLINT(bugprone-use-after-move): moved-from is defined empty
  EXPECT_FALSE(a == c);
  c.At(0) = 'x';
  EXPECT_TRUE(a == c);
}

TEST(RkBufferDeathTest, NullAppendIsAnAssertion) {
  EXPECT_EXIT(
      {
        dup2(2, 1);
        RkBuffer b;
        b.Append(nullptr, 0);
      },
      testing::ExitedWithCode(999 & 0xFF), "assert failure");
}

TEST(RkSecureBuffer, WipeCoversTheWholeCapacity) {
  RkSecureBuffer b;
  b.Assign("secret", 6);
  b.Reserve(64);
  b.Wipe(0xAA);
  for (size_t i = 0; i < b.Capacity(); ++i) ASSERT_EQ(b.Data()[i], 0xAA) << i;
  EXPECT_EQ(b.Size(), 6u);  // the contents are gone, the size stays
}

}  // namespace

#include "RkBOM.h"

namespace {

TEST(RkBOM, DetectsEachMarkAndNothingElse) {
  struct {
    std::string bytes;
    RkLib::RkBomKind kind;
  } cases[] = {
      {"\xEF\xBB\xBFtext", RkLib::kBomUtf8},
      {"\xFF\xFEt\0", RkLib::kBomUtf16Le},
      {"\xFE\xFF\0t", RkLib::kBomUtf16Be},
      {"\xEF\xBB", RkLib::kBomNone},  // a mark cut short
      {"\xFF", RkLib::kBomNone},
      {"", RkLib::kBomNone},
      {"plain", RkLib::kBomNone},
      {"\xBB\xEF\xBF", RkLib::kBomNone},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(RkLib::RkBOM::Detect(c.bytes.data(), c.bytes.size()), c.kind) << c.bytes;
    if (c.kind != RkLib::kBomNone) {
      EXPECT_EQ(RkLib::RkBOM::Bytes(c.kind), c.bytes.substr(0, RkLib::RkBOM::Length(c.kind)));
    }
  }
  EXPECT_EQ(RkLib::RkBOM::Length(RkLib::kBomNone), 0u);
  EXPECT_EQ(RkLib::RkBOM::Detect(nullptr, 3), RkLib::kBomNone);
}

}  // namespace
