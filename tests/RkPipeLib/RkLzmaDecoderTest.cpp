// The ZIP form of LZMA against entries that 7zz and Python's zipfile make at test time, with and
// without the end marker, and against headers and properties changed field by field.
#include <gtest/gtest.h>

#include "RkCodecTestUtil.h"
#include "RkLzmaDecoder.h"

namespace RkPipeTest {
namespace {

using RkPipeLib::RkLzmaDecoder;

constexpr uint32_t kBadData = 7010;
constexpr uint32_t kReadPastEnd = 7006;
constexpr uint32_t kBadHeader = 7016;
constexpr uint32_t kTooLarge = 7017;

// The first entry of a zip whose local header holds the sizes (no data descriptor).
struct ZipEntry {
  Bytes data;  // the compressed bytes: the LZMA header, the properties, the coded data
  uint64_t size = 0;
  bool endMarker = false;  // flag bit 1
  // What the extraction passes to the node for this entry.
  uint64_t NodeSize() const { return endMarker ? RkLzmaDecoder::kSizeUnknown : size; }
};

uint32_t Le(const Bytes& b, size_t at, int bytes) {
  uint32_t v = 0;
  for (int i = bytes - 1; i >= 0; --i) v = v << 8 | b[at + static_cast<size_t>(i)];
  return v;
}

ZipEntry FirstEntry(const Bytes& zip) {
  ZipEntry entry;
  if (zip.size() < 30 || Le(zip, 0, 4) != 0x04034B50) {
    ADD_FAILURE() << "no local header";
    return entry;
  }
  EXPECT_EQ(Le(zip, 8, 2), 14u) << "not an LZMA entry";
  entry.endMarker = (Le(zip, 6, 2) & 2) != 0;
  const uint32_t compressed = Le(zip, 18, 4);
  entry.size = Le(zip, 22, 4);
  const size_t start = 30 + Le(zip, 26, 2) + Le(zip, 28, 2);
  entry.data.assign(zip.begin() + static_cast<long>(start), zip.begin() + static_cast<long>(start + compressed));
  return entry;
}

class LzmaEntries : public PipeTest {
 protected:
  // An entry of `data` made by 7zz with `method` (-mm=...), or by Python when it is empty.
  ZipEntry Make(const Bytes& data, const std::string& method) {
    WriteAll(folder_ / "file", data);
    const std::string zip = folder_ / "out.zip";
    std::filesystem::remove(zip);
    if (method.empty()) {
      EXPECT_TRUE(Shell("python3 -c \"import zipfile; z = zipfile.ZipFile('" + zip +
                        "', 'w', zipfile.ZIP_LZMA); z.write('" + folder_ / "file" + "', 'file'); z.close()\""));
    } else {
      EXPECT_TRUE(Shell("cd " + folder_ / "" + " && 7zz a -tzip -mm=" + method + " out.zip file"));
    }
    return FirstEntry(ReadAll(zip));
  }

