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

void RkDigestFunction::Reset() { value_ = RkDigestValue(); }

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

// CRCs. Both start from 0, the start value that RkCrc32(0, nullptr, 0) gives too.

uint64_t RkCrc64(uint64_t crc, const void* data, size_t length) noexcept {
  return length == 0 ? crc : lzma_crc64(static_cast<const uint8_t*>(data), length, crc);
}

template <typename Word, uint32_t Kind, Word (*Fold)(Word, const void*, size_t)>
void RkDigestCrc<Word, Kind, Fold>::Reset() {
  RkDigestFunction::Reset();
  crc_ = 0;
}

template <typename Word, uint32_t Kind, Word (*Fold)(Word, const void*, size_t)>
void RkDigestCrc<Word, Kind, Fold>::Finish() {
  value_.kind = Kind;
  StoreLe(crc_, sizeof(Word), value_.bytes);
}

template <typename Word, uint32_t Kind, Word (*Fold)(Word, const void*, size_t)>
bool RkDigestCrc<Word, Kind, Fold>::SetValue(const RkDigestValue& value) {
  if (!RkDigestFunction::SetValue(value)) return false;
  crc_ = static_cast<Word>(LoadLe(value_.bytes, sizeof(Word)));
  return true;
}

template <typename Word, uint32_t Kind, Word (*Fold)(Word, const void*, size_t)>
void RkDigestCrc<Word, Kind, Fold>::Update(const void* bytes, size_t length) {
  RK_ASSERT(bytes != nullptr || length == 0);
  if (length != 0) crc_ = Fold(crc_, bytes, length);
}

template <typename Word, uint32_t Kind, Word (*Fold)(Word, const void*, size_t)>
void RkDigestCrc<Word, Kind, Fold>::Final(uint8_t* digest) {
  Finish();
  std::memcpy(digest, value_.bytes, GetLength());
}

template class RkDigestCrc<uint32_t, kDigestCrc32, &RkCrc32>;
template class RkDigestCrc<uint64_t, kDigestCrc64, &RkCrc64>;

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
    value_.kind = GetKind();
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
