#include "RkFileIn.h"

#include "RkFileIO.h"

namespace RkPipeLib {

uint64_t RkFileIn::ReadInto(RkPipeBuffer* buffer) {
  const size_t n = file_->Read(buffer->base(), buffer->capacity());
  if (n < buffer->capacity() && file_->LastError() != 0) {
    output_.returnFree(buffer);
    throw RkLib::RkFatalError(RkLib::kErrReadFile);
  }
  return n;
}

void RkFileIn::Run() {
  RK_ASSERT(file_ != nullptr && file_->IsOpen());
  RkPipeBuffer* buffer = output_.getFree();
  for (uint64_t n = ReadInto(buffer); n != 0; n = ReadInto(buffer)) {
    totalRead_ += n;
    buffer->setLength(n);
    output_.put(buffer);
    buffer = output_.getFree();
  }
  output_.finish(buffer);
  output_.setLast();
}

}  // namespace RkPipeLib
