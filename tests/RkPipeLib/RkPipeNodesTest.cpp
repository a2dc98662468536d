// The file, memory, checksum and progress nodes in real pipes.
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <optional>
#include <string>

#include "RkCountOut.h"
#include "RkCrcCalculator.h"
#include "RkCrcProgress.h"
#include "RkFileIO.h"
#include "RkFileIn.h"
#include "RkFileOut.h"
#include "RkMemIn.h"
#include "RkMemOut.h"
#include "RkPipe.h"
#include "RkPipeTestUtil.h"
#include "RkProgress.h"
#include "RkProgressTracker.h"
#include "RkTextCount.h"

namespace RkPipeTest {
namespace {

using RkLib::FidString;
using RkLib::RkError;
using RkLib::RkFileIO;
using RkPipeLib::RkPipe;

std::optional<RkErrorInfo> RunPipe(RkPipe& pipe, RkPipeLib::RkUICallBack* callback = nullptr) {
  try {
    EXPECT_TRUE(pipe.Run(callback));
    return std::nullopt;
  } catch (const RkError& e) {
    return RkErrorInfo(e);
  }
}

std::vector<uint8_t> Data(size_t n) {
  std::vector<uint8_t> v(n);
  for (size_t i = 0; i < n; ++i) v[i] = PatternByte(i);
  return v;
}

class TempFolder {
 public:
  TempFolder()
      : path_(std::filesystem::temp_directory_path() / ("RkPipeNodesTest." + std::to_string(getpid()))) {
    std::filesystem::create_directories(path_);
  }
  ~TempFolder() { std::filesystem::remove_all(path_); }
  FidString Path(const std::string& name) const { return FidString::FromPosix((path_ / name).string()); }
  std::string Posix(const std::string& name) const { return (path_ / name).string(); }

