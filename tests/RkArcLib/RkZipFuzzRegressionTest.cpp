// Inputs the zip load fuzzer once failed on, and the names that took it longest: each must load
// and list cleanly.
#include <gtest/gtest.h>

#include <string>

#include "RkArcCallback.h"
#include "RkArcItem.h"
#include "RkArcTestUtil.h"
#include "RkZipFile.h"

namespace RkArcTest {
namespace {

using RkArcLib::RkArcItem;
using RkArcLib::RkState;
using RkArcLib::RkZipFile;

std::string FromHex(std::string_view hex) {
  std::string bytes;
  for (size_t i = 0; i + 1 < hex.size(); i += 2) bytes.push_back(static_cast<char>(std::stoi(std::string(hex.substr(i, 2)), nullptr, 16)));
  return bytes;
}

class Accepting : public RkArcLib::RkArcCallback {
 public:
  bool ReportMessage(uint32_t, const RkLib::RkString&) override { return true; }
};

// Loads and lists every item; returns the names.
std::vector<RkLib::RkString> LoadAndList(const std::string& bytes) {
  ScratchFolder dir;
  RkZipFile zip(dir.Write("f.zip", bytes));
  Accepting callback;
  zip.SetCallback(&callback);
  RkState state;
  EXPECT_TRUE(zip.Load(0, -1, nullptr, state)) << state.code;
  std::vector<RkLib::RkString> names;
  for (int64_t i = 0; i < zip.GetItemCount(); ++i) {
    RkArcItem item;
    EXPECT_TRUE(zip.GetItem(i, item, state)) << i;
    EXPECT_TRUE(item.modified.isSet && item.modified.isValid()) << i;
    names.push_back(item.name);
  }
  return names;
}

// A zip64 entry whose DOS date is 0, which is no date: the item gets a valid time all the same.
TEST(RkZipFuzzRegression, DosDateZero) {
  const std::string zip = FromHex(
      "504b03042d00000000000000000086a61036ffffffffffffffff0900140068656c6c6f2e747874010010000500000001000000"
      "050000000000000068656c6c6f504b01022d002d00000000000000000086a61036ffffffffffffffff0900140000000000000000"
      "0000000000000068656c6c6f2e7478740100100005000000010000000500000000000000504b050600000000010001004b0000"
      "00400000000000");
  const auto names = LoadAndList(zip);
  ASSERT_EQ(names.size(), 1u);
  EXPECT_EQ(names[0], RkLib::RkString(u"hello.txt"));
}

// A name of 60,002 characters with one separator near its start: cut to the longest beginning whose
// parts fit, in one step rather than a character at a time.
TEST(RkZipFuzzRegression, HugeNameIsShortenedToItsFittingBeginning) {
  const std::string name = "d/" + std::string(60000, 'a');
  std::string central(46, '\0');
  const auto put16 = [](std::string& s, size_t at, uint32_t v) {
    s[at] = static_cast<char>(v);
    s[at + 1] = static_cast<char>(v >> 8);
  };
  central.replace(0, 4, "PK\x01\x02", 4);
  put16(central, 12, 0);
  put16(central, 14, 0x5A21);
  put16(central, 28, static_cast<uint32_t>(name.size()));
  std::string end(22, '\0');
  end.replace(0, 4, "PK\x05\x06", 4);
  put16(end, 8, 1);
  put16(end, 10, 1);
  const uint32_t cdirSize = static_cast<uint32_t>(central.size() + name.size());
  put16(end, 12, cdirSize & 0xFFFF);
  put16(end, 14, cdirSize >> 16);
  const auto names = LoadAndList(central + name + end);
  ASSERT_EQ(names.size(), 1u);
  EXPECT_EQ(names[0], RkLib::RkString(u"d\\" + std::u16string(255, u'a')));
}

}  // namespace
}  // namespace RkArcTest
