// RkBStrm as writer and reader on one stream, from one thread: the stream has room for all.
#include <gtest/gtest.h>

#include <stdexcept>
#include <string>

#include "RkBStrm.h"
#include "RkPipeTestUtil.h"

namespace RkPipeTest {
namespace {

using RkLib::RkError;
using RkPipeLib::kSoftEnd;
using RkPipeLib::RkBStrm;
using RkPipeLib::RkDStream;

constexpr int32_t kBuffer = 7;

class BStrm : public testing::Test {
 protected:
  BStrm() : settings_(SmallSettings(kBuffer, 128)), stream_(settings_), writer_(&stream_) {}

  // Writes the data in pieces of `piece` bytes and ends the stream, then attaches the reader.
  void Send(const std::vector<uint8_t>& data, size_t piece) {
    for (size_t at = 0; at < data.size(); at += piece)
      writer_.writeBytes(data.data() + at, std::min(piece, data.size() - at));
    writer_.finishOutput();
    reader_.attach(&stream_);
  }

  static std::vector<uint8_t> Data(size_t n) {
    std::vector<uint8_t> v(n);
    for (size_t i = 0; i < n; ++i) v[i] = PatternByte(i);
    return v;
  }

  RkStreamSettings settings_;
  RkDStream stream_;
  RkBStrm writer_;
  RkBStrm reader_;
};

struct ShapeCase {
  const char* name;
  size_t total;
  size_t writePiece;
  size_t readPiece;
};

class BStrmShapes : public BStrm, public testing::WithParamInterface<ShapeCase> {};

TEST_P(BStrmShapes, ReadBytesGetsWhatWriteBytesSent) {
  const ShapeCase& c = GetParam();
  const std::vector<uint8_t> data = Data(c.total);
  Send(data, c.writePiece);
  std::vector<uint8_t> got;
  std::vector<uint8_t> piece(c.readPiece);
  for (;;) {
    const uint64_t n = reader_.readBytes(piece.data(), c.readPiece, 0);
    got.insert(got.end(), piece.begin(), piece.begin() + static_cast<ptrdiff_t>(n));
    if (n < c.readPiece) break;
  }
  EXPECT_EQ(got, data);
  EXPECT_EQ(stream_.bytesRead(), data.size());
}

TEST_P(BStrmShapes, PeekAndSkipWalkTheSameBytesInPlace) {
  const ShapeCase& c = GetParam();
  const std::vector<uint8_t> data = Data(c.total);
  Send(data, c.writePiece);
  std::vector<uint8_t> got;
  const uint8_t* p;
  while (uint64_t n = reader_.peek(p, c.readPiece, 0)) {
    ASSERT_LE(n, c.readPiece);
    got.insert(got.end(), p, p + n);
    reader_.skip(n);
  }
  EXPECT_EQ(got, data);
  EXPECT_EQ(stream_.bytesRead(), data.size());
}

INSTANTIATE_TEST_SUITE_P(BStrm, BStrmShapes,
                         testing::Values(ShapeCase{"Bytewise", 40, 1, 1}, ShapeCase{"ExactBuffers", 42, 7, 7},
                                         ShapeCase{"LargeWritesSmallReads", 100, 33, 3},
                                         ShapeCase{"SmallWritesLargeReads", 100, 3, 33},
                                         ShapeCase{"Empty", 0, 5, 5}),
                         [](const auto& row) { return std::string(row.param.name); });

TEST_F(BStrm, PeekStopsWhereTheBufferEndsAndEnforcesItsMinimum) {
  Send(Data(10), 10);
  const uint8_t* p;
  EXPECT_EQ(reader_.peek(p, 100, 1), uint64_t{kBuffer});
  EXPECT_THROW(reader_.peek(p, 100, kBuffer + 1), std::underflow_error);
  EXPECT_THROW(reader_.skip(kBuffer + 1), std::underflow_error);
  reader_.skip(kBuffer);
  EXPECT_EQ(reader_.peek(p, 100, 3), 3u);
  EXPECT_EQ(p[0], PatternByte(kBuffer));
}

TEST_F(BStrm, ReadBytesBelowItsMinimumAtTheEndIsTruncation) {
  Send(Data(10), 10);
  uint8_t out[16];
  try {
    reader_.readBytes(out, 16, 12);
    FAIL() << "no error";
  } catch (const RkError& e) {
    EXPECT_EQ(RkErrorInfo(e), RkErrorInfo(7006, 30));
  }
}

TEST_F(BStrm, ReadBytesPastItsMinimumReturnsWhatCame) {
  Send(Data(10), 10);
  uint8_t out[16];
  EXPECT_EQ(reader_.readBytes(out, 16, 10), 10u);
}

TEST_F(BStrm, RefillAnswersTheEndByItsFormThenRaises7006) {
  Send({}, 1);
  EXPECT_FALSE(reader_.refill(kSoftEnd));
  try {
    reader_.refill();
    FAIL() << "no error";
  } catch (const RkError& e) {
    EXPECT_EQ(RkErrorInfo(e), RkErrorInfo(7006, 40)) << "the second look at the end reads past it";
  }
}

TEST_F(BStrm, RefillAtTheEndIsSevereTruncation) {
  Send({}, 1);
  try {
    reader_.refill();
    FAIL() << "no error";
  } catch (const RkError& e) {
    EXPECT_EQ(RkErrorInfo(e), RkErrorInfo(7006, 30));
  }
}

TEST_F(BStrm, ReserveGivesRoomInPlaceAndPassesAFullBufferOn) {
  uint8_t* out;
  EXPECT_EQ(writer_.reserve(out, 100, 3), uint64_t{kBuffer});
  std::memcpy(out, "abcde", 5);
  writer_.commit(5);
  EXPECT_EQ(writer_.reserve(out, 2, 2), 2u) << "the room left is enough";
  EXPECT_EQ(writer_.reserve(out, 10, 4), uint64_t{kBuffer}) << "too little room: a fresh buffer";
  std::memcpy(out, "fg", 2);
  writer_.commit(2);
  EXPECT_THROW(writer_.reserve(out, 10, kBuffer + 1), std::overflow_error);
  writer_.finishOutput();
  reader_.attach(&stream_);
  uint8_t got[8];
  EXPECT_EQ(reader_.readBytes(got, 8, 0), 7u);
  EXPECT_EQ(std::string(got, got + 7), "abcdefg");
}

}  // namespace
}  // namespace RkPipeTest
