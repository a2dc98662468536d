#include "RkZipExtra.h"

#include <cinttypes>
#include <cstdio>
#include <cstring>
#include <utility>

#include "RkCrc32.h"
#include "RkDigest.h"
#include "RkString.h"
#include "RkTimeStamp.h"
#include "RkZipCursor.h"
#include "RkZipEntry.h"
#include "RkZipExtraTypes.h"

namespace RkArcLib {

namespace {

constexpr size_t kHeaderSize = 4;  // id and size
constexpr uint32_t kAllOnes32 = 0xFFFFFFFF;

// Callers have checked the bounds.
constexpr auto Le16 = RkZipLe16;
constexpr auto Le32 = RkZipLe32;
constexpr auto Le64 = RkZipLe64;

uint8_t* Put16(uint8_t* p, uint16_t v) noexcept {
  p[0] = static_cast<uint8_t>(v);
  p[1] = static_cast<uint8_t>(v >> 8);
  return p + 2;
}
uint8_t* Put32(uint8_t* p, uint32_t v) noexcept {
  p = Put16(p, static_cast<uint16_t>(v));
  return Put16(p, static_cast<uint16_t>(v >> 16));
}
uint8_t* Put64(uint8_t* p, uint64_t v) noexcept {
  p = Put32(p, static_cast<uint32_t>(v));
  return Put32(p, static_cast<uint32_t>(v >> 32));
}
uint8_t* PutBytes(uint8_t* p, std::string_view bytes) noexcept {
  if (!bytes.empty()) std::memcpy(p, bytes.data(), bytes.size());
  return p + bytes.size();
}

std::string Raw(const uint8_t* data, size_t size) { return std::string(reinterpret_cast<const char*>(data), size); }

// The record header, or null when the record does not fit.
uint8_t* BeginRecord(const RkExtraType& record, uint8_t* buffer, size_t room) noexcept {
  if (buffer == nullptr || room < kHeaderSize + record.Size()) return nullptr;
  buffer = Put16(buffer, record.GetId());
  return Put16(buffer, record.Size());
}

void DumpLine(std::string& info, const RkExtraType& record, const char* detail) {
  char line[192];
  std::snprintf(line, sizeof line, "%s (0x%04X), %u bytes%s%s\n", RkExtraName(record.GetId()),
                unsigned{record.GetId()}, unsigned{record.Size()}, detail[0] ? ": " : "", detail);
  info += line;
}

// FILETIMEs beyond the calendar (year 10000 and on) are damage; the time is left unset.
RkLib::RkTimeStamp StampOfFileTime(uint64_t fileTime) {
  try {
    return RkLib::RkTimeStamp::FromFileTime(fileTime);
  } catch (const RkLib::RkTimeStampError&) {
  } catch (const RkLib::DateTimeError&) {
  }
  return RkLib::RkTimeStamp();
}

bool IsAesEntry(const RkZipEntry& entry) noexcept {
  return entry.method == kZipMethodAes && (entry.flags & kZipFlagEncrypted) != 0;
}

}  // namespace

// ---------------------------------------------------------------------------------------------
// Generic

RkExtraGeneric::RkExtraGeneric(uint16_t id, std::string data)
    : RkExtraType(id, static_cast<uint16_t>(data.size())), data_(std::move(data)) {}

void RkExtraGeneric::Apply(RkZipEntry& entry, const RkExtraContext& /*context*/) const {
  // An AES record we could not read still marks the entry as encrypted by a scheme we do not
  // know, so that it lists but refuses to extract instead of being taken for plain data.
  if (id_ != kExtraAesCrypt || !IsAesEntry(entry) || data_.size() < 4) return;
  const auto* p = reinterpret_cast<const uint8_t*>(data_.data());
  auto unknown = std::make_shared<RkUnknownEncryption>();
  unknown->version = Le16(p);
  unknown->vendor = {p[2], p[3]};
  if (Le16(p + 2) == RkExtraAesCrypt::kVendorAE && data_.size() >= 7) {
    unknown->detail = uint32_t{p[4]} | (uint32_t{Le16(p + 5)} << 8);  // strength, then method
  }
  entry.Detail().unknownEncryption = std::move(unknown);
}

uint8_t* RkExtraGeneric::Write(uint8_t* buffer, size_t room) const {
  uint8_t* p = BeginRecord(*this, buffer, room);
  return p ? PutBytes(p, data_) : nullptr;
}

void RkExtraGeneric::Dump(std::string& info) const { DumpLine(info, *this, ""); }

// ---------------------------------------------------------------------------------------------
// Zip64

RkExtraVerdict RkExtraZip64::Read(const uint8_t* data, uint16_t size, std::unique_ptr<RkExtraType>& record) {
  // At most three 8-byte values and a 4-byte part number.
  if (size % 4 != 0 || size > 28) return RkExtraVerdict::kDropped;
  std::unique_ptr<RkExtraZip64> zip64(new RkExtraZip64(size));
  zip64->valueCount = static_cast<uint8_t>(size / 8);
  for (size_t i = 0; i < zip64->valueCount; ++i) zip64->values[i] = Le64(data + 8 * i);
  if (size % 8 != 0) {
    zip64->hasPartNumber = true;
    zip64->partNumber = Le32(data + 8 * zip64->valueCount);
  }
  record = std::move(zip64);
  return RkExtraVerdict::kTaken;
}

void RkExtraZip64::Apply(RkZipEntry& entry, const RkExtraContext& /*context*/) const {
  // Writers store only the values whose header field overflowed, in this order; a field that
  // fitted does not use one up.
  uint64_t* fields[] = {&entry.originalSize64, &entry.compressedSize64, &entry.localOffset64};
  size_t next = 0;
  for (uint64_t* field : fields) {
    if (next == valueCount) break;
    if (*field == kAllOnes32) *field = values[next++];
  }
  if (hasPartNumber) entry.startPart32 = partNumber;
  entry.hasZip64 = true;
}

uint8_t* RkExtraZip64::Write(uint8_t* buffer, size_t room) const {
  uint8_t* p = BeginRecord(*this, buffer, room);
  if (p == nullptr) return nullptr;
  for (size_t i = 0; i < valueCount; ++i) p = Put64(p, values[i]);
  if (hasPartNumber) p = Put32(p, partNumber);
  return p;
}

void RkExtraZip64::Dump(std::string& info) const {
  char detail[128] = "";
  int used = 0;
  for (size_t i = 0; i < valueCount; ++i) {
    used += std::snprintf(detail + used, sizeof detail - used, "%s%" PRIu64, i ? ", " : "values ", values[i]);
  }
  if (hasPartNumber) std::snprintf(detail + used, sizeof detail - used, "%spart %u", used ? ", " : "", partNumber);
  DumpLine(info, *this, detail);
}

// ---------------------------------------------------------------------------------------------
// Win32 file times

RkExtraVerdict RkExtraWin32Attr::Read(const uint8_t* data, uint16_t size, std::unique_ptr<RkExtraType>& record) {
  if (size < 32) return RkExtraVerdict::kGeneric;
  std::unique_ptr<RkExtraWin32Attr> times(new RkExtraWin32Attr(size));
  times->reserved = Le32(data);
  times->tag = Le16(data + 4);
  times->tagSize = Le16(data + 6);
  times->lastWriteTime = Le64(data + 8);
  times->lastAccessTime = Le64(data + 16);
  times->creationTime = Le64(data + 24);
  times->rest = Raw(data + 32, size - 32u);
  record = std::move(times);
  return RkExtraVerdict::kTaken;
}

void RkExtraWin32Attr::Apply(RkZipEntry& entry, const RkExtraContext& /*context*/) const {
  auto stamps = std::make_shared<RkExtTimeStamps>();
  stamps->modified = StampOfFileTime(lastWriteTime);
  stamps->accessed = StampOfFileTime(lastAccessTime);
  stamps->created = StampOfFileTime(creationTime);
  entry.Detail().extTimeStamps = std::move(stamps);
}

uint8_t* RkExtraWin32Attr::Write(uint8_t* buffer, size_t room) const {
  uint8_t* p = BeginRecord(*this, buffer, room);
  if (p == nullptr) return nullptr;
  p = Put32(p, reserved);
  p = Put16(p, tag);
  p = Put16(p, tagSize);
  p = Put64(p, lastWriteTime);
  p = Put64(p, lastAccessTime);
  p = Put64(p, creationTime);
  return PutBytes(p, rest);
}

void RkExtraWin32Attr::Dump(std::string& info) const { DumpLine(info, *this, ""); }

// ---------------------------------------------------------------------------------------------
// Strong encryption

RkExtraVerdict RkExtraPKCrypt::Read(const uint8_t* data, uint16_t size, std::unique_ptr<RkExtraType>& record) {
  if (size < 8) return RkExtraVerdict::kDropped;
  if (Le16(data) != 2) return RkExtraVerdict::kGeneric;
  std::unique_ptr<RkExtraPKCrypt> crypt(new RkExtraPKCrypt(size));
  crypt->format = 2;
  crypt->algorithmId = Le16(data + 2);
  crypt->keyBits = Le16(data + 4);
  crypt->flags = Le16(data + 6);
  crypt->rest = Raw(data + 8, size - 8u);
  record = std::move(crypt);
  return RkExtraVerdict::kTaken;
}

void RkExtraPKCrypt::Apply(RkZipEntry& entry, const RkExtraContext& /*context*/) const {
  constexpr uint16_t kStrong = kZipFlagEncrypted | kZipFlagStrongEncryption;
  if ((entry.flags & kStrong) != kStrong) return;
  auto pkware = std::make_shared<RkPkwareEncryption>();
  pkware->algorithmId = algorithmId;
  pkware->keyBits = keyBits;
  pkware->flags = flags;
  entry.Detail().pkwareEncryption = std::move(pkware);
}

uint8_t* RkExtraPKCrypt::Write(uint8_t* buffer, size_t room) const {
  uint8_t* p = BeginRecord(*this, buffer, room);
  if (p == nullptr) return nullptr;
  p = Put16(p, format);
  p = Put16(p, algorithmId);
  p = Put16(p, keyBits);
  p = Put16(p, flags);
  return PutBytes(p, rest);
}

void RkExtraPKCrypt::Dump(std::string& info) const {
  char detail[96];
  std::snprintf(detail, sizeof detail, "algorithm 0x%04X, %u bits, flags 0x%04X", unsigned{algorithmId},
                unsigned{keyBits}, unsigned{flags});
  DumpLine(info, *this, detail);
}

// ---------------------------------------------------------------------------------------------
// Unicode name and comment

RkExtraVerdict RkExtraUnicode::Read(uint16_t id, const uint8_t* data, uint16_t size,
                                    std::unique_ptr<RkExtraType>& record) {
  if (size < 6 || data[0] != 1) return RkExtraVerdict::kGeneric;
  std::unique_ptr<RkExtraUnicode> unicode(new RkExtraUnicode(id, size));
  unicode->version = 1;
  unicode->crc = Le32(data + 1);
  unicode->text = Raw(data + 5, size - 5u);
  record = std::move(unicode);
  return RkExtraVerdict::kTaken;
}

void RkExtraUnicode::Apply(RkZipEntry& entry, const RkExtraContext& context) const {
  // A tool that renamed the entry without knowing this record left it stale: the header's own
  // bytes then win, silently.
  const bool isName = id_ == kExtraUnicodeFilename;
  const std::string_view raw = isName ? context.rawName : context.rawComment;
  if (RkLib::RkCrc32(0, raw.data() ? raw.data() : "", raw.size()) != crc) return;
  RkLib::RkString decoded = RkLib::RkString::FromUtf8(text);
  if (isName) {
    std::u16string name(decoded.view());
    for (char16_t& c : name) {
      if (c == u'/') c = u'\\';
    }
    entry.name = RkLib::RkString(std::move(name));
    entry.hasUnicodeName = true;
  } else {
    entry.Detail().comment = std::move(decoded);
    entry.hasUnicodeComment = true;
  }
}

uint8_t* RkExtraUnicode::Write(uint8_t* buffer, size_t room) const {
  uint8_t* p = BeginRecord(*this, buffer, room);
  if (p == nullptr) return nullptr;
  *p++ = version;
  p = Put32(p, crc);
  return PutBytes(p, text);
}

void RkExtraUnicode::Dump(std::string& info) const {
  char detail[64];
  std::snprintf(detail, sizeof detail, "crc 0x%08X", crc);
  DumpLine(info, *this, detail);
}

// ---------------------------------------------------------------------------------------------
// AES

RkExtraVerdict RkExtraAesCrypt::Read(const uint8_t* data, uint16_t size, std::unique_ptr<RkExtraType>& record) {
  if (size < 4) return RkExtraVerdict::kDropped;
  const uint16_t version = Le16(data);
  const uint16_t vendor = Le16(data + 2);
  // Another generation or vendor: kept, so that the entry can say it is encrypted by it.
  if (version < 1 || version > 3 || vendor != kVendorAE) return RkExtraVerdict::kGeneric;
  if (size < 7) return RkExtraVerdict::kDropped;
  const uint8_t strength = data[4];
  if (strength < 1 || strength > 3) return RkExtraVerdict::kDropped;
  uint32_t iterations = 1000;
  size_t known = 7;
  if (version == 3) {
    // The third generation is defined for 256-bit keys only, with a stored iteration count.
    if (strength != 3 || size < 9) return RkExtraVerdict::kDropped;
    const uint16_t field = Le16(data + 7);
    if (field < 31 || field > 6400) return RkExtraVerdict::kDropped;
    iterations = uint32_t{field} * 10000;
    known = 9;
  }
  std::unique_ptr<RkExtraAesCrypt> aes(new RkExtraAesCrypt(size));
  aes->version = version;
  aes->vendor = vendor;
  aes->keyBits = static_cast<uint16_t>(strength * 64 + 64);
  aes->method = Le16(data + 5);
  aes->iterations = iterations;
  aes->rest = Raw(data + known, size - known);
  record = std::move(aes);
  return RkExtraVerdict::kTaken;
}

void RkExtraAesCrypt::Apply(RkZipEntry& entry, const RkExtraContext& /*context*/) const {
  if (!IsAesEntry(entry)) return;
  auto aes = std::make_shared<RkAesEncryption>();
  aes->keyBits = keyBits;
  aes->version = version;
  aes->method = method;
  aes->iterations = iterations;
  entry.Detail().aesEncryption = std::move(aes);
}

uint8_t* RkExtraAesCrypt::Write(uint8_t* buffer, size_t room) const {
  if (keyBits < 128 || keyBits > 256 || keyBits % 64 != 0) return nullptr;
  if (version == 3 && iterations / 10000 > 0xFFFF) return nullptr;
  uint8_t* p = BeginRecord(*this, buffer, room);
  if (p == nullptr) return nullptr;
  p = Put16(p, version);
  p = Put16(p, vendor);
  *p++ = static_cast<uint8_t>((keyBits - 64) / 64);
  p = Put16(p, method);
  if (version == 3) p = Put16(p, static_cast<uint16_t>(iterations / 10000));
  return PutBytes(p, rest);
}

void RkExtraAesCrypt::Dump(std::string& info) const {
  char detail[96];
  std::snprintf(detail, sizeof detail, "AE-%u, %u bits, method %u, %u iterations", unsigned{version},
                unsigned{keyBits}, unsigned{method}, iterations);
  DumpLine(info, *this, detail);
}

// ---------------------------------------------------------------------------------------------
// Enterprise public-key encryption

RkExtraVerdict RkExtraEnterprisePublicKeyCrypto::Read(const uint8_t* data, uint16_t size,
                                                       std::unique_ptr<RkExtraType>& record) {
  if (size < 4 || data[0] != 1 || (data[1] != 1 && data[1] != 2)) return RkExtraVerdict::kGeneric;
  const uint8_t kind = data[1];
  size_t pos = 4;
  const size_t length1 = Le16(data + 2);
  if (length1 > size - pos) return RkExtraVerdict::kGeneric;
  std::unique_ptr<RkExtraEnterprisePublicKeyCrypto> pkc(new RkExtraEnterprisePublicKeyCrypto(size));
  pkc->version = 1;
  pkc->kind = kind;
  pkc->block1 = Raw(data + pos, length1);
  pos += length1;
  if (kind == 2) {
    if (size - pos < 2) return RkExtraVerdict::kGeneric;
    const size_t length2 = Le16(data + pos);
    pos += 2;
    if (length2 > size - pos) return RkExtraVerdict::kGeneric;
    pkc->block2 = Raw(data + pos, length2);
    pos += length2;
  }
  pkc->rest = Raw(data + pos, size - pos);
  record = std::move(pkc);
  return RkExtraVerdict::kTaken;
}

void RkExtraEnterprisePublicKeyCrypto::Apply(RkZipEntry& entry, const RkExtraContext& /*context*/) const {
  if (kind == 0) return;
  auto crypto = std::make_shared<RkEnterprisePublicKeyCrypto>();
  crypto->version = version;
  crypto->kind = kind;
  if (kind == 1) {
    crypto->publicKey = block1;
    crypto->hasPublicKey = true;
  } else {
    crypto->certificate = block1;
    crypto->hasCertificate = true;
    crypto->signature = block2;
    crypto->hasSignature = true;
    // The key is known by the digest of the second block.
    RkLib::RkDigestSha1 sha1;
    if (sha1.IsValid()) {
      sha1.Update(block2.data(), block2.size());
      std::string digest(sha1.GetLength(), '\0');
      sha1.Final(reinterpret_cast<uint8_t*>(digest.data()));
      crypto->publicKey = std::move(digest);
      crypto->hasPublicKey = true;
    }
  }
  entry.Detail().enterpriseCrypto = std::move(crypto);
}

uint8_t* RkExtraEnterprisePublicKeyCrypto::Write(uint8_t* buffer, size_t room) const {
  uint8_t* p = BeginRecord(*this, buffer, room);
  if (p == nullptr) return nullptr;
  *p++ = version;
  *p++ = kind;
  p = Put16(p, static_cast<uint16_t>(block1.size()));
  p = PutBytes(p, block1);
  if (kind == 2) {
    p = Put16(p, static_cast<uint16_t>(block2.size()));
    p = PutBytes(p, block2);
  }
  return PutBytes(p, rest);
}

void RkExtraEnterprisePublicKeyCrypto::Dump(std::string& info) const {
  char detail[64];
  std::snprintf(detail, sizeof detail, "kind %u", unsigned{kind});
  DumpLine(info, *this, detail);
}

// ---------------------------------------------------------------------------------------------
// File reference

RkExtraVerdict RkExtraFileReference::Read(const uint8_t* data, uint16_t size,
                                          std::unique_ptr<RkExtraType>& record) {
  if (size != kSize) return RkExtraVerdict::kGeneric;
  std::unique_ptr<RkExtraFileReference> reference(new RkExtraFileReference());
  reference->checksum = Le32(data);
  std::memcpy(reference->referenceId.data(), data + 4, reference->referenceId.size());
  record = std::move(reference);
  return RkExtraVerdict::kTaken;
}

uint32_t RkExtraFileReference::CheckValue(const RkZipEntry& entry) const noexcept {
  // Ties the id to this entry's header: a record copied onto another entry fails the check.
  uint8_t bytes[12 + 16];
  uint8_t* p = Put32(bytes, entry.method);
  p = Put32(p, (uint32_t{entry.modDate} << 16) | entry.modTime);
  p = Put32(p, entry.crc);
  std::memcpy(p, referenceId.data(), referenceId.size());
  return RkLib::RkCrc32(0, bytes, sizeof bytes);
}

void RkExtraFileReference::Apply(RkZipEntry& entry, const RkExtraContext& /*context*/) const {
  if (CheckValue(entry) == checksum) {
    entry.Detail().referenceId = referenceId;
    entry.brokenReference = false;
  } else {
    entry.brokenReference = true;
  }
}

uint8_t* RkExtraFileReference::Write(uint8_t* buffer, size_t room) const {
  uint8_t* p = BeginRecord(*this, buffer, room);
  if (p == nullptr) return nullptr;
  p = Put32(p, checksum);
  std::memcpy(p, referenceId.data(), referenceId.size());
  return p + referenceId.size();
}

void RkExtraFileReference::Dump(std::string& info) const {
  char detail[96];
  int used = std::snprintf(detail, sizeof detail, "checksum 0x%08X, id ", checksum);
  for (uint8_t b : referenceId) used += std::snprintf(detail + used, sizeof detail - used, "%02X", unsigned{b});
  DumpLine(info, *this, detail);
}

// ---------------------------------------------------------------------------------------------
// Names

const char* RkExtraName(uint16_t id) noexcept {
  struct Entry {
    uint16_t id;
    const char* name;
  };
  static constexpr Entry kNames[] = {
      {0x0001, "ZIP64 Tag"},
      {0x000A, "PKWARE Win32 Filetimes"},
      {0x0017, "PKZIP Strong Encryption Tag"},
      {0x6375, "Unicode File Comment"},
      {0x7075, "Unicode Filename"},
      {0x9901, "AES Encryption Tag"},
      {0x9902, "Enterprise PKC"},
      {0x9903, "File Reference UUID"},
      {0x4C41, "OS/2 ACL"},
      {0x5356, "AOS/VS"},
      {0xE8BD, "ASi Mac"},
      {0x4F1F, "ASi Mac"},
      {0x0065, "ASi MVS"},
      {0x756E, "ASi Unix"},
      {0x0007, "PKWARE AV"},
      {0x6542, "BeOS"},
      {0x5855, "old InfoZIP Unix/OS2/NT"},
      {0x7855, "Unix UID/GID"},
      {0x4D49, "Info-ZIP VMS"},
      {0x07C8, "old InfoZIP Macintosh"},
      {0x334D, "new InfoZIP Macintosh"},
      {0x4B46, "MD5 digest"},
      {0x470F, "MVS"},
      {0x4453, "Security Descriptor"},
      {0x0009, "OS/2"},
      {0x000F, "PKWARE Patch Descriptor"},
      {0x000D, "PKWARE Unix"},
      {0x000C, "PKWARE VMS"},
      {0xFB4A, "SMS/QDOS"},
      {0x4D63, "SmartZip Macintosh"},
      {0x4341, "Acorn SparkFS"},
      {0x4154, "Tandem NSK"},
      {0x6854, "Theos"},
      {0x4854, "Theos"},
      {0x5455, "universal time"},
      {0x4704, "VM/CMS"},
      {0x554E, "Xceed Library"},
      {0x2605, "ZipIt Macintosh"},
      {0x2705, "ZipIt Macintosh (short)"},
  };
  for (const Entry& entry : kNames) {
    if (entry.id == id) return entry.name;
  }
  return "unknown";
}

// ---------------------------------------------------------------------------------------------
// The list

namespace {

RkExtraVerdict ReadRecord(uint16_t id, const uint8_t* data, uint16_t size, std::unique_ptr<RkExtraType>& record) {
  switch (id) {
    case kExtraZip64:
      return RkExtraZip64::Read(data, size, record);
    case kExtraWin32Attr:
      return RkExtraWin32Attr::Read(data, size, record);
    case kExtraPKCrypt:
      return RkExtraPKCrypt::Read(data, size, record);
    case kExtraUnicodeComment:
    case kExtraUnicodeFilename:
      return RkExtraUnicode::Read(id, data, size, record);
    case kExtraAesCrypt:
      return RkExtraAesCrypt::Read(data, size, record);
    case kExtraEnterprisePublicKeyCrypto:
      return RkExtraEnterprisePublicKeyCrypto::Read(data, size, record);
    case kExtraFileReference:
      return RkExtraFileReference::Read(data, size, record);
    default:
      return RkExtraVerdict::kGeneric;
  }
}

}  // namespace

RkExtra::RkExtra(const RkExtra& other) { Parse(other.Serialize()); }

RkExtra& RkExtra::operator=(const RkExtra& other) {
  if (this != &other) Parse(other.Serialize());
  return *this;
}

RkExtra::~RkExtra() = default;

void RkExtra::Parse(const uint8_t* bytes, size_t length) {
  records_.clear();
  cursor_ = records_.cend();
  if (bytes == nullptr) return;
  size_t pos = 0;
  while (length - pos >= kHeaderSize) {
    const uint16_t id = Le16(bytes + pos);
    const uint16_t size = Le16(bytes + pos + 2);
    // A record that claims more than is left ends the field; what stands before it is kept.
    if (size > length - pos - kHeaderSize) break;
    const uint8_t* data = bytes + pos + kHeaderSize;
    std::unique_ptr<RkExtraType> record;
    switch (ReadRecord(id, data, size, record)) {
      case RkExtraVerdict::kTaken:
        records_.push_back(std::move(record));
        break;
      case RkExtraVerdict::kGeneric:
        records_.push_back(std::make_unique<RkExtraGeneric>(id, Raw(data, size)));
        break;
      case RkExtraVerdict::kDropped:
        break;
    }
    pos += kHeaderSize + size;
  }
  cursor_ = records_.cend();
}

std::string RkExtra::Serialize() const {
  size_t total = 0;
  for (const auto& record : records_) total += kHeaderSize + record->Size();
  std::string out(total, '\0');
  auto* begin = reinterpret_cast<uint8_t*>(out.data());
  uint8_t* p = begin;
  for (const auto& record : records_) {
    uint8_t* end = record->Write(p, total - static_cast<size_t>(p - begin));
    // A record that cannot write itself is left out rather than leaving a hole of zeros.
    if (end != nullptr) p = end;
  }
  out.resize(static_cast<size_t>(p - begin));
  return out;
}

void RkExtra::Remove(uint16_t id) {
  records_.remove_if([id](const std::unique_ptr<RkExtraType>& record) { return record->GetId() == id; });
  cursor_ = records_.cend();
}

const RkExtraType* RkExtra::Find(uint16_t id) const {
  for (const auto& record : records_) {
    if (record->GetId() == id) return record.get();
  }
  return nullptr;
}

void RkExtra::ApplyRecords(std::string_view field, RkZipEntry& entry, const RkExtraContext& context) {
  const auto* bytes = reinterpret_cast<const uint8_t*>(field.data());
  const size_t length = field.size();
  size_t pos = 0;
  while (length - pos >= kHeaderSize) {
    const uint16_t id = Le16(bytes + pos);
    const uint16_t size = Le16(bytes + pos + 2);
    if (size > length - pos - kHeaderSize) break;
    const uint8_t* data = bytes + pos + kHeaderSize;
    std::unique_ptr<RkExtraType> record;
    switch (ReadRecord(id, data, size, record)) {
      case RkExtraVerdict::kTaken:
        record->Apply(entry, context);
        break;
      case RkExtraVerdict::kGeneric:
        // Raw records mean nothing to an entry, but for an AES record that was not understood.
        if (id == kExtraAesCrypt) RkExtraGeneric(id, Raw(data, size)).Apply(entry, context);
        break;
      case RkExtraVerdict::kDropped:
        break;
    }
    pos += kHeaderSize + size;
  }
}

void RkExtra::ApplyAll(RkZipEntry& entry, const RkExtraContext& context) const {
  for (const auto& record : records_) record->Apply(entry, context);
}

const RkExtraType* RkExtra::First() {
  cursor_ = records_.cbegin();
  return cursor_ == records_.cend() ? nullptr : cursor_->get();
}

const RkExtraType* RkExtra::Next() {
  if (cursor_ == records_.cend()) return nullptr;
  ++cursor_;
  return cursor_ == records_.cend() ? nullptr : cursor_->get();
}

}  // namespace RkArcLib
