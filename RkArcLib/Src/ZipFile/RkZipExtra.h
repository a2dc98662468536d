// RkExtra: the tagged records of a zip header's extra field, parsed into objects in file order.
//
// Each record applies its meaning to the entry (64-bit sizes, exact times, AES parameters, the
// Unicode name) and can write itself out again. A damaged record costs that record and no more:
// parsing never fails, and bytes left over at the end of the field are dropped.
#pragma once

#include <cstddef>
#include <cstdint>
#include <list>
#include <memory>
#include <string>
#include <string_view>

namespace RkArcLib {

class RkZipEntry;

// Header ids of the records that have classes of their own.
enum RkExtraId : uint16_t {
  kExtraZip64 = 0x0001,
  kExtraWin32Attr = 0x000A,
  kExtraPKCrypt = 0x0017,
  kExtraUnicodeComment = 0x6375,
  kExtraUnicodeFilename = 0x7075,
  kExtraAesCrypt = 0x9901,
  kExtraEnterprisePublicKeyCrypto = 0x9902,
  kExtraFileReference = 0x9903,
};

// What a record needs besides the entry while it applies itself: the header's raw name and
// comment bytes, which the entry does not keep.
struct RkExtraContext {
  std::string_view rawName;
  std::string_view rawComment;
};

class RkExtraType {
 public:
  enum class Kind { kGeneric, kZip64, kWin32Attr, kPKCrypt, kUnicodeComment, kUnicodeFilename, kAesCrypt,
                    kEnterprisePublicKeyCrypto, kFileReference };

  RkExtraType(uint16_t id, uint16_t size) : id_(id), size_(size) {}
  virtual std::unique_ptr<RkExtraType> Clone() const = 0;
  virtual ~RkExtraType() = default;
  // Writes the record's meaning into the entry.
  virtual void Apply(RkZipEntry& entry, const RkExtraContext& context) const = 0;
  uint16_t GetId() const noexcept { return id_; }
  uint16_t Size() const noexcept { return size_; }
  // Serialises header and data; returns the end, or null if `room` is too small.
  virtual uint8_t* Write(uint8_t* buffer, size_t room) const = 0;
  // One or more lines for an info listing.
  virtual void Dump(std::string& info) const = 0;
  virtual Kind GetKind() const noexcept = 0;

 protected:
  uint16_t id_;
  uint16_t size_;  // data bytes, without the 4-byte header
};

// Display name of a record id, "unknown" for ids nobody has registered.
const char* RkExtraName(uint16_t id) noexcept;

class RkExtra {
 public:
  RkExtra() = default;
  RkExtra(const RkExtra& other);
  RkExtra& operator=(const RkExtra& other);
  ~RkExtra();

  void Parse(const uint8_t* bytes, size_t length);
  void Parse(std::string_view bytes) { Parse(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size()); }
  std::string Serialize() const;
  void Remove(uint16_t id);
  const RkExtraType* Find(uint16_t id) const;
  // Every record, in file order.
  void ApplyAll(RkZipEntry& entry, const RkExtraContext& context) const;
  // The same as Parse followed by ApplyAll, without keeping the list: the load of a directory with
  // a timestamp record on every entry then costs no allocation for the records that mean nothing.
  static void ApplyRecords(std::string_view field, RkZipEntry& entry, const RkExtraContext& context);

  const RkExtraType* First();
  const RkExtraType* Next();
  size_t Count() const noexcept { return records_.size(); }
  bool Empty() const noexcept { return records_.empty(); }

 private:
  std::list<std::unique_ptr<RkExtraType>> records_;
  std::list<std::unique_ptr<RkExtraType>>::const_iterator cursor_ = records_.cend();  // end: Next gives null
};

}  // namespace RkArcLib
