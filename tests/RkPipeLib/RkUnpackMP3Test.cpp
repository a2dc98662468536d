// The MP3 method fails its entry alone: the node says "not supported" and the source before it
// stops without an error of its own.
#include <gtest/gtest.h>

#include "RkCodecTestUtil.h"
#include "RkUnpackMP3.h"

namespace RkPipeTest {
namespace {

TEST_F(PipeTest, UnpackMP3FailsItsEntryAsNotSupported) {
  const Bytes data = SampleData(3 * 1024 * 1024);
  const RkStreamSettings settings = SmallSettings(4096);  // the streams keep a pointer to it
  RkPipeLib::RkUnpackMP3 node(nullptr, nullptr, settings);
  const DecodeResult first = RunNode(node, data, settings);
  EXPECT_TRUE(FailedWith(first, RkPipeLib::RkUnpackMP3::kNotSupported));
  EXPECT_TRUE(first.output.empty());
  node.Reset();
  EXPECT_TRUE(FailedWith(RunNode(node, {}, settings), RkPipeLib::RkUnpackMP3::kNotSupported));
}

}  // namespace
}  // namespace RkPipeTest
