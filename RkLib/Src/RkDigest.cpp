#include "RkDigest.h"

#include <lzma.h>
#include <openssl/evp.h>

#include <cstring>

#include "RkCrc32.h"
#include "RkError.h"

namespace RkLib {
namespace {

void StoreLe(uint64_t v, size_t count, uint8_t* out) {
  for (size_t i = 0; i < count; ++i) out[i] = static_cast<uint8_t>(v >> (8 * i));
}

uint64_t LoadLe(const uint8_t* in, size_t count) {
  uint64_t v = 0;
  for (size_t i = 0; i < count; ++i) v |= uint64_t{in[i]} << (8 * i);
  return v;
}

}  // namespace

std::unique_ptr<RkDigestFunction> RkDigestFunction::Create(uint32_t kind) {
  switch (kind) {
    case kDigestNone:
      return std::make_unique<RkDigestFunction>();
    case kDigestCrc32:
      return std::make_unique<RkDigestCrc32>();
    case kDigestCrc64:
      return std::make_unique<RkDigestCrc64>();
    case kDigestSha1:
      return std::make_unique<RkDigestSha1>();
    case kDigestSha256:
      return std::make_unique<RkDigestSha256>();
    case kDigestMd5:
      return std::make_unique<RkDigestMd5>();
    default:
      break;
  }
  RK_ASSERT(false);
  return nullptr;
}

RkDigestFunction::~RkDigestFunction() = default;

void RkDigestFunction::Reset() { std::memset(value_.bytes, 0, sizeof value_.bytes); }

bool RkDigestFunction::IsValueEmpty(const RkDigestValue& value) const {
  return LoadLe(value.bytes + 4, 4) == 0;
}

bool RkDigestFunction::GetValue(RkDigestValue* out) const {
  RK_ASSERT(out != nullptr);
  *out = value_;
  return true;
}

bool RkDigestFunction::SetValue(const RkDigestValue& value) {
  if (value.kind != GetKind()) return false;
  value_ = value;
  return true;
}

uint32_t RkDigestFunction::StoredValueWord() const { return static_cast<uint32_t>(LoadLe(value_.bytes, 4)); }

// CRC-32

void RkDigestCrc32::Reset() {
  RkDigestFunction::Reset();
  crc_ = RkCrc32(0, nullptr, 0);
}

void RkDigestCrc32::Finish() { StoreLe(crc_, 4, value_.bytes); }

bool RkDigestCrc32::SetValue(const RkDigestValue& value) {
  if (!RkDigestFunction::SetValue(value)) return false;
  crc_ = static_cast<uint32_t>(LoadLe(value_.bytes, 4));
  return true;
}

void RkDigestCrc32::Update(const void* bytes, size_t length) {
  RK_ASSERT(bytes != nullptr || length == 0);
  if (length != 0) crc_ = RkCrc32(crc_, bytes, length);
}

void RkDigestCrc32::Final(uint8_t* digest) {
  Finish();
  std::memcpy(digest, value_.bytes, GetLength());
}

// CRC-64, the ECMA-182 polynomial in the reflected form of xz.

void RkDigestCrc64::Reset() {
  RkDigestFunction::Reset();
  crc_ = 0;
}

void RkDigestCrc64::Finish() { StoreLe(crc_, 8, value_.bytes); }

bool RkDigestCrc64::SetValue(const RkDigestValue& value) {
  if (!RkDigestFunction::SetValue(value)) return false;
  crc_ = LoadLe(value_.bytes, 8);
  return true;
}

void RkDigestCrc64::Update(const void* bytes, size_t length) {
  RK_ASSERT(bytes != nullptr || length == 0);
  if (length != 0) crc_ = lzma_crc64(static_cast<const uint8_t*>(bytes), length, crc_);
}

void RkDigestCrc64::Final(uint8_t* digest) {
  Finish();
  std::memcpy(digest, value_.bytes, GetLength());
}

// Hashes through libcrypto

RkDigestEvp::RkDigestEvp(uint32_t kind, const evp_md_st* md) : RkDigestFunction(kind), md_(md) {
  const int size = md_ != nullptr ? EVP_MD_size(md_) : 0;
  RK_ASSERT(size >= 0 && static_cast<size_t>(size) <= RkDigestValue::kMaxBytes);
  length_ = static_cast<size_t>(size);
  context_ = EVP_MD_CTX_new();
  Start();
}

RkDigestEvp::~RkDigestEvp() { EVP_MD_CTX_free(context_); }

void RkDigestEvp::Start() {
  valid_ = context_ != nullptr && md_ != nullptr && EVP_DigestInit_ex(context_, md_, nullptr) == 1;
}

void RkDigestEvp::Reset() {
  RkDigestFunction::Reset();
  Start();
}

void RkDigestEvp::Finish() {
  if (!valid_) return;
  EVP_MD_CTX* copy = EVP_MD_CTX_new();
  uint8_t digest[EVP_MAX_MD_SIZE];
  unsigned int written = 0;
  const bool ok = copy != nullptr && EVP_MD_CTX_copy_ex(copy, context_) == 1 &&
                  EVP_DigestFinal_ex(copy, digest, &written) == 1 && written == length_;
  EVP_MD_CTX_free(copy);
  if (ok) {
    std::memcpy(value_.bytes, digest, length_);
  } else {
    valid_ = false;
  }
}

void RkDigestEvp::Update(const void* bytes, size_t length) {
  RK_ASSERT(bytes != nullptr || length == 0);
  if (valid_ && length != 0 && EVP_DigestUpdate(context_, bytes, length) != 1) valid_ = false;
}

void RkDigestEvp::Final(uint8_t* digest) {
  Finish();
  std::memcpy(digest, value_.bytes, length_);
}

RkDigestSha1::RkDigestSha1() : RkDigestEvp(kDigestSha1, EVP_sha1()) {}

RkDigestSha256::RkDigestSha256() : RkDigestEvp(kDigestSha256, EVP_sha256()) {}

RkDigestMd5::RkDigestMd5() : RkDigestEvp(kDigestMd5, EVP_md5()) {}

}  // namespace RkLib
