// File references: a method 92 entry names the entry that holds its data by a 16-byte id. A good
// pair links up; a reference to nothing, or a record whose check value is wrong, is reported and
// marks the archive damaged without failing the load.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "RkArcCallback.h"
#include "RkArcItem.h"
#include "RkArcTestUtil.h"
#include "RkCrc32.h"
#include "RkZipFile.h"

namespace RkArcTest {
namespace {

using RkArcLib::RkArcItem;
using RkArcLib::RkState;
using RkArcLib::RkZipFile;

std::string Le16(uint32_t v) { return {static_cast<char>(v), static_cast<char>(v >> 8)}; }
std::string Le32(uint32_t v) { return Le16(v & 0xFFFF) + Le16(v >> 16); }

struct Entry {
  std::string name;
  uint16_t method;
  char id;          // every byte of the reference id; 0 for no reference record
  bool goodCheck;   // whether the record's check value is right
};

constexpr uint16_t kTime = 0x6000, kDate = 0x5A21;
constexpr uint32_t kCrc = 0x12345678;

// A central directory alone: loading never reads the local headers.
std::string Archive(const std::vector<Entry>& entries) {
  std::string cdir;
  for (const Entry& e : entries) {
    std::string extra;
    if (e.id != 0) {
      const std::string id(16, e.id);
      const std::string checked = Le32(e.method) + Le32(uint32_t{kDate} << 16 | kTime) + Le32(kCrc) + id;
      uint32_t check = RkLib::RkCrc32(0, checked.data(), checked.size());
      if (!e.goodCheck) check ^= 1;
      extra = Le16(0x9903) + Le16(20) + Le32(check) + id;
    }
    cdir += "PK\x01\x02" + Le16(20) + Le16(20) + Le16(0) + Le16(e.method) + Le16(kTime) + Le16(kDate) +
            Le32(kCrc) + Le32(10) + Le32(10) + Le16(static_cast<uint32_t>(e.name.size())) +
            Le16(static_cast<uint32_t>(extra.size())) + Le16(0) + Le16(0) + Le16(0) + Le32(0) + Le32(0) + e.name +
            extra;
  }
  const auto count = static_cast<uint32_t>(entries.size());
  return cdir + "PK\x05\x06" + Le16(0) + Le16(0) + Le16(count) + Le16(count) +
         Le32(static_cast<uint32_t>(cdir.size())) + Le32(0) + Le16(0);
}

class Warnings : public RkArcLib::RkArcCallback {
 public:
  bool ReportMessage(uint32_t level, const RkLib::RkString& text) override {
    if (level == RkLib::kSeverityWarning) lines.push_back(text.toUtf8());
    return true;
  }
  std::vector<std::string> lines;
};

struct Loaded {
  std::vector<RkArcItem> items;
  std::vector<std::string> warnings;
  bool damaged = false;
};

Loaded Load(const std::vector<Entry>& entries) {
  ScratchFolder dir;
  RkZipFile zip(dir.Write("r.zip", Archive(entries)));
  Warnings warnings;
  zip.SetCallback(&warnings);
  RkState state;
  EXPECT_TRUE(zip.Load(0, -1, nullptr, state)) << state.code;
  Loaded loaded;
  for (int64_t i = 0; i < zip.GetItemCount(); ++i) {
    RkArcItem item;
    EXPECT_TRUE(zip.GetItem(i, item, state));
    loaded.items.push_back(item);
  }
  loaded.warnings = warnings.lines;
  loaded.damaged = zip.IsDamaged();
  return loaded;
}

TEST(RkZipReference, DuplicateFindsItsTargetByIndex) {
  const Loaded l = Load({{"a.txt", 0, 0, true}, {"data.bin", 8, 'x', true}, {"copy.bin", 92, 'x', true}});
  ASSERT_EQ(l.items.size(), 3u);
  ASSERT_TRUE(l.items[2].duplicateOf.has_value());
  EXPECT_EQ(*l.items[2].duplicateOf, 1);
  EXPECT_EQ(l.items[2].method, RkArcLib::RkArcMethod::kDuplicate);
  EXPECT_FALSE(l.items[1].duplicateOf.has_value());
  EXPECT_TRUE(l.warnings.empty());
  EXPECT_FALSE(l.damaged);
}

TEST(RkZipReference, ReferenceToNothingIsReportedAndDamages) {
  const Loaded l = Load({{"data.bin", 8, 'x', true}, {"copy.bin", 92, 'y', true}});
  ASSERT_EQ(l.items.size(), 2u);
  EXPECT_FALSE(l.items[1].duplicateOf.has_value());
  ASSERT_EQ(l.warnings.size(), 1u);
  EXPECT_NE(l.warnings[0].find("copy.bin"), std::string::npos) << l.warnings[0];
  EXPECT_TRUE(l.damaged);
}

TEST(RkZipReference, WrongCheckValueStripsTheReference) {
  // The target's record fails its check: it is no target, so the duplicate dangles as well.
  const Loaded l = Load({{"data.bin", 8, 'x', false}, {"copy.bin", 92, 'x', true}});
  ASSERT_EQ(l.items.size(), 2u);
  EXPECT_FALSE(l.items[1].duplicateOf.has_value());
  ASSERT_EQ(l.warnings.size(), 2u);
  EXPECT_NE(l.warnings[0].find("data.bin"), std::string::npos) << l.warnings[0];
  EXPECT_NE(l.warnings[1].find("copy.bin"), std::string::npos) << l.warnings[1];
  EXPECT_TRUE(l.damaged);
}

}  // namespace
}  // namespace RkArcTest
