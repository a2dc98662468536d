// The hand-over and the byte and bit interface of one stream, driven from one thread: each case
// stays within the buffers the stream has, so that no call needs the other side to move.
#include <gtest/gtest.h>
#include <unistd.h>

#include <random>
#include <string>

#include "RkDStream.h"
#include "RkPipeTestUtil.h"

namespace RkPipeTest {
namespace {

using RkLib::RkError;
using RkPipeLib::RkDStream;

std::vector<uint8_t> Bytes(size_t n) {
  std::vector<uint8_t> v(n);
  for (size_t i = 0; i < n; ++i) v[i] = PatternByte(i);
  return v;
}

// Throws what the call throws as an RkErrorInfo, so that class and code are checked together.
template <typename Call>
RkErrorInfo Raised(Call call) {
  try {
    call();
  } catch (const RkError& e) {
    return RkErrorInfo(e);
  }
  return RkErrorInfo(0xFFFFFFFF, 0xFFFFFFFF);
}

TEST(DStream, BuffersAreExchangedInOrderNotCopied) {
  const RkStreamSettings settings = SmallSettings(8, 3);
  RkDStream stream(settings);
  RkPipeBuffer* a = stream.getFree();
  RkPipeBuffer* b = stream.getFree();
  a->setLength(3);
  b->setLength(5);
  stream.put(a);
  stream.put(b);
  RkPipeBuffer mine(8);
  RkPipeBuffer* exchange = &mine;
  EXPECT_EQ(stream.take(exchange), a);
  EXPECT_EQ(exchange, nullptr);
  RkPipeBuffer* spare = a;
  EXPECT_EQ(stream.take(spare), b);
  // The two given back are free again, behind the one never used.
  RkPipeBuffer* c = stream.getFree();
  EXPECT_NE(c, &mine);
  EXPECT_EQ(stream.getFree(), &mine);
  EXPECT_EQ(stream.getFree(), a);
  // Back to the stream, so that its destructor frees its own and the test's stays the test's.
  stream.returnFree(c);
  stream.returnFree(b);
  stream.returnFree(a);
}

TEST(DStream, EndIsDeliveredOnceThenReadingAgainRaises7006) {
  const RkStreamSettings settings = SmallSettings(8);
  RkDStream stream(settings);
  RkPipeBuffer* filled = stream.getFree();
  filled->setLength(4);
  stream.put(filled);
  stream.finish(nullptr);
  stream.setLast();

  RkPipeBuffer* spare = new RkPipeBuffer(8);
  RkPipeBuffer* got = stream.take(spare);
  ASSERT_EQ(got, filled);
  EXPECT_EQ(stream.take(got), nullptr);
  EXPECT_TRUE(stream.endDelivered());
  EXPECT_TRUE(stream.lastSeen());
  EXPECT_EQ(Raised([&] { stream.take(got); }), RkErrorInfo(7006, 40));
  delete got;
}

TEST(DStream, ProducerFailureIsReraisedWithItsClassAndCode) {
  const RkStreamSettings settings = SmallSettings(8);
  RkDStream stream(settings);
  RkPipeBuffer* filled = stream.getFree();
  filled->setLength(1);
  stream.put(filled);
  stream.failProducer(RkErrorInfo(1234, 20));
  RkPipeBuffer spare(8);
  RkPipeBuffer* exchange = &spare;
  // The failure outranks the data still in the ring.
  EXPECT_EQ(Raised([&] { stream.take(exchange); }), RkErrorInfo(1234, 20));
  uint64_t count = 0;
  uint8_t byte;
  EXPECT_EQ(Raised([&] { stream.read(&byte, 1, 1, count); }), RkErrorInfo(1234, 20));
}

TEST(DStream, ConsumerFlagsStopTheProducer) {
  const RkStreamSettings settings = SmallSettings(8);
  RkDStream failed(settings);
  failed.failConsumer();
  EXPECT_EQ(Raised([&] { failed.getFree(); }), RkErrorInfo(7003, 40));
  EXPECT_EQ(Raised([&] { failed.write("x", 1); }), RkErrorInfo(7003, 40));
  EXPECT_EQ(Raised([&] { failed.finish(nullptr); }), RkErrorInfo(7003, 40));

  RkDStream done(settings);
  RkPipeBuffer* a = done.getFree();
  RkPipeBuffer* b = done.getFree();
  done.consumerFinished();
  // With no buffer free, the producer would wait: the finished consumer ends that wait cleanly.
  EXPECT_EQ(Raised([&] { done.getFree(); }), RkErrorInfo(0, 0));
  done.returnFree(a);
  done.returnFree(b);
}

TEST(DStream, ReadWithMinimumAboveMaximumConsumesNothing) {
  const RkStreamSettings settings = SmallSettings(8, 4);
  RkDStream stream(settings);
  stream.write("abcdef", 6);
  stream.finish(nullptr);
  char out[8] = {};
  uint64_t count = 99;
  EXPECT_FALSE(stream.read(out, 2, 3, count));
  EXPECT_EQ(count, 0u);
  EXPECT_TRUE(stream.read(out, 6, 6, count));
  EXPECT_EQ(std::string(out, count), "abcdef");
}

struct ReadCase {
  const char* name;
  uint64_t total;
  uint64_t maximum;
  uint64_t minimum;
};

class DStreamRead : public testing::TestWithParam<ReadCase> {};

// Bytes written through the byte interface come back whole through reads of any shape, and the
// end is met once with what remained, once with false, and then as 7006.
TEST_P(DStreamRead, ReturnsEveryByteThenTheEndThen7006) {
  const ReadCase& c = GetParam();
  const RkStreamSettings settings = SmallSettings(7, 64);
  RkDStream stream(settings);
  const std::vector<uint8_t> data = Bytes(c.total);
  stream.write(data.data(), data.size());
  stream.finish(nullptr);
  stream.setLast();

  std::vector<uint8_t> got;
  std::vector<uint8_t> chunk(c.maximum);
  uint64_t count;
  while (stream.read(chunk.data(), c.maximum, c.minimum, count)) {
    // Exactly the minimum, however much more the buffer holds; short only at the end.
    if (got.size() + c.minimum <= data.size()) {
      ASSERT_EQ(count, c.minimum);
    } else {
      ASSERT_EQ(got.size() + count, data.size());
    }
    got.insert(got.end(), chunk.begin(), chunk.begin() + static_cast<ptrdiff_t>(count));
  }
  EXPECT_EQ(got, data);
  EXPECT_EQ(stream.bytesRead(), data.size());
  EXPECT_EQ(Raised([&] { stream.read(chunk.data(), c.maximum, c.minimum, count); }), RkErrorInfo(7006, 40));
}

INSTANTIATE_TEST_SUITE_P(DStream, DStreamRead,
                         testing::Values(ReadCase{"ByteByByte", 50, 1, 1}, ReadCase{"WholeBuffers", 49, 7, 7},
                                         ReadCase{"AcrossBuffers", 50, 20, 20},
                                         ReadCase{"ExactlyTheMinimum", 50, 20, 3},
                                         ReadCase{"PartialAtTheEnd", 23, 10, 10},
                                         ReadCase{"EmptyStream", 0, 4, 1}),
                         [](const auto& row) { return std::string(row.param.name); });

TEST(DStream, BitsRoundTripInAnyWidths) {
  const RkStreamSettings settings = SmallSettings(5, 256);
  RkDStream stream(settings);
  std::mt19937 random(7);
  std::vector<std::pair<uint32_t, uint32_t>> fields;  // width, value
  for (int i = 0; i < 300; ++i) {
    const uint32_t width = random() % 33;
    const uint32_t value = width == 0 ? 0 : static_cast<uint32_t>(random()) >> (32 - width);
    fields.emplace_back(width, value);
    for (uint32_t bit = width; bit-- > 0;) stream.writeBit((value >> bit) & 1);
  }
  stream.alignWrite(0);
  stream.finish(nullptr);
  for (const auto& [width, value] : fields) {
    uint32_t got = 0, read = 0;
    ASSERT_TRUE(stream.readBits(read, width, got));
    ASSERT_EQ(got, width);
    ASSERT_EQ(read, value) << "width " << width;
  }
}

TEST(DStream, BitsComeMostSignificantFirstAndAlignDropsTheRest) {
  const RkStreamSettings settings = SmallSettings(4);
  RkDStream stream(settings);
  stream.write("\xA5\x3C", 2);  // 1010 0101, 0011 1100
  stream.finish(nullptr);
  uint32_t bit = 0, value = 0, got = 0;
  ASSERT_TRUE(stream.readBit(bit));
  EXPECT_EQ(bit, 1u);
  ASSERT_TRUE(stream.readBits(value, 3, got));
  EXPECT_EQ(value, 0b010u);
  stream.alignRead();
  ASSERT_TRUE(stream.readBits(value, 4, got));
  EXPECT_EQ(value, 0b0011u);
}

TEST(DStream, BitsPastTheEndComeLowWithTheirCount) {
  const RkStreamSettings settings = SmallSettings(4);
  RkDStream stream(settings);
  stream.write("\xC3", 1);
  stream.finish(nullptr);
  uint32_t value = 0, got = 0;
  ASSERT_TRUE(stream.readBits(value, 3, got));
  ASSERT_TRUE(stream.readBits(value, 12, got));
  EXPECT_EQ(got, 5u);
  EXPECT_EQ(value, 0x03u);
  EXPECT_FALSE(stream.readBits(value, 1, got));
  EXPECT_EQ(got, 0u);
}

// Found by the bit reader's fuzz target: a byte read can meet the end while the bit reader still
// holds part of a byte. Those bits stay readable, but asking past them is a read past the end.
TEST(DStream, BitsHeldWhenAByteReadMetTheEndAreReadThenTheEndRaises7006) {
  const RkStreamSettings settings = SmallSettings(16);
  RkDStream stream(settings);
  stream.write("\x05\x01", 2);
  stream.finish(nullptr);
  uint32_t value = 0, got = 0;
  ASSERT_TRUE(stream.readBits(value, 9, got));
  EXPECT_EQ(value, 0x0Au);
  uint8_t byte;
  uint64_t count = 0;
  EXPECT_FALSE(stream.read(&byte, 15, 0, count));
  ASSERT_TRUE(stream.readBits(value, 7, got));
  EXPECT_EQ(value, 0x01u);
  EXPECT_EQ(Raised([&] { stream.readBits(value, 1, got); }), RkErrorInfo(7006, 40));
}

TEST(DStream, FlushBitsWritesThePartByteAndFlushPassesItOn) {
  const RkStreamSettings settings = SmallSettings(16);
  RkDStream stream(settings);
  for (uint32_t bit : {1, 0, 1}) stream.writeBit(bit);
  stream.flushBits();
  stream.flush();
  RkPipeBuffer* exchange = new RkPipeBuffer(16);  // the stream owns it from the take on
  RkPipeBuffer* got = stream.take(exchange);
  ASSERT_NE(got, nullptr);
  ASSERT_EQ(got->length(), 1u);
  EXPECT_EQ(got->base()[0], 0xA0);
  stream.returnFree(got);
}

TEST(DStream, ResetMakesAnEndedStreamCleanForTheNextItem) {
  const RkStreamSettings settings = SmallSettings(8);
  RkDStream stream(settings);
  for (int round = 0; round < 2; ++round) {
    stream.write("hello", 5);
    stream.finish(nullptr);
    char out[8];
    uint64_t count;
    ASSERT_TRUE(stream.read(out, 8, 8, count));
    EXPECT_EQ(std::string(out, count), "hello");
    EXPECT_FALSE(stream.read(out, 8, 1, count));
    stream.consumerFinished();
    stream.Reset();
    EXPECT_FALSE(stream.lastSeen() || stream.endDelivered() || stream.consumerDone());
    EXPECT_EQ(stream.bytesRead(), 0u);
  }
}

using DStreamDeathTest = testing::Test;

TEST(DStreamDeathTest, ReadBitsOfMoreThan32IsAnAssertion) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(
      {
        dup2(2, 1);  // the handler writes to standard output; the matcher reads standard error
        const RkStreamSettings settings = SmallSettings(8);
        RkDStream stream(settings);
        uint32_t value = 0;
        uint32_t got = 0;
        stream.readBits(value, 33, got);
      },
      testing::ExitedWithCode(RkLib::kFatalExitStatus & 0xFF), "assert failure");
}

TEST(DStreamDeathTest, WriteBitOtherThanZeroOrOneIsAnAssertion) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(
      {
        dup2(2, 1);
        const RkStreamSettings settings = SmallSettings(8);
        RkDStream stream(settings);
        stream.writeBit(2);
      },
      testing::ExitedWithCode(RkLib::kFatalExitStatus & 0xFF), "assert failure");
}

}  // namespace
}  // namespace RkPipeTest
