// RkZipEntry: one zip entry in memory, as its central record and extra records describe it.
//
// A zip can hold hundreds of thousands of entries, so an entry keeps in itself only what every
// entry has: the central record's fields, the decoded name, where its central record lies and a
// few flags. Whatever only some entries carry (a comment, encryption and time records, a file
// reference, the local header once read) lives in a detail block made on first need. The central
// extra bytes are not kept: what they mean has been applied to the entry, and whoever must write
// them back reads them again from the central record's location.
#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <string>

#include "RkString.h"
#include "RkTimeStamp.h"
#include "RkZipCHdr.h"
#include "RkZipEHdr.h"
#include "RkZipLHdr.h"

namespace RkArcLib {

// Flag bits of the general purpose field.
enum RkZipFlag : uint16_t {
  kZipFlagEncrypted = 0x0001,
  kZipFlagDescriptor = 0x0008,
  kZipFlagStrongEncryption = 0x0040,
  // kZipFlagUtf8 (0x0800) is declared with the name decoding.
};

// Methods that the entry itself must know about.
enum RkZipMethodNumber : uint32_t {
  kZipMethodStored = 0,
  kZipMethodDeflate = 8,
  kZipMethodDuplicate = 92,
  kZipMethodAes = 99,
};

// The AES record of an entry (extra 0x9901).
struct RkAesEncryption {
  uint16_t keyBits = 0;  // 128, 192 or 256
  uint16_t version = 0;  // 1, 2 or 3: AE-1, AE-2, AE-3
  uint32_t method = 256;  // the real compression method
  uint32_t iterations = 0;
};

// Strong encryption (extra 0x0017).
struct RkPkwareEncryption {
  uint16_t algorithmId = 0;
  uint16_t keyBits = 0;
  uint16_t flags = 0;
};

// Public-key encryption (extra 0x9902). Each block says whether it was present.
struct RkEnterprisePublicKeyCrypto {
  uint32_t version = 0;
  uint8_t kind = 0;
  std::string publicKey, certificate, signature;
  bool hasPublicKey = false, hasCertificate = false, hasSignature = false;
};

// As much as could be read of an AES record that was not understood: the entry can be listed but
// not extracted.
struct RkUnknownEncryption {
  std::array<uint8_t, 2> vendor{};
  uint16_t version = 0;
  uint32_t detail = 0;
};

// Exact times (extra 0x000A).
struct RkExtTimeStamps {
  RkLib::RkTimeStamp modified;
  RkLib::RkTimeStamp created;
  RkLib::RkTimeStamp accessed;
};

// What only some entries carry.
struct RkZipEntryDetail {
  RkLib::RkString comment;
  std::string rawComment;
  std::array<uint8_t, 16> referenceId{};  // all zero for none
  class RkZipEntry* target = nullptr;     // method 92: the entry that holds the data
  int64_t targetIndex = -1;               // and its index
  std::shared_ptr<RkUnknownEncryption> unknownEncryption;
  std::shared_ptr<RkExtTimeStamps> extTimeStamps;
  std::shared_ptr<RkAesEncryption> aesEncryption;
  std::shared_ptr<RkPkwareEncryption> pkwareEncryption;
  std::shared_ptr<RkEnterprisePublicKeyCrypto> enterpriseCrypto;
  // Read when the entry is extracted, never on load.
  std::unique_ptr<RkZipLHdr> localHeader;
  std::string localExtra;
  // A method 92 entry's duplicate record, as it stands behind its local header, and the kind of
  // source it names (3 once the record was read).
  std::string duplicateRecord;
  uint8_t sourceKind = 0;
};

class RkZipEntry : public RkZipCHdr {
 public:
  RkZipEntry() = default;
  explicit RkZipEntry(const RkZipCHdr& header) : RkZipCHdr(header) {}

  RkLib::RkString name;   // decoded and fixed, '\' between the parts
  RkZipLocation central;  // where the central record's signature lies
  bool hasUnicodeName = false;
  bool hasUnicodeComment = false;
  bool brokenReference = false;
  bool hasZip64 = false;  // the zip64 extra was applied: a data descriptor has 8-byte sizes
  bool deleted = false;
  bool parsed = false;

  // The detail block, made on first call.
  RkZipEntryDetail& Detail();
  const RkZipEntryDetail* detail() const noexcept { return detail_.get(); }

  const RkLib::RkString& Comment() const;
  const RkAesEncryption* Aes() const noexcept { return detail_ ? detail_->aesEncryption.get() : nullptr; }
  const RkPkwareEncryption* Pkware() const noexcept {
    return detail_ ? detail_->pkwareEncryption.get() : nullptr;
  }
  const RkUnknownEncryption* UnknownEncryption() const noexcept {
    return detail_ ? detail_->unknownEncryption.get() : nullptr;
  }
  const RkExtTimeStamps* ExtTimeStamps() const noexcept {
    return detail_ ? detail_->extTimeStamps.get() : nullptr;
  }
  bool HasReference() const noexcept;

  bool IsEncrypted() const noexcept { return (flags & kZipFlagEncrypted) != 0; }
  // The AES record's real method for an AES entry, else the header's.
  uint32_t EffectiveMethod() const noexcept;
  bool IsDirectory() const noexcept;
  bool IsLabel() const noexcept;
  bool IsSymbolicLink() const noexcept;
  // Modification time: the exact one where a record gave it, else the DOS fields; an invalid DOS
  // value gives the foundation's default.
  RkLib::RkTimeStamp Modified() const;

  // "deflated", "AES encryption", ...; "unknown" outside the table.
  static const char* MethodName(uint32_t method) noexcept;
  static const char* HostName(uint8_t host) noexcept;

 private:
  std::unique_ptr<RkZipEntryDetail> detail_;
};

}  // namespace RkArcLib
