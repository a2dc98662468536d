// The record classes behind RkExtra, one per header id that means something to us and a raw one
// for the rest. Their fields are the record's own, in file order, so that Write gives back what
// was read; whatever a record carries beyond its known layout is kept raw and written back too.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include "RkZipExtra.h"

namespace RkArcLib {

// What reading one record came to. A dropped record is one whose bytes cannot be what its id
// says; a generic one is kept raw because we cannot tell what it means.
enum class RkExtraVerdict { kTaken, kDropped, kGeneric };

class RkExtraGeneric final : public RkExtraType {
 public:
  RkExtraGeneric(uint16_t id, std::string data);
  std::unique_ptr<RkExtraType> Clone() const override { return std::make_unique<RkExtraGeneric>(*this); }
  void Apply(RkZipEntry& entry, const RkExtraContext& context) const override;
  uint8_t* Write(uint8_t* buffer, size_t room) const override;
  void Dump(std::string& info) const override;
  Kind GetKind() const noexcept override { return Kind::kGeneric; }

  const std::string& Data() const noexcept { return data_; }

 private:
  std::string data_;
};

class RkExtraZip64 final : public RkExtraType {
 public:
  static RkExtraVerdict Read(const uint8_t* data, uint16_t size, std::unique_ptr<RkExtraType>& record);
  std::unique_ptr<RkExtraType> Clone() const override { return std::make_unique<RkExtraZip64>(*this); }
  void Apply(RkZipEntry& entry, const RkExtraContext& context) const override;
  uint8_t* Write(uint8_t* buffer, size_t room) const override;
  void Dump(std::string& info) const override;
  Kind GetKind() const noexcept override { return Kind::kZip64; }

  // Which value stands for which field is known only against an entry: see Apply.
  std::array<uint64_t, 3> values{};
  uint8_t valueCount = 0;
  bool hasPartNumber = false;
  uint32_t partNumber = 0;

 private:
  explicit RkExtraZip64(uint16_t size) : RkExtraType(kExtraZip64, size) {}
};

class RkExtraWin32Attr final : public RkExtraType {
 public:
  static RkExtraVerdict Read(const uint8_t* data, uint16_t size, std::unique_ptr<RkExtraType>& record);
  std::unique_ptr<RkExtraType> Clone() const override { return std::make_unique<RkExtraWin32Attr>(*this); }
  void Apply(RkZipEntry& entry, const RkExtraContext& context) const override;
  uint8_t* Write(uint8_t* buffer, size_t room) const override;
  void Dump(std::string& info) const override;
  Kind GetKind() const noexcept override { return Kind::kWin32Attr; }

  uint32_t reserved = 0;
  uint16_t tag = 0;
  uint16_t tagSize = 0;
  uint64_t lastWriteTime = 0;  // FILETIMEs
  uint64_t lastAccessTime = 0;
  uint64_t creationTime = 0;
  std::string rest;

 private:
  explicit RkExtraWin32Attr(uint16_t size) : RkExtraType(kExtraWin32Attr, size) {}
};

class RkExtraPKCrypt final : public RkExtraType {
 public:
  static RkExtraVerdict Read(const uint8_t* data, uint16_t size, std::unique_ptr<RkExtraType>& record);
  std::unique_ptr<RkExtraType> Clone() const override { return std::make_unique<RkExtraPKCrypt>(*this); }
  void Apply(RkZipEntry& entry, const RkExtraContext& context) const override;
  uint8_t* Write(uint8_t* buffer, size_t room) const override;
  void Dump(std::string& info) const override;
  Kind GetKind() const noexcept override { return Kind::kPKCrypt; }

  uint16_t format = 2;
  uint16_t algorithmId = 0x660E;  // AES-128
  uint16_t keyBits = 128;
  uint16_t flags = 1;
  std::string rest;

