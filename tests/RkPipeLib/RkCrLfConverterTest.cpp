// Line ends made CR LF, through a real pipe whose buffer size sets where the blocks split.
#include <gtest/gtest.h>

#include <string>

#include "RkCrLfConverter.h"
#include "RkMemIn.h"
#include "RkMemOut.h"
#include "RkPipe.h"
#include "RkPipeTestUtil.h"

namespace RkPipeTest {
namespace {

struct LineEndCase {
  const char* name;
  std::string input;
  int32_t blockSize;
  std::string expected;
};

class CrLfConverter : public PipeTest, public testing::WithParamInterface<LineEndCase> {};

TEST_P(CrLfConverter, MakesPairsUnlessTheStartLooksBinary) {
  const LineEndCase& c = GetParam();
  const RkStreamSettings settings = SmallSettings(c.blockSize);
  RkPipeLib::RkMemIn source(c.input.data(), c.input.size(), nullptr, nullptr, settings);
  RkPipeLib::RkCrLfConverter converter(nullptr, nullptr, settings);
  RkPipeLib::RkMemOut target(nullptr, nullptr, RkPipeLib::RkMemOut::kNoLimit, settings);
  RkPipeLib::RkPipe pipe(&source, {&converter}, &target);
  ASSERT_TRUE(pipe.Run(nullptr));
  EXPECT_EQ(std::string(target.Bytes().begin(), target.Bytes().end()), c.expected);
}

const std::string k80Text(80, 'x');

INSTANTIATE_TEST_SUITE_P(
    PipeNodes, CrLfConverter,
    testing::Values(
        LineEndCase{"BareCr", "a\rb", 64, "a\r\nb"}, LineEndCase{"PairUnchanged", "a\r\nb", 64, "a\r\nb"},
        LineEndCase{"BareLf", "a\nb", 64, "a\r\nb"}, LineEndCase{"TwoCrs", "a\r\rb", 64, "a\r\n\r\nb"},
        LineEndCase{"LfCr", "\n\r", 64, "\r\n\r"},
        LineEndCase{"PairSplitOverTwoBlocks", "ab\r\ncd", 3, "ab\r\ncd"},
        LineEndCase{"CrEndsABlockBeforeText", "ab\rcd", 3, "ab\r\ncd"},
        LineEndCase{"LfStartsABlock", "abc\nd", 3, "abc\r\nd"},
        LineEndCase{"CrLastByteGetsNoLf", "a\r", 64, "a\r"}, LineEndCase{"Empty", "", 64, ""},
        LineEndCase{"PdfMagicKeepsBytes", "%PDF-1.4\n", 64, "%PDF-1.4\n"},
        LineEndCase{"PdfMagicAnyCase", "%pdf-1.4\n", 64, "%pdf-1.4\n"},
        LineEndCase{"RtfMagicAnyCase", "{\\RTF1 a\n}", 64, "{\\RTF1 a\n}"},
        LineEndCase{"MagicNotTestedInSixBytes", "%PDF-\n", 64, "%PDF-\r\n"},
        LineEndCase{"MagicNotTestedInAShortFirstBlock", "%PDF-1.4\n", 6, "%PDF-1.4\r\n"},
        LineEndCase{"ControlByteIsBinary", std::string("a\x01\n", 3), 64, std::string("a\x01\n", 3)},
        LineEndCase{"HighByteIsBinary", "a\xE9\n", 64, "a\xE9\n"},
        LineEndCase{"TabFormFeedAndDeleteAreText", "\t\f\x7F\n", 64, "\t\f\x7F\r\n"},
        LineEndCase{"OnlyTheFirst80BytesAreTested", k80Text + "\x01\n", 128, k80Text + "\x01\r\n"},
        LineEndCase{"OnlyTheFirstBlockIsTested", "ab\x01\n", 2, "ab\x01\r\n"}),
    [](const auto& row) { return std::string(row.param.name); });

}  // namespace
}  // namespace RkPipeTest
