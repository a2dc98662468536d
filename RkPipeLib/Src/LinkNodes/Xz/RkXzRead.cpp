#include "RkXzRead.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <new>

#include "RkCrc32.h"
#include "RkLzmaRaw.h"

namespace RkPipeLib {

namespace {

constexpr uint8_t kStreamMagic[6] = {0xFD, '7', 'z', 'X', 'Z', 0x00};
constexpr uint8_t kFooterMagic[2] = {'Y', 'Z'};
// Block flags: bits 0-1 the filter count less one, 6 and 7 the two sizes; 2 to 5 are reserved.
constexpr uint8_t kBlockFilterCountMask = 0x03;
constexpr uint8_t kBlockReservedMask = 0x3C;
constexpr uint8_t kBlockHasCompressedSize = 0x40;
constexpr uint8_t kBlockHasUncompressedSize = 0x80;
// Ids from 2^62 up are kept for filters outside the format, LZMA1 among them.
constexpr uint64_t kFirstReservedFilterId = uint64_t{1} << 62;
// The largest unpadded size of a block: the VLI maximum rounded down to a multiple of four.
constexpr uint64_t kMaxUnpaddedSize = kXzVliMax & ~uint64_t{3};
// The LZMA2 dictionary byte: values above 40 are invalid, and the top two bits are reserved.
constexpr uint8_t kLzma2MaxDictionaryByte = 40;
constexpr uint64_t kMinDictionary = 4096;

uint32_t Le32(const uint8_t* p) { return p[0] | p[1] << 8 | p[2] << 16 | uint32_t{p[3]} << 24; }

uint64_t Le64(const uint8_t* p) { return Le32(p) | uint64_t{Le32(p + 4)} << 32; }

[[noreturn]] void BadHeader() { throw RkLib::RkSevereError(kXzBadHeader); }

// The two flag bytes of header and footer: the first is reserved, the second holds the check
// type in its low half.
uint32_t StreamFlags(const uint8_t* flags) {
  if (flags[0] != 0 || (flags[1] & 0xF0) != 0) BadHeader();
  return flags[1];
}

// The dictionary that an LZMA2 property byte names: 2 or 3 times a power of two, from 4 KiB,
// and 4 GiB less one for the last value.
uint64_t Lzma2Dictionary(uint8_t b) {
  if (b > kLzma2MaxDictionaryByte) BadHeader();
  if (b == kLzma2MaxDictionaryByte) return UINT32_MAX;
  return uint64_t{2u | (b & 1u)} << (b / 2 + 11);
}

}  // namespace

uint32_t RkXzParseStreamHeader(const uint8_t* bytes) {
  if (std::memcmp(bytes, kStreamMagic, sizeof kStreamMagic) != 0) BadHeader();
  if (RkLib::RkCrc32(0, bytes + 6, 2) != Le32(bytes + 8)) BadHeader();
  return StreamFlags(bytes + 6);
}

RkXzStreamFooter RkXzParseStreamFooter(const uint8_t* bytes) {
  if (std::memcmp(bytes + 10, kFooterMagic, sizeof kFooterMagic) != 0) BadHeader();
  if (RkLib::RkCrc32(0, bytes + 4, 6) != Le32(bytes)) BadHeader();
  return {(uint64_t{Le32(bytes + 4)} + 1) * 4, StreamFlags(bytes + 8)};
}

RkXzBlockHeader RkXzParseBlockHeader(const uint8_t* bytes, uint32_t size, uint32_t checkSize) {
  RK_ASSERT(size >= 8 && size <= kXzMaxBlockHeaderBytes && size == (bytes[0] + 1u) * 4);
  const uint32_t end = size - 4;
  if (RkLib::RkCrc32(0, bytes, end) != Le32(bytes + end)) BadHeader();
  const uint8_t flags = bytes[1];
  if (flags & kBlockReservedMask) BadHeader();

  RkXzBlockHeader header;
  header.headerSize = size;
  uint32_t pos = 2;
  auto next = [&]() -> uint8_t {
    if (pos >= end) BadHeader();
    return bytes[pos++];
  };
  if (flags & kBlockHasCompressedSize) {
    header.compressedSize = RkXzReadVli(next);
    if (header.compressedSize == 0) BadHeader();
    // The unpadded size (header, data and check) must stay a VLI.
    if (header.compressedSize > kMaxUnpaddedSize - size - checkSize) throw RkLib::RkSevereError(kXzTooLarge);
  }
  if (flags & kBlockHasUncompressedSize) header.uncompressedSize = RkXzReadVli(next);
  header.filterCount = (flags & kBlockFilterCountMask) + 1u;
  for (uint32_t i = 0; i < header.filterCount; ++i) {
    RkXzFilterFlags& filter = header.filters[i];
    filter.id = RkXzReadVli(next);
    if (filter.id >= kFirstReservedFilterId) BadHeader();
    const uint64_t propertiesSize = RkXzReadVli(next);
    if (propertiesSize > end - pos) BadHeader();
    filter.properties = bytes + pos;
    filter.propertiesSize = static_cast<uint32_t>(propertiesSize);
    pos += filter.propertiesSize;
  }
  for (; pos < end; ++pos)  // header padding
    if (bytes[pos] != 0) BadHeader();
  return header;
}

void RkXzFltRead::Clear() noexcept {
  for (lzma_filter& filter : filters_) {
    std::free(filter.options);  // liblzma allocates with malloc when given no allocator
    filter = {LZMA_VLI_UNKNOWN, nullptr};
  }
  dictionary_ = 0;
}

void RkXzFltRead::Set(const RkXzBlockHeader& header) {
  Clear();
  for (uint32_t i = 0; i < header.filterCount; ++i) {
    const RkXzFilterFlags& flags = header.filters[i];
    const bool lzma2 = flags.id == LZMA_FILTER_LZMA2;
    // LZMA2 ends every chain the format allows, and only there: the other filters keep the
    // size and cannot end the data.
    if (lzma2 != (i + 1 == header.filterCount)) BadHeader();
    uint64_t dictionary = 0;
    if (lzma2) {
      if (flags.propertiesSize != 1) BadHeader();
      dictionary = Lzma2Dictionary(flags.properties[0]);
      if (header.uncompressedSize != kXzSizeUnknown)
        dictionary = std::min(dictionary, std::max(header.uncompressedSize, kMinDictionary));
      if (dictionary > kLzmaMaxDictionary) throw RkLib::RkSevereError(kXzTooLarge);
    }
    lzma_filter& filter = filters_[i];
    filter.id = flags.id;
    const lzma_ret result = lzma_properties_decode(&filter, nullptr, flags.properties, flags.propertiesSize);
    if (result == LZMA_MEM_ERROR) throw std::bad_alloc();
    if (result != LZMA_OK) {
      filter = {LZMA_VLI_UNKNOWN, nullptr};
      BadHeader();
    }
    if (lzma2) {
      static_cast<lzma_options_lzma*>(filter.options)->dict_size = static_cast<uint32_t>(dictionary);
      dictionary_ = dictionary;
    }
  }
}

void RkXzCheck::Begin(uint32_t type) {
  type_ = type;
  crc32_ = 0;
  crc64_ = 0;
  if (type_ == kXzCheckSha256) {
    if (!sha256_) sha256_ = std::make_unique<RkLib::RkDigestSha256>();
    if (!sha256_->IsValid()) throw RkLib::RkSevereError(kPipeUnknownException);
    sha256_->Reset();
  }
}

void RkXzCheck::Update(const uint8_t* data, uint64_t length) {
  switch (type_) {
    case kXzCheckCrc32:
      crc32_ = RkLib::RkCrc32(crc32_, data, length);
      break;
    case kXzCheckCrc64:
      crc64_ = RkLib::RkCrc64(crc64_, data, length);
      break;
    case kXzCheckSha256:
      sha256_->Update(data, length);
      break;
    default:
      break;
  }
}

bool RkXzCheck::Matches(const uint8_t* stored) {
  switch (type_) {
    case kXzCheckCrc32:
      return Le32(stored) == crc32_;
    case kXzCheckCrc64:
      return Le64(stored) == crc64_;
    case kXzCheckSha256: {
      uint8_t digest[32];
      sha256_->Final(digest);
      return std::memcmp(digest, stored, sizeof digest) == 0;
    }
    default:
      return true;
  }
}

}  // namespace RkPipeLib