 private:
  explicit RkExtraPKCrypt(uint16_t size) : RkExtraType(kExtraPKCrypt, size) {}
};

// The name (0x7075) and comment (0x6375) records share one layout.
class RkExtraUnicode final : public RkExtraType {
 public:
  static RkExtraVerdict Read(uint16_t id, const uint8_t* data, uint16_t size, std::unique_ptr<RkExtraType>& record);
  std::unique_ptr<RkExtraType> Clone() const override { return std::make_unique<RkExtraUnicode>(*this); }
  void Apply(RkZipEntry& entry, const RkExtraContext& context) const override;
  uint8_t* Write(uint8_t* buffer, size_t room) const override;
  void Dump(std::string& info) const override;
  Kind GetKind() const noexcept override {
    return id_ == kExtraUnicodeFilename ? Kind::kUnicodeFilename : Kind::kUnicodeComment;
  }

  uint8_t version = 1;
  uint32_t crc = 0;  // of the header's raw bytes the text stands for
  std::string text;  // UTF-8

 private:
  RkExtraUnicode(uint16_t id, uint16_t size) : RkExtraType(id, size) {}
};

class RkExtraAesCrypt final : public RkExtraType {
 public:
  static constexpr uint16_t kVendorAE = 0x4541;  // "AE" as stored

  static RkExtraVerdict Read(const uint8_t* data, uint16_t size, std::unique_ptr<RkExtraType>& record);
  std::unique_ptr<RkExtraType> Clone() const override { return std::make_unique<RkExtraAesCrypt>(*this); }
  void Apply(RkZipEntry& entry, const RkExtraContext& context) const override;
  uint8_t* Write(uint8_t* buffer, size_t room) const override;
  void Dump(std::string& info) const override;
  Kind GetKind() const noexcept override { return Kind::kAesCrypt; }

  // Held in the derived form the entry gets; Write turns it back into strength and field.
  uint16_t version = 0;
  uint16_t vendor = kVendorAE;
  uint16_t keyBits = 0;
  uint16_t method = 256;
  uint32_t iterations = 0;
  std::string rest;

 private:
  explicit RkExtraAesCrypt(uint16_t size) : RkExtraType(kExtraAesCrypt, size) {}
};

class RkExtraEnterprisePublicKeyCrypto final : public RkExtraType {
 public:
  static RkExtraVerdict Read(const uint8_t* data, uint16_t size, std::unique_ptr<RkExtraType>& record);
  std::unique_ptr<RkExtraType> Clone() const override {
    return std::make_unique<RkExtraEnterprisePublicKeyCrypto>(*this);
  }
  void Apply(RkZipEntry& entry, const RkExtraContext& context) const override;
  uint8_t* Write(uint8_t* buffer, size_t room) const override;
  void Dump(std::string& info) const override;
  Kind GetKind() const noexcept override { return Kind::kEnterprisePublicKeyCrypto; }

  uint8_t version = 1;
  uint8_t kind = 0;
  std::string block1;
  std::string block2;  // kind 2 only
  std::string rest;

 private:
  explicit RkExtraEnterprisePublicKeyCrypto(uint16_t size) : RkExtraType(kExtraEnterprisePublicKeyCrypto, size) {}
};

class RkExtraFileReference final : public RkExtraType {
 public:
  static constexpr uint16_t kSize = 20;

  static RkExtraVerdict Read(const uint8_t* data, uint16_t size, std::unique_ptr<RkExtraType>& record);
  std::unique_ptr<RkExtraType> Clone() const override { return std::make_unique<RkExtraFileReference>(*this); }
  void Apply(RkZipEntry& entry, const RkExtraContext& context) const override;
  uint8_t* Write(uint8_t* buffer, size_t room) const override;
  void Dump(std::string& info) const override;
  Kind GetKind() const noexcept override { return Kind::kFileReference; }

  uint32_t checksum = 0;
  std::array<uint8_t, 16> referenceId{};

  // What the checksum must be for this id to belong to the entry.
  uint32_t CheckValue(const RkZipEntry& entry) const noexcept;

 private:
  RkExtraFileReference() : RkExtraType(kExtraFileReference, kSize) {}
};

}  // namespace RkArcLib
