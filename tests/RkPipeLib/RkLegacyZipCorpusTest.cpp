// Every shrunk, reduced and imploded member of the shared corpus, decoded by the node that the zip
// method selects and checked against the CRC and size of its central record; where the corpus
// holds the plain files (the defacto2 lorem ipsum texts), against those bytes too.
#include <gtest/gtest.h>

#include <cctype>
#include <set>
#include <string>

#include "RkExplode.h"
#include "RkLegacyZipTestUtil.h"
#include "RkUnreduce.h"
#include "RkUnshrink.h"

namespace RkPipeTest {
namespace {

bool IsLegacyMethod(uint16_t method) { return method >= 1 && method <= 6; }

// The node and arguments of the zip method table: the implode flags come from the entry's flag
// bits 1 (8 KiB dictionary) and 2 (literal tree).
DecodeResult DecodeMember(const ZipMember& m, const RkStreamSettings& in, const RkStreamSettings& out) {
  if (m.method == 1) return Decode<RkPipeLib::RkUnshrink>(m.data, in, out);
  if (m.method == 6) {
    const uint8_t flags = static_cast<uint8_t>((m.flags >> 1) & 3);
    return Decode<RkPipeLib::RkExplode>(m.data, in, out, flags, m.size);
  }
  return Decode<RkPipeLib::RkUnreduce>(m.data, in, out, static_cast<uint32_t>(m.method - 1), m.size);
}

struct CorpusZip {
  const char* name;
  const char* path;
  size_t legacyMembers;
  std::set<uint16_t> methods;
};

const CorpusZip kCorpusZips[] = {
    {"HwShrink", "defacto2-archive/HWSHRINK.ZIP", 3, {1}},
    {"HwReduce", "defacto2-archive/HWREDUCE.ZIP", 2, {5}},
    {"HwImplode", "defacto2-archive/HWIMPODE.ZIP", 3, {6}},
    {"ExpandExample", "defacto2-archive/expand_example-r.zip", 1, {5}},
    {"ExplodeExample", "defacto2-archive/explode_example-i.zip", 1, {6}},
    {"UnshrinkExample", "defacto2-archive/unshrink_example-s.zip", 1, {1}},
    {"Shrunk", "commons-compress/zip/SHRUNK.ZIP", 2, {1}},
    {"Implode4K2Trees", "commons-compress/zip/imploding-4Kdict-2trees.zip", 1, {6}},
    {"Implode8K3Trees", "commons-compress/zip/imploding-8Kdict-3trees.zip", 1, {6}},
    {"LoremImplode", "commons-compress/zip/lorem-ipsum-implode.zip", 1, {6}},
    {"MobyImploded", "commons-compress/zip/moby-imploded.zip", 135, {1, 6}},
};

struct Shape {
  const char* name;
  int32_t input;
  int32_t output;
};
// Byte-sized input blocks put every code across a cut; the output stays large so that a run
// over the whole corpus stays short.
const Shape kShapes[] = {{"Default", RkStreamSettings::kDefaultBufferSize, RkStreamSettings::kDefaultBufferSize},
                         {"ByteInput", 1, 4096},
                         {"OddSmall", 7, 13}};

class LegacyZipCorpus : public PipeTest, public testing::WithParamInterface<std::tuple<CorpusZip, Shape>> {};

TEST_P(LegacyZipCorpus, EveryMemberMatchesItsCentralRecord) {
  RK_REQUIRE_CORPUS();
  const auto& [zip, shape] = GetParam();
  const std::filesystem::path path = CorpusPath(zip.path);
  ASSERT_TRUE(std::filesystem::exists(path)) << path << " is named in its MANIFEST but missing";
  const std::vector<ZipMember> members = ReadZipMembers(ReadAll(path.string()));
  ASSERT_FALSE(members.empty());
  const RkStreamSettings in = SmallSettings(shape.input);
  const RkStreamSettings out = SmallSettings(shape.output);

  // In small blocks the many members of the big sample cost seconds each; every seventh does.
  const size_t stride = shape.input < 64 && zip.legacyMembers > 10 ? 7 : 1;
  size_t legacy = 0;
  std::set<uint16_t> methods;
  for (const ZipMember& m : members) {
    if (!IsLegacyMethod(m.method)) continue;
    methods.insert(m.method);
    if (legacy++ % stride != 0) continue;
    const DecodeResult r = DecodeMember(m, in, out);
    ASSERT_FALSE(r.error) << m.name << ": " << Describe(r.error);
    EXPECT_EQ(r.output.size(), m.size) << m.name;
    EXPECT_EQ(Crc(r.output), m.crc) << m.name;
    // The defacto2 samples are the three texts beside them.
    const std::filesystem::path plain = path.parent_path() / m.name;
    if (std::filesystem::exists(plain)) {
      EXPECT_TRUE(ReadAll(plain.string()) == r.output) << m.name;
    }
    // Shrink ends with its input; the others stop at the size, within the member's bytes.
    if (m.method == 1) {
      EXPECT_EQ(r.bytesRead, m.data.size()) << m.name;
    } else {
      EXPECT_LE(r.bytesRead, m.data.size()) << m.name;
    }
  }
  EXPECT_EQ(legacy, zip.legacyMembers);
  EXPECT_EQ(methods, zip.methods);
}

INSTANTIATE_TEST_SUITE_P(Corpus, LegacyZipCorpus,
                         testing::Combine(testing::ValuesIn(kCorpusZips), testing::ValuesIn(kShapes)),
                         [](const auto& row) {
                           return std::string(std::get<0>(row.param).name) + "_" + std::get<1>(row.param).name;
                         });

// Any other zip in the corpus that holds one of these methods is decoded too, so that a sample
// added later is not left out; the named ones above must all be among them.
class LegacyZipCorpusScan : public PipeTest {};

TEST_F(LegacyZipCorpusScan, EveryLegacyMemberInTheCorpusDecodes) {
  RK_REQUIRE_CORPUS();
  size_t found = 0;
  const RkStreamSettings settings = SmallSettings(RkStreamSettings::kDefaultBufferSize);
  for (const auto& entry : std::filesystem::recursive_directory_iterator(RK_CORPUS_DIR)) {
    if (!entry.is_regular_file() || entry.file_size() > (8u << 20)) continue;
    std::string ext = entry.path().extension().string();
    for (char& c : ext) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    if (ext != ".zip" && ext != ".jar") continue;
    for (const ZipMember& m : ReadZipMembers(ReadAll(entry.path().string()))) {
      if (!IsLegacyMethod(m.method) || (m.flags & 1)) continue;  // encrypted data is not ours to read
      ++found;
      const DecodeResult r = DecodeMember(m, settings, settings);
      ASSERT_FALSE(r.error) << entry.path() << " " << m.name << ": " << Describe(r.error);
      EXPECT_EQ(Crc(r.output), m.crc) << entry.path() << " " << m.name;
      EXPECT_EQ(r.output.size(), m.size) << entry.path() << " " << m.name;
    }
  }
  size_t named = 0;
  for (const CorpusZip& zip : kCorpusZips) named += zip.legacyMembers;
  EXPECT_GE(found, named);
}

}  // namespace
}  // namespace RkPipeTest
