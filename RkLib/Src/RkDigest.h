// Checksums and hashes behind one interface, so that an archive record can hold a digest of any
// kind and a pipe stage can update one without knowing which.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

#include "RkCrc32.h"

struct evp_md_ctx_st;
struct evp_md_st;

namespace RkLib {

enum RkDigestKind : uint32_t {
  kDigestNone = 0,
  kDigestCrc32 = 1,
  kDigestCrc64 = 2,
  kDigestSha1 = 3,
  kDigestSha256 = 4,
  kDigestMd5 = 5,
};

// A digest held by value: the kind, then the digest bytes padded with zero. CRCs are stored
// little-endian, hashes in their published byte order.
struct RkDigestValue {
  static constexpr size_t kMaxBytes = 36;

  uint32_t kind = kDigestNone;
  uint8_t bytes[kMaxBytes] = {};

  friend bool operator==(const RkDigestValue&, const RkDigestValue&) = default;
};
static_assert(sizeof(RkDigestValue) == 40, "archive records store the value as 40 bytes");

// The base is also the kind that computes nothing. A digest runs Reset, any number of Update
// calls, then Finish, after which GetValue holds the kind and the digest of the bytes so far.
// Finish leaves the running state alone, so Update may go on and a later Finish covers the longer
// input.
class RkDigestFunction {
 public:
  // An unknown kind is an assertion failure: kinds come from our own records, never raw input.
  static std::unique_ptr<RkDigestFunction> Create(uint32_t kind);

  RkDigestFunction() = default;
  RkDigestFunction(const RkDigestFunction&) = delete;
  RkDigestFunction& operator=(const RkDigestFunction&) = delete;

  virtual ~RkDigestFunction();
  virtual uint32_t GetKind() const { return kDigestNone; }
  // Digest bytes.
  virtual size_t GetLength() const { return 0; }
  // Zeroes the whole value, kind included, and starts a new input: until the next Finish the value
  // reads as empty, so a stage that stops early never leaves the digest of an earlier item behind.
  virtual void Reset();
  virtual void Finish() {}
  // False when the library behind a hash could not set it up; such an object ignores its input.
  virtual bool IsValid() const { return true; }
  virtual bool IsKindEmpty(const RkDigestValue& value) const { return value.kind == kDigestNone; }
  // Looks at the third 32-bit word only, that is digest bytes 4 to 7.
  virtual bool IsValueEmpty(const RkDigestValue& value) const;
  // The first four digest bytes, little-endian: the whole CRC-32.
  virtual uint32_t GetValueWord() const { return 0; }
  virtual bool GetValue(RkDigestValue* out) const;
  // The number the archive records use for this kind.
  virtual uint32_t GetKindCode() const { return GetKind(); }
  // False, keeping the stored value, if the value is of another kind.
  virtual bool SetValue(const RkDigestValue& value);
  // Unused; they keep every kind's table of operations the same length.
  virtual void Reserved1() {}
  virtual void Reserved2() {}
  virtual void Reserved3() {}
  virtual void Update(const void* /*bytes*/, size_t /*length*/) {}
  // Finishes and copies GetLength() bytes of the digest to the output.
  virtual void Final(uint8_t* /*digest*/) {}

 protected:
  explicit RkDigestFunction(uint32_t kind) { value_.kind = kind; }
  // The first digest word of the stored value, for the subclasses' GetValueWord.
  uint32_t StoredValueWord() const;

  RkDigestValue value_;
};

// CRC-64 with the ECMA-182 polynomial in the reflected form that xz uses.
uint64_t RkCrc64(uint64_t crc, const void* data, size_t length) noexcept;

// A CRC kept little-endian in the value. SetValue also resumes the running CRC from the value,
// so a split input can go on where it stopped.
template <typename Word, uint32_t Kind, Word (*Fold)(Word, const void*, size_t)>
class RkDigestCrc final : public RkDigestFunction {
 public:
  RkDigestCrc() : RkDigestFunction(Kind) {}

  uint32_t GetKind() const override { return Kind; }
  size_t GetLength() const override { return sizeof(Word); }
  void Reset() override;
  void Finish() override;
  uint32_t GetValueWord() const override { return StoredValueWord(); }
  bool SetValue(const RkDigestValue& value) override;
  void Update(const void* bytes, size_t length) override;
  void Final(uint8_t* digest) override;

 private:
  Word crc_ = 0;
};

using RkDigestCrc32 = RkDigestCrc<uint32_t, kDigestCrc32, &RkCrc32>;
using RkDigestCrc64 = RkDigestCrc<uint64_t, kDigestCrc64, &RkCrc64>;

// The hashes computed by libcrypto; the subclasses only name the algorithm.
class RkDigestEvp : public RkDigestFunction {
 public:
  ~RkDigestEvp() override;

  size_t GetLength() const override { return length_; }
  void Reset() override;
  // Finishes a copy of the running state, which is what lets Update go on afterwards.
  void Finish() override;
  bool IsValid() const override { return valid_; }
  uint32_t GetValueWord() const override { return StoredValueWord(); }
  void Update(const void* bytes, size_t length) override;
  void Final(uint8_t* digest) override;

 protected:
  RkDigestEvp(uint32_t kind, const evp_md_st* md);

 private:
  void Start();

  const evp_md_st* md_;
  evp_md_ctx_st* context_ = nullptr;
  size_t length_ = 0;
  bool valid_ = false;
};

class RkDigestSha1 final : public RkDigestEvp {
 public:
  RkDigestSha1();
  uint32_t GetKind() const override { return kDigestSha1; }
};

class RkDigestSha256 final : public RkDigestEvp {
 public:
  RkDigestSha256();
  uint32_t GetKind() const override { return kDigestSha256; }
};

class RkDigestMd5 final : public RkDigestEvp {
 public:
  RkDigestMd5();
  uint32_t GetKind() const override { return kDigestMd5; }
};

}  // namespace RkLib