 private:
  std::filesystem::path path_;
};

class FileCopy : public PipeTest, public testing::WithParamInterface<size_t> {};

// 1 KiB buffers read, 512 KiB ones written: the sizes meet only through the exchange.
TEST_P(FileCopy, FileInToFileOutCopiesEveryByte) {
  TempFolder folder;
  const std::vector<uint8_t> data = Data(GetParam());
  std::ofstream(folder.Posix("in"), std::ios::binary)
      .write(reinterpret_cast<const char*>(data.data()), static_cast<std::streamsize>(data.size()));
  RkFileIO in, out;
  ASSERT_TRUE(in.Open(folder.Path("in"), "rb"));
  ASSERT_TRUE(out.Open(folder.Path("out"), "wb"));
  const RkStreamSettings settings = SmallSettings(1024);
  RkPipeLib::RkFileIn source(&in, nullptr, nullptr, settings);
  RkPipeLib::RkCrcCalculator crc(nullptr, nullptr, settings);
  RkPipeLib::RkFileOut target(&out, nullptr, nullptr);
  RkPipe pipe(&source, {&crc}, &target);
  EXPECT_EQ(RunPipe(pipe), std::nullopt);
  out.Close();
  EXPECT_EQ(source.TotalRead(), data.size());
  EXPECT_EQ(target.TotalWritten(), data.size());
  EXPECT_EQ(crc.GetCrc(), RkLib::RkCrc32(0, data.data(), data.size()));
  std::ifstream copy(folder.Posix("out"), std::ios::binary);
  const std::vector<uint8_t> back((std::istreambuf_iterator<char>(copy)), std::istreambuf_iterator<char>());
  EXPECT_EQ(back, data);
}

INSTANTIATE_TEST_SUITE_P(PipeNodes, FileCopy, testing::Values(0, 1, 1024, 1025, 600 * 1024 + 3));

TEST_F(PipeTest, FileOutOnAFullDiskGives7018) {
  RkFileIO out;
  if (!out.Open(FidString(u"\\dev\\full"), "wb")) GTEST_SKIP() << "no /dev/full";
  const std::vector<uint8_t> data = Data(5000);
  const RkStreamSettings settings = SmallSettings(1024);
  RkPipeLib::RkMemIn source(data.data(), data.size(), nullptr, nullptr, settings);
  RkPipeLib::RkFileOut target(&out, nullptr, nullptr);
  RkPipe pipe(&source, {}, &target);
  EXPECT_EQ(RunPipe(pipe), RkErrorInfo(7018, 40));
}

TEST_F(PipeTest, FileOutOtherWriteFailureGives7008) {
  TempFolder folder;
  std::ofstream(folder.Posix("ro")) << "x";
  RkFileIO out;
  ASSERT_TRUE(out.Open(folder.Path("ro"), "rb"));  // writing to it fails, and not for space
  const std::vector<uint8_t> data = Data(10);
  RkPipeLib::RkMemIn source(data.data(), data.size(), nullptr, nullptr, SmallSettings(16));
  RkPipeLib::RkFileOut target(&out, nullptr, nullptr);
  RkPipe pipe(&source, {}, &target);
  EXPECT_EQ(RunPipe(pipe), RkErrorInfo(7008, 40));
}

TEST_F(PipeTest, FileInReadFailureIsNotAShortFile) {
  TempFolder folder;
  RkFileIO in;
  ASSERT_TRUE(in.Open(folder.Path("wo"), "wb"));  // reading from it fails
  const RkStreamSettings settings = SmallSettings(16);
  RkPipeLib::RkFileIn source(&in, nullptr, nullptr, settings);
  RkPipeLib::RkCountOut target(nullptr, nullptr, settings);
  RkPipe pipe(&source, {}, &target);
  EXPECT_EQ(RunPipe(pipe), RkErrorInfo(RkLib::kErrReadFile, 40));
}

TEST_F(PipeTest, ProgressTrackerAddsEveryByteAndTouchesNone) {
  const std::vector<uint8_t> data = Data(1000);
  const RkStreamSettings settings = SmallSettings(64);
  RkLib::RkThreadedProgress progress;
  RkPipeLib::RkMemIn source(data.data(), data.size(), nullptr, nullptr, settings);
  RkPipeLib::RkProgressTracker tracker(&progress, nullptr, nullptr, settings);
  RkPipeLib::RkMemOut target(nullptr, nullptr, RkPipeLib::RkMemOut::kNoLimit, settings);
  RkPipe pipe(&source, {&tracker}, &target);
  EXPECT_EQ(RunPipe(pipe), std::nullopt);
  EXPECT_EQ(progress.GetDone(), 1000);
  EXPECT_EQ(target.Bytes(), data);
}

// ---- RkCrcProgress.

struct CrcProgressRun {
  uint32_t crc;
  uint64_t total;
  uint32_t isText;
  RkLib::RkDigestValue digest;
  int64_t progress;
};

CrcProgressRun RunCrcProgress(const std::vector<uint8_t>& data, bool digest) {
  const RkStreamSettings settings = SmallSettings(100);
  RkLib::RkThreadedProgress progress;
  RkPipeLib::RkMemIn source(data.data(), data.size(), nullptr, nullptr, settings);
  RkPipeLib::RkCrcProgress node(nullptr, nullptr, settings);
  node.SetProgress(&progress);
  node.SetDigestEnabled(digest);
  RkPipeLib::RkCountOut target(nullptr, nullptr, settings);
  RkPipe pipe(&source, {&node}, &target);
  EXPECT_EQ(RunPipe(pipe), std::nullopt);
  EXPECT_EQ(target.Bytes(), data.size());
  return {node.GetCrc(), node.GetTotal(), node.IsText(), node.GetDigest(), progress.GetDone()};
}

std::vector<uint8_t> Text(const std::string& s) { return std::vector<uint8_t>(s.begin(), s.end()); }

TEST_F(PipeTest, CrcProgressKeepsCrcTotalProgressAndDigestInOnePass) {
  const std::vector<uint8_t> data = Data(12345);
  const CrcProgressRun run = RunCrcProgress(data, true);
  EXPECT_EQ(run.crc, RkLib::RkCrc32(0, data.data(), data.size()));
  EXPECT_EQ(run.total, data.size());
  EXPECT_EQ(run.progress, 12345);
  auto sha1 = RkLib::RkDigestFunction::Create(RkLib::kDigestSha1);
  sha1->Update(data.data(), data.size());
  sha1->Finish();
  RkLib::RkDigestValue expected;
  sha1->GetValue(&expected);
  EXPECT_EQ(run.digest, expected);
}

TEST_F(PipeTest, CrcProgressDigestOfAbcIsThePublishedOne) {
  const CrcProgressRun run = RunCrcProgress(Text("abc"), true);
  const uint8_t kSha1Abc[] = {0xa9, 0x99, 0x3e, 0x36, 0x47, 0x06, 0x81, 0x6a, 0xba, 0x3e,
                              0x25, 0x71, 0x78, 0x50, 0xc2, 0x6c, 0x9c, 0xd0, 0xd8, 0x9d};
  EXPECT_EQ(run.digest.kind, uint32_t{RkLib::kDigestSha1});
  EXPECT_EQ(std::vector<uint8_t>(run.digest.bytes, run.digest.bytes + 20),
            std::vector<uint8_t>(kSha1Abc, kSha1Abc + 20));
  EXPECT_EQ(run.crc, 0x352441C2u);
}

struct TextCase {
  const char* name;
  size_t inside;
  size_t outside;
  uint32_t expected;
};

class CrcProgressText : public PipeTest, public testing::WithParamInterface<TextCase> {};

// Text means at most a quarter as many bytes outside 7..127 as inside.
TEST_P(CrcProgressText, CountsAQuarterOutsideAsText) {
  const TextCase& c = GetParam();
  std::vector<uint8_t> data;
  for (size_t i = 0; i < c.inside; ++i) data.push_back(static_cast<uint8_t>(i % 2 ? 7 : 127));
  for (size_t i = 0; i < c.outside; ++i) data.push_back(static_cast<uint8_t>(i % 2 ? 6 : 128));
  EXPECT_EQ(RunCrcProgress(data, false).isText, c.expected);
}

INSTANTIATE_TEST_SUITE_P(PipeNodes, CrcProgressText,
                         testing::Values(TextCase{"Empty", 0, 0, 1}, TextCase{"AllText", 300, 0, 1},
                                         TextCase{"QuarterOutside", 400, 100, 1},
                                         TextCase{"JustOverAQuarter", 400, 101, 0},
                                         TextCase{"UnevenInside", 403, 100, 1},
                                         TextCase{"Binary", 10, 300, 0}),
                         [](const auto& row) { return std::string(row.param.name); });

TEST(TextCount, VectorAndScalarPathsAgreeAtEveryLengthAndOffset) {
  std::vector<uint8_t> data(1000);
  for (size_t i = 0; i < data.size(); ++i) data[i] = static_cast<uint8_t>(i * 37 + 11);
  for (size_t offset : {0, 1, 13}) {
    for (size_t length = 0; length + offset <= data.size(); length += 7) {
      uint64_t expected = 0;
      for (size_t i = 0; i < length; ++i) expected += data[offset + i] >= 7 && data[offset + i] <= 127;
      ASSERT_EQ(RkLib::RkCountTextBytes(data.data() + offset, length), expected)
          << offset << "+" << length;
    }
  }
  // Past 255 blocks the byte counters are summed before they overflow.
  const std::vector<uint8_t> text(64 * 300 + 5, 'a');
  EXPECT_EQ(RkLib::RkCountTextBytes(text.data(), text.size()), text.size());
}

class StopAfter : public RkPipeLib::RkUICallBack {
 public:
  explicit StopAfter(int polls) : left_(polls) {}
  bool Poll(RkLib::RkMsgQueue*) override { return left_-- > 0; }

