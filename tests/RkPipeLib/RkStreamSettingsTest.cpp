// The fourteen tuning keys: ranges, defaults, flags, and the read through the settings store.
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <map>
#include <string>

#include "RkDStream.h"
#include "RkStreamSettings.h"

namespace {

using RkPipeLib::RkStreamSettings;

// One key set to one value, every other key absent.
RkStreamSettings With(std::u16string_view key, int32_t value) {
  return RkStreamSettings::FromLookup([=](std::u16string_view asked) { return asked == key ? value : 0; });
}

struct RangeCase {
  const char* name;
  std::u16string_view key;
  int32_t value;
  int32_t RkStreamSettings::*field;
  int32_t expected;
};

class StreamSettingsRange : public testing::TestWithParam<RangeCase> {};

TEST_P(StreamSettingsRange, TakesValuesInRangeAndKeepsTheDefaultOtherwise) {
  const RangeCase& c = GetParam();
  EXPECT_EQ(With(c.key, c.value).*c.field, c.expected);
}

INSTANTIATE_TEST_SUITE_P(
    StreamSettings, StreamSettingsRange,
    testing::Values(
        RangeCase{"CountBelowRange", u"PipeBufferCount", 1, &RkStreamSettings::pipeBufferCount, 2},
        RangeCase{"CountAboveRange", u"PipeBufferCount", 11, &RkStreamSettings::pipeBufferCount, 2},
        RangeCase{"CountAtTop", u"PipeBufferCount", 10, &RkStreamSettings::pipeBufferCount, 10},
        RangeCase{"SizeAtTopIsKiB", u"PipeBufferSize", 8192, &RkStreamSettings::pipeBufferSize, 8 << 20},
        RangeCase{"SizeAboveRange", u"PipeBufferSize", 8193, &RkStreamSettings::pipeBufferSize, 512 << 10},
        RangeCase{"SizeAtBottom", u"PipeBufferSize", 1, &RkStreamSettings::pipeBufferSize, 1024},
        RangeCase{"SizeNegative", u"PipeBufferSize", -4, &RkStreamSettings::pipeBufferSize, 512 << 10},
        RangeCase{"DeflMinChunkBelow", u"DeflMinChunk", 131071, &RkStreamSettings::deflMinChunk, 0},
        RangeCase{"DeflMinChunkAtBottom", u"DeflMinChunk", 131072, &RkStreamSettings::deflMinChunk, 131072},
        RangeCase{"DeflMaxChunkAbove", u"DeflMaxChunk", 33554433, &RkStreamSettings::deflMaxChunk, 0},
        RangeCase{"DeflBuffers", u"DeflBuffers", 32, &RkStreamSettings::deflBuffers, 32},
        RangeCase{"DeflThreadsAbove", u"DeflThreads", 33, &RkStreamSettings::deflThreads, 0},
        RangeCase{"DeflGpuThreadsAbove", u"DeflGpuThreads", 5, &RkStreamSettings::deflGpuThreads, 0},
        RangeCase{"DeflGpuThreads", u"DeflGpuThreads", 4, &RkStreamSettings::deflGpuThreads, 4},
        RangeCase{"XzMinChunkBelow", u"XzMinChunk", 1048575, &RkStreamSettings::xzMinChunk, 0},
        RangeCase{"XzMaxChunkAtTop", u"XzMaxChunk", 134217728, &RkStreamSettings::xzMaxChunk, 134217728},
        RangeCase{"XzThreads", u"XzThreads", 1, &RkStreamSettings::xzThreads, 1},
        RangeCase{"ZstdThreadsAbove", u"ZstdThreads", 100, &RkStreamSettings::zstdThreads, 0}),
    [](const auto& row) { return std::string(row.param.name); });

TEST(StreamSettings, FlagsTakeAnyNonZeroValue) {
  EXPECT_TRUE(With(u"NoMatchOpt", -7).noMatchOpt);
  EXPECT_TRUE(With(u"DeflGpuOnly", 2).deflGpuOnly);
  EXPECT_TRUE(With(u"NoAesOpt", 1).noAesOpt);
  EXPECT_FALSE(With(u"NoAesOpt", 0).noAesOpt);
}

TEST(StreamSettings, NoAesOptGivesLevelZeroOnAnyProcessor) {
  EXPECT_EQ(With(u"NoAesOpt", 1).AesLevel(), 0);
  const int level = RkStreamSettings().AesLevel();
  EXPECT_GE(level, 0);
  EXPECT_LE(level, 3);
}

TEST(StreamSettings, AStreamHasTheBuffersTheSettingsName) {
  const RkStreamSettings settings = With(u"PipeBufferCount", 10);
  RkPipeLib::RkDStream stream(settings);
  std::vector<RkPipeLib::RkPipeBuffer*> taken;
  // Ten buffers are free at once; an eleventh would wait, so the consumer is told it is done.
  stream.consumerFinished();
  for (;;) {
    try {
      taken.push_back(stream.getFree());
    } catch (const RkLib::RkError&) {
      break;
    }
  }
  EXPECT_EQ(taken.size(), 10u);
  for (RkPipeLib::RkPipeBuffer* buffer : taken) {
    EXPECT_EQ(buffer->capacity(), 512u << 10);
    stream.returnFree(buffer);
  }
}

// The store behind the process-wide object: the user's hive, pointed at a file of the test's.
TEST(StreamSettings, FromStoreReadsTheUsersKeyAsText) {
  const std::filesystem::path folder =
      std::filesystem::temp_directory_path() / ("RkStreamSettingsTest." + std::to_string(getpid()));
  std::filesystem::create_directories(folder);
  const std::filesystem::path hive = folder / "registry.ini";
  std::ofstream(hive) << "[SOFTWARE\\Rakona Computing\\Rakona\\Rakona]\n"
                         "PipeBufferCount=\"4\"\n"
                         "PipeBufferSize=\"64\"\n"
                         "NoAesOpt=\"1\"\n"
                         "DeflMinChunk=dword:00030000\n";  // not text: ignored
  const char* saved = getenv("RK_REGISTRY_USER");
  const std::string savedValue = saved ? saved : "";
  setenv("RK_REGISTRY_USER", hive.c_str(), 1);
  const RkStreamSettings settings = RkStreamSettings::FromStore();
  if (saved) {
    setenv("RK_REGISTRY_USER", savedValue.c_str(), 1);
  } else {
    unsetenv("RK_REGISTRY_USER");
  }
  std::filesystem::remove_all(folder);
  EXPECT_EQ(settings.pipeBufferCount, 4);
  EXPECT_EQ(settings.pipeBufferSize, 64 << 10);
  EXPECT_TRUE(settings.noAesOpt);
  EXPECT_EQ(settings.deflMinChunk, 0);
}

}  // namespace
