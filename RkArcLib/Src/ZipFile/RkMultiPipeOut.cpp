#include "RkMultiPipeOut.h"

#include "RkError.h"

namespace RkArcLib {

RkMultiPipeOut::RkMultiPipeOut() : RkTargetNode(nullptr, nullptr), spare_(new RkPipeLib::RkPipeBuffer(kBufferBytes)) {}

RkMultiPipeOut::~RkMultiPipeOut() { delete spare_; }

void RkMultiPipeOut::Begin(uint64_t limit) {
  limit_ = limit;
  written_ = 0;
}

void RkMultiPipeOut::Run() {
  while (TakeInto(spare_)) {
    const uint64_t n = spare_->remaining();
    if (n > limit_ - written_) throw RkLib::RkSevereError(kZipErrSizeMismatch);
    Consume(spare_->readPos(), static_cast<size_t>(n));
    written_ += n;
    if (!Poll()) throw RkLib::RkFatalError(RkPipeLib::kPipeCancelled);
  }
}

void RkExtractOut::Consume(const uint8_t* data, size_t size) {
  RK_ASSERT(file_ != nullptr && file_->IsOpen());
  if (file_->Write(data, size) != size)
    throw RkLib::RkFatalError(file_->DiskFull() ? RkPipeLib::kPipeDiskFull : RkPipeLib::kPipeWriteFailed);
}

}  // namespace RkArcLib