 private:
  std::atomic<int> left_;
};

TEST_F(PipeTest, CrcProgressCancelThroughItsCallbackGives7002) {
  const std::vector<uint8_t> data = Data(5000);
  const RkStreamSettings settings = SmallSettings(100);
  RkPipeLib::RkMemIn source(data.data(), data.size(), nullptr, nullptr, settings);
  RkPipeLib::RkCrcProgress node(nullptr, nullptr, settings);
  StopAfter callback(3);
  node.SetUICallBack(&callback);
  RkPipeLib::RkCountOut target(nullptr, nullptr, settings);
  RkPipe pipe(&source, {&node}, &target);
  EXPECT_EQ(RunPipe(pipe), RkErrorInfo(7002, 40));
  EXPECT_EQ(node.GetTotal(), 400u);
}

TEST_F(PipeTest, CrcNodesStartAgainAfterReset) {
  const std::vector<uint8_t> first = Text("first item"), second = Text("second");
  const RkStreamSettings settings = SmallSettings(4);
  RkPipeLib::RkMemIn source(first.data(), first.size(), nullptr, nullptr, settings);
  RkPipeLib::RkCrcCalculator crc(nullptr, nullptr, settings);
  RkPipeLib::RkCrcProgress progress(nullptr, nullptr, settings);
  for (const auto* data : {&first, &second}) {
    source.SetData(data->data(), data->size());
    source.OutputStream()->Reset();
    crc.Reset();
    progress.Reset();
    RkPipeLib::RkCountOut target(nullptr, nullptr, settings);
    RkPipe pipe(&source, {&crc, &progress}, &target);
    EXPECT_EQ(RunPipe(pipe), std::nullopt);
    EXPECT_EQ(crc.GetCrc(), RkLib::RkCrc32(0, data->data(), data->size()));
    EXPECT_EQ(progress.GetCrc(), crc.GetCrc());
    EXPECT_EQ(progress.GetTotal(), data->size());
  }
}

}  // namespace
}  // namespace RkPipeTest

