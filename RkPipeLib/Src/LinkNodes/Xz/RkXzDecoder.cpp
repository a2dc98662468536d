#include "RkXzDecoder.h"

#include <new>

#include "RkCrc32.h"
#include "RkLzmaRaw.h"
#include "RkXzRead.h"

namespace RkPipeLib {

namespace {

constexpr uint32_t kBadData = kPipeBadData;
// The smallest unpadded size of a block: an 8-byte header less its padding of 3, and 1 byte of
// data.
constexpr uint64_t kMinUnpaddedSize = 5;
constexpr uint64_t kMaxUnpaddedSize = kXzVliMax & ~uint64_t{3};

uint32_t Le32(const uint8_t* p) { return p[0] | p[1] << 8 | p[2] << 16 | uint32_t{p[3]} << 24; }

[[noreturn]] void BadHeader() { throw RkLib::RkSevereError(kXzBadHeader); }

// A block's record as the index holds it, folded into the running CRC-64 of the records.
uint64_t FoldRecord(uint64_t crc, uint64_t unpaddedSize, uint64_t uncompressedSize) {
  uint8_t record[16];
  for (int i = 0; i < 8; ++i) {
    record[i] = static_cast<uint8_t>(unpaddedSize >> (8 * i));
    record[8 + i] = static_cast<uint8_t>(uncompressedSize >> (8 * i));
  }
  return RkLib::RkCrc64(crc, record, sizeof record);
}

// The library's failure while decoding a block; LZMA_BUF_ERROR has been told apart before.
[[noreturn]] void FailBlock(lzma_ret result) {
  switch (result) {
    case LZMA_MEM_ERROR:
      throw std::bad_alloc();
    case LZMA_DATA_ERROR:
    case LZMA_OPTIONS_ERROR:  // an LZMA2 chunk with impossible properties
      throw RkLib::RkSevereError(kBadData);
    default:
      throw RkLib::RkSevereError(kPipeUnknownException);
  }
}

}  // namespace

RkXzDecoder::RkXzDecoder(RkLib::RkMsgQueue* first, RkLib::RkMsgQueue* second, const RkStreamSettings& settings)
    : RkLinkNode(first, second, settings),
      library_(std::make_unique<RkLzmaRaw>()),
      filters_(std::make_unique<RkXzFltRead>()),
      check_(std::make_unique<RkXzCheck>()),
      writer_(std::make_unique<RkBStrm>(&output_)) {
  output_.Reset();
}

RkXzDecoder::~RkXzDecoder() = default;

void RkXzDecoder::Reset() {
  output_.Reset();
  if (!writerClean_) writer_ = std::make_unique<RkBStrm>(&output_);
  writerClean_ = true;
}

bool RkXzDecoder::MoreInput() {
  if (reader_.available() != 0) return true;
  if (inputEnded_) return false;
  inputEnded_ = !reader_.refill(kSoftEnd);
  return !inputEnded_;
}

uint8_t RkXzDecoder::ReadByte() {
  uint8_t b;
  reader_.readBytes(&b, 1, 1);
  return b;
}

void RkXzDecoder::Run() {
  RK_ASSERT(input_ != nullptr);
  reader_.attach(input_);
  inputEnded_ = false;
  writerClean_ = false;
  do {
    DecodeStream();
  } while (NextStream());
  writer_->finishOutput();
  writerClean_ = true;
}

void RkXzDecoder::DecodeStream() {
  uint8_t header[kXzStreamHeaderBytes];
  reader_.readBytes(header, sizeof header, sizeof header);
  checkType_ = RkXzParseStreamHeader(header);
  blockCount_ = 0;
  unpaddedSum_ = 0;
  uncompressedSum_ = 0;
  recordCrc_ = 0;
  // A block header's size byte is never 0; a 0 there opens the index.
  for (uint8_t sizeByte; (sizeByte = ReadByte()) != 0;) DecodeBlock(sizeByte);
  ReadIndexAndFooter();
}

void RkXzDecoder::DecodeBlock(uint8_t sizeByte) {
  const uint32_t headerSize = (sizeByte + 1u) * 4;
  uint8_t bytes[kXzMaxBlockHeaderBytes];
  bytes[0] = sizeByte;
  reader_.readBytes(bytes + 1, headerSize - 1, headerSize - 1);
  const uint32_t checkSize = RkXzCheckSize(checkType_);
  const RkXzBlockHeader header = RkXzParseBlockHeader(bytes, headerSize, checkSize);
  filters_->Set(header);
  const lzma_ret begun = library_->Begin(filters_->Filters());
  if (begun == LZMA_MEM_ERROR) throw std::bad_alloc();
  if (begun != LZMA_OK) BadHeader();  // a chain that the format does not allow

  check_->Begin(checkType_);
  const uint64_t limit =
      header.compressedSize != kXzSizeUnknown ? header.compressedSize : kMaxUnpaddedSize - headerSize - checkSize;
  uint64_t inputLeft = limit;
  uint64_t produced = 0;
  const lzma_ret result = library_->Drive(reader_, *writer_, inputLeft, kXzSizeUnknown, inputEnded_,
                                          [&](const uint8_t* data, uint64_t length) {
                                            produced += length;
                                            // Stopped as soon as the block says more than its header, not at its end.
                                            if (produced > header.uncompressedSize)
                                              throw RkLib::RkSevereError(kBadData);
                                            check_->Update(data, length);
                                          });
  if (result == LZMA_BUF_ERROR) throw RkLib::RkSevereError(inputEnded_ ? kPipeReadPastEnd : kBadData);
  if (result != LZMA_STREAM_END) FailBlock(result);
  const uint64_t compressed = limit - inputLeft;
  if (header.compressedSize != kXzSizeUnknown && compressed != header.compressedSize)
    throw RkLib::RkSevereError(kBadData);
  if (header.uncompressedSize != kXzSizeUnknown && produced != header.uncompressedSize)
    throw RkLib::RkSevereError(kBadData);
  if (produced > kXzVliMax) throw RkLib::RkSevereError(kXzTooLarge);

  // Block padding to a multiple of four, then the check.
  const uint32_t padding = static_cast<uint32_t>((4 - compressed % 4) % 4);
  uint8_t tail[3 + 64];
  reader_.readBytes(tail, padding + checkSize, padding + checkSize);
  for (uint32_t i = 0; i < padding; ++i)
    if (tail[i] != 0) throw RkLib::RkSevereError(kBadData);
  if (!check_->Matches(tail + padding)) throw RkLib::RkSevereError(kBadData);

  const uint64_t unpadded = headerSize + compressed + checkSize;
  unpaddedSum_ += unpadded;
  uncompressedSum_ += produced;
  recordCrc_ = FoldRecord(recordCrc_, unpadded, produced);
  ++blockCount_;
}

void RkXzDecoder::ReadIndexAndFooter() {
  const uint8_t indicator = 0;
  uint32_t crc = RkLib::RkCrc32(0, &indicator, 1);
  uint64_t size = 1;
  auto next = [&]() -> uint8_t {
    const uint8_t b = ReadByte();
    crc = RkLib::RkCrc32(crc, &b, 1);
    ++size;
    return b;
  };
  // The count is compared first, so that a claim of billions of records reads no further.
  if (RkXzReadVli(next) != blockCount_) BadHeader();
  uint64_t unpaddedSum = 0;
  uint64_t uncompressedSum = 0;
  uint64_t recordCrc = 0;
  for (uint64_t i = 0; i < blockCount_; ++i) {
    const uint64_t unpadded = RkXzReadVli(next);
    const uint64_t uncompressed = RkXzReadVli(next);
    if (unpadded < kMinUnpaddedSize || unpadded > kMaxUnpaddedSize) BadHeader();
    unpaddedSum += unpadded;
    uncompressedSum += uncompressed;
    recordCrc = FoldRecord(recordCrc, unpadded, uncompressed);
  }
  if (unpaddedSum != unpaddedSum_ || uncompressedSum != uncompressedSum_ || recordCrc != recordCrc_) BadHeader();
  while (size % 4 != 0)
    if (next() != 0) BadHeader();
  uint8_t stored[4];
  reader_.readBytes(stored, sizeof stored, sizeof stored);
  if (Le32(stored) != crc) BadHeader();
  size += sizeof stored;

  uint8_t footer[kXzStreamHeaderBytes];
  reader_.readBytes(footer, sizeof footer, sizeof footer);
  const RkXzStreamFooter parsed = RkXzParseStreamFooter(footer);
  if (parsed.checkType != checkType_ || parsed.indexSize != size) BadHeader();
}

bool RkXzDecoder::NextStream() {
  uint64_t zeros = 0;
  while (MoreInput()) {
    const uint8_t* p;
    const uint64_t n = reader_.peek(p, reader_.available(), 0);
    uint64_t i = 0;
    while (i < n && p[i] == 0) ++i;
    reader_.skip(i);
    zeros += i;
    if (i < n) {
      if (zeros % 4 != 0) BadHeader();
      return true;
    }
  }
  if (zeros % 4 != 0) BadHeader();
  return false;
}

}  // namespace RkPipeLib
