// Helpers of the tests of the legacy ZIP decoders (shrink, reduce, implode) and of compress:
// the corpus folder, a small reader of a zip's central records that hands out each member's
// stored bytes, and the bit writer of the test-only encoders (least significant bit first).
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include "RkCodecTestUtil.h"
#include "RkCrc32.h"

namespace RkPipeTest {

inline std::filesystem::path CorpusPath(const std::string& relative) {
  return std::filesystem::path(RK_CORPUS_DIR) / relative;
}

#define RK_REQUIRE_CORPUS()                                                              \
  do {                                                                                   \
    if (!std::filesystem::is_directory(RK_CORPUS_DIR))                                   \
      GTEST_SKIP() << "the shared corpus is not beside the checkout (../shared/corpus)"; \
  } while (0)

inline uint32_t Crc(const Bytes& bytes) { return RkLib::RkCrc32(0, bytes.data(), bytes.size()); }

// One member of a zip as its central record describes it, with the bytes its local header
// points at.
struct ZipMember {
  std::string name;
  uint16_t flags = 0;
  uint16_t method = 0;
  uint32_t crc = 0;
  uint64_t size = 0;
  Bytes data;
};

// Reads the members of a plain zip (no zip64, no spanning): the end record, then each central
// record and its local header. An empty list means the file is not such a zip.
inline std::vector<ZipMember> ReadZipMembers(const Bytes& zip) {
  const auto u16 = [&zip](size_t at) { return static_cast<uint32_t>(zip[at] | zip[at + 1] << 8); };
  const auto u32 = [&](size_t at) { return u16(at) | u16(at + 2) << 16; };
  std::vector<ZipMember> members;
  if (zip.size() < 22) return members;
  size_t end = zip.size() - 22;
  while (u32(end) != 0x06054b50) {
    if (end == 0 || zip.size() - end > 22 + 65535) return members;
    --end;
  }
  const uint32_t count = u16(end + 10);
  size_t at = u32(end + 16);
  for (uint32_t i = 0; i < count; ++i) {
    if (at + 46 > zip.size() || u32(at) != 0x02014b50) return {};
    ZipMember m;
    m.flags = static_cast<uint16_t>(u16(at + 8));
    m.method = static_cast<uint16_t>(u16(at + 10));
    m.crc = u32(at + 16);
    const uint32_t packed = u32(at + 20);
    m.size = u32(at + 24);
    const uint32_t nameLength = u16(at + 28);
    const size_t local = u32(at + 42);
    m.name.assign(zip.begin() + static_cast<long>(at + 46), zip.begin() + static_cast<long>(at + 46 + nameLength));
    at += 46 + nameLength + u16(at + 30) + u16(at + 32);
    if (local + 30 > zip.size() || u32(local) != 0x04034b50) return {};
    const size_t data = local + 30 + u16(local + 26) + u16(local + 28);
    if (data + packed > zip.size()) return {};
    m.data.assign(zip.begin() + static_cast<long>(data), zip.begin() + static_cast<long>(data + packed));
    members.push_back(std::move(m));
  }
  return members;
}

// Packs values least significant bit first, as every one of these formats does.
class LsbBitWriter {
 public:
  void Put(uint32_t value, uint32_t bits) {
    pending_ |= uint64_t{value} << count_;
    count_ += bits;
    while (count_ >= 8) {
      bytes_.push_back(static_cast<uint8_t>(pending_));
      pending_ >>= 8;
      count_ -= 8;
    }
  }
  // A prefix code whose first bit is its most significant one.
  void PutCode(uint32_t code, uint32_t bits) {
    uint32_t reversed = 0;
    for (uint32_t i = 0; i < bits; ++i) reversed |= ((code >> i) & 1) << (bits - 1 - i);
    Put(reversed, bits);
  }
  void PutByte(uint8_t byte) { Put(byte, 8); }
  uint64_t BitCount() const { return bytes_.size() * 8 + count_; }
  // The bytes, the last one padded with zeros.
  Bytes Finish() {
    if (count_) Put(0, 8 - count_);
    return bytes_;
  }

 private:
  Bytes bytes_;
  uint64_t pending_ = 0;
  uint32_t count_ = 0;
};

}  // namespace RkPipeTest