namespace RkPipeTest {
namespace {

// Flips every byte of what passes: a node that changes the bytes of the buffers it takes in place,
// as a decryptor does, and so must make a lent buffer its own first.
class InPlaceFlip : public RkPipeLib::RkLinkNode {
 public:
  explicit InPlaceFlip(const RkStreamSettings& settings) : RkLinkNode(nullptr, nullptr, settings) {}
  void Run() override {
    PassBuffers([this](RkPipeBuffer& buffer) {
      if (buffer.isLent()) ++lent;
      buffer.makeOwn();
      for (uint8_t* p = buffer.readPos(); p != buffer.writeEnd(); ++p) *p = static_cast<uint8_t>(~*p);
    });
  }
  int lent = 0;
};

TEST_F(PipeTest, MemInLendsItsBytesAndAWriterInPlaceLeavesThemAlone) {
  const RkStreamSettings settings = SmallSettings(64, 3);
  std::vector<uint8_t> data(1000);
  for (size_t i = 0; i < data.size(); ++i) data[i] = PatternByte(i);
  const std::vector<uint8_t> original = data;
  RkPipeLib::RkMemIn source(data.data(), data.size(), nullptr, nullptr, settings);
  InPlaceFlip flip(settings);
  RkPipeLib::RkMemOut target(nullptr, nullptr, RkPipeLib::RkMemOut::kNoLimit, settings);
  RkPipeLib::RkPipe pipe(&source, {&flip}, &target);
  ASSERT_TRUE(pipe.Run(nullptr));
  EXPECT_EQ(data, original) << "the owner's bytes were written through a lent buffer";
  ASSERT_EQ(target.Bytes().size(), data.size());
  for (size_t i = 0; i < data.size(); ++i) ASSERT_EQ(target.Bytes()[i], static_cast<uint8_t>(~data[i])) << i;
  EXPECT_EQ(flip.lent, 16);  // every piece of 64 bytes came lent
}

// A stream that ends its life with lent buffers still in its rings frees its own storage only;
// under the address sanitizer a wrong free would fail this test.
TEST(PipeBuffer, LentBufferGoesBackToItsOwnStorage) {
  const uint8_t bytes[5] = {1, 2, 3, 4, 5};
  RkPipeBuffer buffer(8);
  uint8_t* own = buffer.base();
  buffer.lend(bytes, sizeof bytes);
  EXPECT_TRUE(buffer.isLent());
  EXPECT_EQ(buffer.capacity(), 5u);
  EXPECT_EQ(buffer.room(), 0u);
  buffer.consume(2);
  buffer.makeOwn();
  EXPECT_FALSE(buffer.isLent());
  EXPECT_EQ(buffer.base(), own);
  EXPECT_EQ(buffer.remaining(), 3u);
  EXPECT_EQ(buffer.readPos()[0], 3);
  EXPECT_EQ(buffer.capacity(), 8u);
  buffer.lend(bytes, 2);
  buffer.reset();
  EXPECT_EQ(buffer.base(), own);
  EXPECT_EQ(buffer.capacity(), 8u);

  RkPipeLib::RkDStream stream(SmallSettings(8));
  RkPipeBuffer* lent = stream.getFree();
  lent->lend(bytes, sizeof bytes);
  stream.put(lent);  // destroyed with the stream, lent
}

}  // namespace
}  // namespace RkPipeTest
