#include "RkPipeErrorHandler.h"

namespace RkPipeLib {

void RkPipeErrorHandler::Report(const RkLib::RkErrorInfo& error) {
  std::lock_guard<std::mutex> lock(*lock_);
  if (error.severity() > status_->severity()) *status_ = error;
}

}  // namespace RkPipeLib
