#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <random>
#include <string>
#include <vector>

#include "RkDigest.h"
#include "RkError.h"

using namespace RkLib;

namespace {

const uint32_t kAllKinds[] = {kDigestNone, kDigestCrc32,  kDigestCrc64,
                              kDigestSha1, kDigestSha256, kDigestMd5};

std::string Hex(const uint8_t* bytes, size_t n) {
  std::string text;
  char two[3];
  for (size_t i = 0; i < n; ++i) {
    std::snprintf(two, sizeof two, "%02x", bytes[i]);
    text += two;
  }
  return text;
}

// A CRC as the value holds it: little-endian.
std::string LeHex(uint64_t crc, size_t n) {
  uint8_t bytes[8];
  for (size_t i = 0; i < n; ++i) bytes[i] = static_cast<uint8_t>(crc >> (8 * i));
  return Hex(bytes, n);
}

RkDigestValue ValueOf(const RkDigestFunction& digest) {
  RkDigestValue value;
  EXPECT_TRUE(digest.GetValue(&value));
  return value;
}

RkDigestValue DigestOf(uint32_t kind, const std::string& text) {
  auto digest = RkDigestFunction::Create(kind);
  digest->Update(text.data(), text.size());
  digest->Finish();
  return ValueOf(*digest);
}

bool AllZero(const uint8_t* bytes, size_t n) {
  for (size_t i = 0; i < n; ++i) {
    if (bytes[i] != 0) return false;
  }
  return true;
}

TEST(RkDigest, PublishedVectors) {
  const std::string kMillionA(1000000, 'a');
  const struct {
    uint32_t kind;
    std::string text;
    std::string digest;
  } kVectors[] = {
      {kDigestNone, "abc", ""},
      {kDigestCrc32, "", LeHex(0, 4)},
      {kDigestCrc32, "123456789", LeHex(0xCBF43926, 4)},
      {kDigestCrc64, "", LeHex(0, 8)},
      {kDigestCrc64, "123456789", LeHex(0x995DC9BBDF1939FA, 8)},
      {kDigestSha1, "", "da39a3ee5e6b4b0d3255bfef95601890afd80709"},
      {kDigestSha1, "abc", "a9993e364706816aba3e25717850c26c9cd0d89d"},
      {kDigestSha1, kMillionA, "34aa973cd4c4daa4f61eeb2bdbad27316534016f"},
      {kDigestSha256, "", "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855"},
      {kDigestSha256, "abc", "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad"},
      {kDigestSha256, kMillionA, "cdc76e5c9914fb9281a1c7e284d73e67f1809a48a497200e046d39ccc7112cd0"},
      {kDigestMd5, "", "d41d8cd98f00b204e9800998ecf8427e"},
      {kDigestMd5, "abc", "900150983cd24fb0d6963f7d28e17f72"},
  };
  for (const auto& v : kVectors) {
    SCOPED_TRACE("kind " + std::to_string(v.kind) + ", " + std::to_string(v.text.size()) + " bytes");
    auto digest = RkDigestFunction::Create(v.kind);
    ASSERT_TRUE(digest->IsValid());
    EXPECT_EQ(digest->GetKind(), v.kind);
    EXPECT_EQ(digest->GetKindCode(), v.kind);
    ASSERT_EQ(digest->GetLength() * 2, v.digest.size());

    digest->Update(v.text.data(), v.text.size());
    digest->Finish();
    const RkDigestValue value = ValueOf(*digest);
    EXPECT_EQ(value.kind, v.kind);
    EXPECT_EQ(Hex(value.bytes, digest->GetLength()), v.digest);
    EXPECT_TRUE(AllZero(value.bytes + digest->GetLength(), RkDigestValue::kMaxBytes - digest->GetLength()));
    const uint32_t firstWord = uint32_t{value.bytes[0]} | uint32_t{value.bytes[1]} << 8 |
                               uint32_t{value.bytes[2]} << 16 | uint32_t{value.bytes[3]} << 24;
    EXPECT_EQ(digest->GetValueWord(), firstWord);

    uint8_t out[RkDigestValue::kMaxBytes] = {};
    digest->Final(out);
    EXPECT_EQ(Hex(out, digest->GetLength()), v.digest);
  }
}

TEST(RkDigest, Crc32WordIsTheCrc) {
  auto digest = RkDigestFunction::Create(kDigestCrc32);
  digest->Update("123456789", 9);
  digest->Finish();
  EXPECT_EQ(digest->GetValueWord(), 0xCBF43926u);
}

TEST(RkDigest, SplitUpdatesEqualOneShot) {
  std::mt19937 random(7);
  std::string text(100003, '\0');
  for (auto& c : text) c = static_cast<char>(random());
  for (uint32_t kind : kAllKinds) {
    const RkDigestValue expected = DigestOf(kind, text);
    auto digest = RkDigestFunction::Create(kind);
    for (size_t pos = 0; pos < text.size();) {
      const size_t piece = std::min<size_t>(text.size() - pos, random() % 5000);
      digest->Update(text.data() + pos, piece);
      pos += piece;
    }
    digest->Finish();
    EXPECT_EQ(ValueOf(*digest), expected) << "kind " << kind;
  }
}

TEST(RkDigest, UpdateGoesOnAfterFinish) {
  for (uint32_t kind : kAllKinds) {
    auto digest = RkDigestFunction::Create(kind);
    digest->Update("abc", 3);
    digest->Finish();
    EXPECT_EQ(ValueOf(*digest), DigestOf(kind, "abc")) << "kind " << kind;
    digest->Update("def", 3);
    digest->Finish();
    EXPECT_EQ(ValueOf(*digest), DigestOf(kind, "abcdef")) << "kind " << kind;
  }
}

// Reset zeroes all 40 bytes, the kind too; the next Finish brings the kind back with the digest.
TEST(RkDigest, ResetZeroesTheWholeValue) {
  for (uint32_t kind : kAllKinds) {
    auto digest = RkDigestFunction::Create(kind);
    digest->Update("some bytes", 10);
    digest->Finish();
    digest->Reset();
    const RkDigestValue cleared = ValueOf(*digest);
    EXPECT_EQ(cleared, RkDigestValue()) << "kind " << kind;
    EXPECT_TRUE(digest->IsKindEmpty(cleared)) << "kind " << kind;
    EXPECT_EQ(digest->GetKind(), kind);

    digest->Update("abc", 3);
    digest->Finish();
    EXPECT_EQ(ValueOf(*digest), DigestOf(kind, "abc")) << "kind " << kind;
    digest->Reset();
    digest->Finish();
    EXPECT_EQ(ValueOf(*digest), DigestOf(kind, "")) << "kind " << kind;
  }
}

TEST(RkDigest, SetValueOfAnotherKindKeepsStoredOne) {
  for (uint32_t kind : kAllKinds) {
    for (uint32_t other : kAllKinds) {
      if (other == kind) continue;
      auto digest = RkDigestFunction::Create(kind);
      digest->Update("abc", 3);
      digest->Finish();
      const RkDigestValue stored = ValueOf(*digest);
      EXPECT_FALSE(digest->SetValue(DigestOf(other, "xyz"))) << kind << " <- " << other;
      EXPECT_EQ(ValueOf(*digest), stored) << kind << " <- " << other;
    }
  }
}

TEST(RkDigest, SetValueOfSameKindIsCopiedIn) {
  for (uint32_t kind : kAllKinds) {
    auto digest = RkDigestFunction::Create(kind);
    RkDigestValue value;
    value.kind = kind;
    for (size_t i = 0; i < RkDigestValue::kMaxBytes; ++i) value.bytes[i] = static_cast<uint8_t>(i + 1);
    EXPECT_TRUE(digest->SetValue(value)) << "kind " << kind;
    EXPECT_EQ(ValueOf(*digest), value) << "kind " << kind;
  }
}

// A stored CRC resumes the running one, so an input cut in two gives the CRC of the whole.
TEST(RkDigest, CrcResumesFromSetValue) {
  for (uint32_t kind : {kDigestCrc32, kDigestCrc64}) {
    auto resumed = RkDigestFunction::Create(kind);
    EXPECT_TRUE(resumed->SetValue(DigestOf(kind, "1234")));
    resumed->Update("56789", 5);
    resumed->Finish();
    EXPECT_EQ(ValueOf(*resumed), DigestOf(kind, "123456789")) << "kind " << kind;
  }
}

TEST(RkDigest, EmptinessLooksAtKindAndThirdWord) {
  const RkDigestFunction digest;
  RkDigestValue value;
  EXPECT_TRUE(digest.IsKindEmpty(value));
  EXPECT_TRUE(digest.IsValueEmpty(value));

  value.kind = kDigestSha1;
  value.bytes[0] = 0xFF;  // second word
  value.bytes[8] = 0xFF;  // fourth word
  EXPECT_FALSE(digest.IsKindEmpty(value));
  EXPECT_TRUE(digest.IsValueEmpty(value));

  for (int i = 4; i < 8; ++i) {
    RkDigestValue third;
    third.bytes[i] = 1;
    EXPECT_FALSE(digest.IsValueEmpty(third)) << "byte " << i;
  }
}

TEST(RkDigestDeathTest, UnknownKindIsAnAssertion) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(RkDigestFunction::Create(6), testing::ExitedWithCode(kFatalExitStatus & 0xFF), "");
}

}  // namespace
