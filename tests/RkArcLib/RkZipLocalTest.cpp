// Local headers against their central records: each kind of disagreement ends the entry with its
// own code and message, and the archive stays loaded.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "RkArcCallback.h"
#include "RkArcTestUtil.h"
#include "RkCrc32.h"
#include "RkZipEntry.h"
#include "RkZipFile.h"

namespace RkArcTest {
namespace {

using RkArcLib::RkState;
using RkArcLib::RkZipFile;

void Put16(std::string& s, size_t at, uint32_t v) {
  s[at] = static_cast<char>(v);
  s[at + 1] = static_cast<char>(v >> 8);
}
void Put32(std::string& s, size_t at, uint32_t v) {
  Put16(s, at, v & 0xFFFF);
  Put16(s, at + 2, v >> 16);
}

// Offsets of the fields of the first local header, which starts the file.
constexpr size_t kLocalFlags = 6, kLocalMethod = 8, kLocalCrc = 14, kLocalPacked = 18, kLocalSize = 22;

// One stored entry "a.txt" holding "hello"; `descriptor` sets flag bit 3 in both headers, leaves the
// local CRC and sizes 0 and puts a data descriptor behind the data.
std::string OneEntryZip(bool descriptor) {
  const std::string name = "a.txt";
  const std::string data = "hello";
  const uint32_t crc = RkLib::RkCrc32(0, data.data(), data.size());
  const uint16_t flags = descriptor ? 8 : 0;
  std::string local(30, '\0');
  Put32(local, 0, 0x04034B50);
  Put16(local, 4, 10);
  Put16(local, kLocalFlags, flags);
  Put16(local, 12, 0x5A21);  // a valid DOS date
  if (!descriptor) {
    Put32(local, kLocalCrc, crc);
    Put32(local, kLocalPacked, static_cast<uint32_t>(data.size()));
    Put32(local, kLocalSize, static_cast<uint32_t>(data.size()));
  }
  Put16(local, 26, static_cast<uint32_t>(name.size()));
  std::string zip = local + name + data;
  if (descriptor) {
    std::string dd(16, '\0');
    Put32(dd, 0, 0x08074B50);
    Put32(dd, 4, crc);
    Put32(dd, 8, static_cast<uint32_t>(data.size()));
    Put32(dd, 12, static_cast<uint32_t>(data.size()));
    zip += dd;
  }
  const size_t cdirOffset = zip.size();
  std::string central(46, '\0');
  Put32(central, 0, 0x02014B50);
  Put16(central, 4, 20);
  Put16(central, 6, 10);
  Put16(central, 8, flags);
  Put16(central, 14, 0x5A21);
  Put32(central, 16, crc);
  Put32(central, 20, static_cast<uint32_t>(data.size()));
  Put32(central, 24, static_cast<uint32_t>(data.size()));
  Put16(central, 28, static_cast<uint32_t>(name.size()));
  zip += central + name;
  std::string end(22, '\0');
  Put32(end, 0, 0x06054B50);
  Put16(end, 8, 1);
  Put16(end, 10, 1);
  Put32(end, 12, static_cast<uint32_t>(46 + name.size()));
  Put32(end, 16, static_cast<uint32_t>(cdirOffset));
  return zip + end;
}

class Messages : public RkArcLib::RkArcCallback {
 public:
  bool ReportMessage(uint32_t level, const RkLib::RkString& text) override {
    if (level == RkLib::kSeveritySevere) severe.push_back(text.toUtf8());
    return true;
  }
  std::vector<std::string> severe;
};

struct LocalCase {
  const char* name;
  bool descriptor;
  size_t field;  // 0: leave the local header alone
  uint32_t value;
  bool wide;
  uint32_t code;  // 0: the check passes
};

class RkZipLocalTest : public testing::TestWithParam<LocalCase> {};

TEST_P(RkZipLocalTest, LocalHeaderAgainstCentral) {
  const LocalCase& c = GetParam();
  std::string zip = OneEntryZip(c.descriptor);
  if (c.field != 0) (c.wide ? Put32 : Put16)(zip, c.field, c.value);
  ScratchFolder dir;
  RkZipFile archive(dir.Write("t.zip", zip));
  Messages messages;
  archive.SetCallback(&messages);
  RkState state;
  ASSERT_TRUE(archive.Load(0, -1, nullptr, state)) << state.code;
  const bool ok = archive.ReadLocalHeader(0, state);
  EXPECT_EQ(ok, c.code == 0);
  EXPECT_EQ(state.code, c.code);
  if (c.code != 0) {
    EXPECT_EQ(state.severity, RkLib::kSeveritySevere);
    ASSERT_EQ(messages.severe.size(), 1u);
    EXPECT_NE(messages.severe[0].find("a.txt"), std::string::npos) << messages.severe[0];
  }
  // The entry failed, the archive did not.
  EXPECT_TRUE(archive.IsLoaded());
  EXPECT_EQ(archive.GetItemCount(), 1);
}

constexpr uint32_t kCrc = 0x3610A686;  // of "hello"

INSTANTIATE_TEST_SUITE_P(
    Zip, RkZipLocalTest,
    testing::Values(LocalCase{"Agrees", false, 0, 0, false, 0},
                    LocalCase{"DescriptorLeavesCrcAndSizesZero", true, 0, 0, false, 0},
                    LocalCase{"DescriptorIgnoresAWrongLocalCrc", true, kLocalCrc, 1, true, 0},
                    LocalCase{"CrcDiffers", false, kLocalCrc, kCrc ^ 1, true, 207},
                    LocalCase{"MethodDiffers", false, kLocalMethod, 8, false, 208},
                    LocalCase{"PackedSizeDiffers", false, kLocalPacked, 6, true, 209},
                    LocalCase{"SizeDiffers", false, kLocalSize, 4, true, 210},
                    LocalCase{"EncryptionFlagDiffers", false, kLocalFlags, 1, false, 211},
                    LocalCase{"OnlyUncomparedFlagsDiffer", false, kLocalFlags, 0x1000, false, 0},
                    LocalCase{"CentralSignatureInstead", false, 2, 0x0201, false, 188}),
    [](const auto& row) { return std::string(row.param.name); });

TEST(RkZipLocalTest, OffsetPastTheEndIsAShortRead) {
  std::string zip = OneEntryZip(false);
  // The central record's local offset, at 46 + 16 bytes before the end record's 22.
  const size_t central = zip.size() - 22 - 46 - 5;
  Put32(zip, central + 42, static_cast<uint32_t>(zip.size() - 2));
  ScratchFolder dir;
  RkZipFile archive(dir.Write("t.zip", zip));
  Messages messages;
  archive.SetCallback(&messages);
  RkState state;
  ASSERT_TRUE(archive.Load(0, -1, nullptr, state));
  EXPECT_FALSE(archive.ReadLocalHeader(0, state));
  EXPECT_EQ(state.code, 18u);
  EXPECT_EQ(messages.severe.size(), 1u);
  EXPECT_FALSE(archive.ReadLocalHeader(5, state));
  EXPECT_EQ(state.code, static_cast<uint32_t>(RkArcLib::kArcSlotNotLoaded));
}

}  // namespace
}  // namespace RkArcTest
