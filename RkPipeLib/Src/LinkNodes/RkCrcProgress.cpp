#include "RkCrcProgress.h"

#include <algorithm>

#include "RkCrc32.h"
#include "RkProgress.h"

namespace RkPipeLib {

RkCrcProgress::RkCrcProgress(RkLib::RkMsgQueue* first, RkLib::RkMsgQueue* second,
                             const RkStreamSettings& settings)
    : RkLinkNode(first, second, settings), crc_(RkLib::RkCrc32(0, nullptr, 0)) {}

RkCrcProgress::~RkCrcProgress() = default;

void RkCrcProgress::Take(const RkPipeBuffer& buffer) {
  const uint64_t n = buffer.remaining();
  if (n == 0) return;
  const uint8_t* p = buffer.readPos();
  if (digestEnabled_) {
    // The digest is a pass of its own; pieces that stay in the first-level cache spare it a
    // fetch from further out.
    constexpr uint64_t kPiece = 16 * 1024;
    for (uint64_t at = 0; at < n; at += kPiece) {
      const size_t piece = static_cast<size_t>(std::min(kPiece, n - at));
      crc_ = RkLib::RkCrc32CountText(crc_, p + at, piece, textBytes_);
      digest_->Update(p + at, piece);
    }
  } else {
    crc_ = RkLib::RkCrc32CountText(crc_, p, n, textBytes_);
  }
  if (progress_) progress_->Add(static_cast<int64_t>(n));
  totalBytes_ += n;
  if (callback_ && !callback_->Poll(first_)) throw RkLib::RkFatalError(kPipeCancelled);
}

void RkCrcProgress::Run() {
  PassBuffers([this](RkPipeBuffer& buffer) { Take(buffer); });
  if (digestEnabled_) {
    digest_->Finish();
    digest_->GetValue(&digestValue_);
  }
}

void RkCrcProgress::Reset() {
  output_.Reset();
  crc_ = RkLib::RkCrc32(0, nullptr, 0);
  textBytes_ = totalBytes_ = 0;
  digestValue_ = RkLib::RkDigestValue();
  if (digest_) digest_->Reset();
}

void RkCrcProgress::SetDigestEnabled(bool enabled) {
  if (enabled && !digest_) digest_ = RkLib::RkDigestFunction::Create(RkLib::kDigestSha1);
  digestEnabled_ = enabled;
}

uint32_t RkCrcProgress::IsText() const {
  if (totalBytes_ < textBytes_) return kTextCountBroken;
  return totalBytes_ - textBytes_ <= textBytes_ / 4 ? 1 : 0;
}

}  // namespace RkPipeLib
