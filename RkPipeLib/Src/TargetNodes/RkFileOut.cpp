#include "RkFileOut.h"

#include "RkFileIO.h"

namespace RkPipeLib {

RkFileOut::RkFileOut(RkLib::RkFileIO* file, RkLib::RkMsgQueue* first, RkLib::RkMsgQueue* second)
    : RkTargetNode(first, second), file_(file), spare_(new RkPipeBuffer(kSpareBytes)) {}

RkFileOut::~RkFileOut() { delete spare_; }

void RkFileOut::Run() {
  RK_ASSERT(file_ != nullptr && file_->IsOpen());
  while (TakeInto(spare_)) {
    const size_t n = spare_->remaining();
    if (file_->Write(spare_->readPos(), n) != n)
      throw RkLib::RkFatalError(file_->DiskFull() ? kPipeDiskFull : kPipeWriteFailed);
    totalWritten_ += n;
    if (!Poll()) throw RkLib::RkFatalError(kPipeCancelled);
  }
}

}  // namespace RkPipeLib