  ScratchFolder folder_;
};

struct LzmaMaker {
  const char* name;
  const char* method;  // empty: Python's zipfile
  bool endMarker;
};

// 7zz stores what does not shrink, so its entries start at a few hundred bytes.
const LzmaMaker kSevenZipMakers[] = {
    {"SevenZipNoMarker", "LZMA:eos=off", false},
    {"SevenZipMarker", "LZMA", true},
    {"SevenZipFastNoMarker", "LZMA:eos=off:x=1", false},
    {"SevenZipWideLiteralsNoMarker", "LZMA:eos=off:lc=4:lp=0:pb=0", false},
};
const LzmaMaker kPythonMaker = {"Python", "", true};

class LzmaRoundTrips : public LzmaEntries,
                       public testing::WithParamInterface<std::tuple<LzmaMaker, size_t, BufferShape>> {};

TEST_P(LzmaRoundTrips, DecodesWhatTheToolWrote) {
  const auto& [maker, size, shape] = GetParam();
  if (*maker.method) RK_REQUIRE_TOOL("7zz");
  RK_REQUIRE_TOOL("python3");
  const Bytes data = SampleData(shape.Fit(size));
  const ZipEntry entry = Make(data, maker.method);
  ASSERT_EQ(entry.endMarker, maker.endMarker);
  ASSERT_EQ(entry.size, data.size());
  const DecodeResult result = Decode<RkLzmaDecoder>(entry.data, SmallSettings(shape.inputSize),
                                                    SmallSettings(shape.outputSize), entry.NodeSize());
  EXPECT_TRUE(Decoded(result, data));
  EXPECT_EQ(result.bytesRead, entry.data.size());
  if (entry.endMarker) {
    // The size that the central directory holds serves as well: the marker sits right there.
    EXPECT_TRUE(Decoded(Decode<RkLzmaDecoder>(entry.data, entry.size), data));
  }
}

std::string RoundTripName(const testing::TestParamInfo<LzmaRoundTrips::ParamType>& row) {
  return std::string(std::get<0>(row.param).name) + "Size" + std::to_string(std::get<1>(row.param)) +
         std::get<2>(row.param).name;
}

INSTANTIATE_TEST_SUITE_P(SevenZip, LzmaRoundTrips,
                         testing::Combine(testing::ValuesIn(kSevenZipMakers),
                                          testing::Values(size_t{300}, size_t{400000}),
                                          testing::ValuesIn(kBufferShapes)),
                         RoundTripName);
INSTANTIATE_TEST_SUITE_P(Python, LzmaRoundTrips,
                         testing::Combine(testing::Values(kPythonMaker),
                                          testing::Values(size_t{0}, size_t{1}, size_t{300}, size_t{400000}),
                                          testing::ValuesIn(kBufferShapes)),
                         RoundTripName);

// A made-up entry: the ZIP LZMA header and the properties of one byte of lc/lp/pb and the
// dictionary, followed by `tail`.
Bytes Header(uint16_t propertiesLength, uint8_t packed, uint32_t dictionary, const Bytes& tail = {}) {
  Bytes b = {9, 20, static_cast<uint8_t>(propertiesLength), static_cast<uint8_t>(propertiesLength >> 8), packed};
  for (int i = 0; i < 4; ++i) b.push_back(static_cast<uint8_t>(dictionary >> (8 * i)));
  b.insert(b.end(), tail.begin(), tail.end());
  return b;
}

constexpr uint8_t kDefaultPacked = 0x5D;  // lc 3, lp 0, pb 2

struct LzmaFault {
  const char* name;
  Bytes input;
  uint64_t size;
  uint32_t code;
};

class LzmaFaults : public PipeTest, public testing::WithParamInterface<LzmaFault> {};

TEST_P(LzmaFaults, FailWithTheirCode) {
  EXPECT_TRUE(FailedWith(Decode<RkLzmaDecoder>(GetParam().input, GetParam().size), GetParam().code));
  EXPECT_TRUE(FailedWith(Decode<RkLzmaDecoder>(GetParam().input, SmallSettings(1), SmallSettings(2), GetParam().size),
                         GetParam().code));
}

const Bytes kZeroes(16, 0);

INSTANTIATE_TEST_SUITE_P(
    PipeNodes, LzmaFaults,
    testing::Values(LzmaFault{"PropertiesLengthFour", Header(4, kDefaultPacked, 1 << 16, kZeroes), 10, kBadHeader},
                    LzmaFault{"PropertiesLengthSix", Header(6, kDefaultPacked, 1 << 16, kZeroes), 10, kBadHeader},
                    LzmaFault{"PropertiesLengthHighByte", Header(0x105, kDefaultPacked, 1 << 16, kZeroes), 10,
                              kBadHeader},
                    LzmaFault{"PackedPropertiesPastTheLast", Header(5, 225, 1 << 16, kZeroes), 10, kBadHeader},
                    LzmaFault{"EightLiteralContextBits", Header(5, 8, 1 << 16, kZeroes), 10, kBadHeader},
                    // A 4 GiB window for data of unknown size is refused before it is allocated.
                    LzmaFault{"HugeDictionaryUnknownSize", Header(5, kDefaultPacked, 0xFFFFFFFF, kZeroes),
                              RkLzmaDecoder::kSizeUnknown, kTooLarge},
                    LzmaFault{"HugeDictionaryHugeSize", Header(5, kDefaultPacked, 0xFFFFFFFF, kZeroes),
                              uint64_t{1} << 40, kTooLarge},
                    // The range coder's first byte is always 0.
                    LzmaFault{"RangeCoderFirstByte", Header(5, kDefaultPacked, 1 << 16, Bytes(16, 0xFF)), 10, kBadData},
                    LzmaFault{"Empty", {}, 10, kReadPastEnd}, LzmaFault{"HeaderCut", {9, 20, 5}, 10, kReadPastEnd},
                    LzmaFault{"PropertiesCut", {9, 20, 5, 0, kDefaultPacked, 0}, 10, kReadPastEnd},
                    LzmaFault{"NoData", Header(5, kDefaultPacked, 1 << 16), 10, kReadPastEnd}),
    [](const auto& row) { return std::string(row.param.name); });

TEST_F(LzmaEntries, AHugeDictionaryIsCutToAKnownSize) {
  RK_REQUIRE_TOOL("7zz");
  const Bytes data = SampleData(5000);
  ZipEntry entry = Make(data, "LZMA:eos=off");
  for (int i = 5; i < 9; ++i) entry.data[static_cast<size_t>(i)] = 0xFF;  // claims 4 GiB
  EXPECT_TRUE(Decoded(Decode<RkLzmaDecoder>(entry.data, entry.size), data));
}

struct LzmaDamage {
  const char* name;
  const char* method;
  // Makes the bad input and the size to give from a good entry.
  void (*spoil)(ZipEntry& entry);
  uint32_t code;
};

class LzmaDamaged : public LzmaEntries, public testing::WithParamInterface<LzmaDamage> {};

TEST_P(LzmaDamaged, FailsWithTheCodeOfTheFault) {
  RK_REQUIRE_TOOL("7zz");
  ZipEntry entry = Make(SampleData(100000), GetParam().method);
  GetParam().spoil(entry);
  EXPECT_TRUE(FailedWith(Decode<RkLzmaDecoder>(entry.data, entry.NodeSize()), GetParam().code));
}

INSTANTIATE_TEST_SUITE_P(
    PipeNodes, LzmaDamaged,
    testing::Values(LzmaDamage{"CutWithoutMarker", "LZMA:eos=off",
                               [](ZipEntry& e) {
                                 e.data.erase(e.data.begin() + static_cast<long>(e.data.size() / 2), e.data.end());
                               },
                               kReadPastEnd},
                    LzmaDamage{"CutBeforeTheMarker", "LZMA",
                               [](ZipEntry& e) { e.data.erase(e.data.end() - 3, e.data.end()); }, kReadPastEnd},
                    // With the marker expected where there is none, the coder runs out of data.
                    LzmaDamage{"MarkerMissing", "LZMA:eos=off", [](ZipEntry& e) { e.endMarker = true; }, kReadPastEnd},
                    // A marker before the size.
                    LzmaDamage{"MarkerEarly", "LZMA",
                               [](ZipEntry& e) {
                                 e.endMarker = false;
                                 e.size += 10;
                               },
                               kBadData}),
    [](const auto& row) { return std::string(row.param.name); });

// Found by the fuzz target: one byte, lc 0 lp 0 pb 0, an end marker right at the known size,
// read in 9-byte buffers.
TEST_F(PipeTest, LzmaFuzzMarkerRightAtAKnownSizeOfOne) {
  const Bytes entry = {9,    20,   5,    0,    0x00, 0x00, 0x00, 0x20, 0x00, 0x00,
                       0x1D, 0xC3, 0xEB, 0xFF, 0xFF, 0xFF, 0xE1, 0x00, 0x00, 0x00};
  for (int32_t size : {9, 1, 64}) {
    SCOPED_TRACE(size);
    EXPECT_TRUE(Decoded(Decode<RkLzmaDecoder>(entry, SmallSettings(size, 3), SmallSettings(size, 3), uint64_t{1}),
                        FromString(";")));
    EXPECT_TRUE(Decoded(
        Decode<RkLzmaDecoder>(entry, SmallSettings(size, 3), SmallSettings(size, 3), RkLzmaDecoder::kSizeUnknown),
        FromString(";")));
  }
}

TEST_F(LzmaEntries, TheDataEndsAtTheSizeWhateverFollows) {
  RK_REQUIRE_TOOL("7zz");
  const Bytes data = SampleData(20000);
  const ZipEntry entry = Make(data, "LZMA:eos=off");
  EXPECT_TRUE(Decoded(Decode<RkLzmaDecoder>(Concat(entry.data, SampleData(3000, 7)), entry.size), data));
  // A size short of the data's ends the output there; the entry's CRC is what tells.
  const Bytes head(data.begin(), data.begin() + 12345);
  EXPECT_TRUE(Decoded(Decode<RkLzmaDecoder>(entry.data, uint64_t{12345}), head));
  EXPECT_TRUE(Decoded(Decode<RkLzmaDecoder>(entry.data, SmallSettings(3), SmallSettings(5), uint64_t{12345}), head));
}

TEST_F(LzmaEntries, AResetNodeDecodesCleanlyAfterAFailure) {
  RK_REQUIRE_TOOL("7zz");
  const Bytes data = SampleData(300000);
  const ZipEntry entry = Make(data, "LZMA:eos=off");
  Bytes bad = entry.data;
  bad.erase(bad.end() - 100, bad.end());
  const RkStreamSettings settings = SmallSettings(4096);
  RkLzmaDecoder node(entry.size, nullptr, nullptr, settings);
  EXPECT_TRUE(FailedWith(RunNode(node, bad, settings), kReadPastEnd));
  node.Reset();
  EXPECT_TRUE(Decoded(RunNode(node, entry.data, settings), data));
  const ZipEntry other = Make(SampleData(777, 3), "LZMA");
  node.Reset();
  node.SetUncompressedSize(other.NodeSize());
  EXPECT_TRUE(Decoded(RunNode(node, other.data, settings), SampleData(777, 3)));
}

}  // namespace
}  // namespace RkPipeTest
