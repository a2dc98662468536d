// RkPipeErrorHandler: ranks the failures of a pipe's nodes into the pipe's status.
//
// Report may run on every thread of the pipe at once; it takes the pipe's lock, which guards the
// status and is never held together with a stream's lock. A report replaces the status only
// when its severity is strictly higher, so the first failure of the highest severity stays; the
// copy that a failed node's neighbour reports when it re-raises that failure changes nothing.
#pragma once

#include <mutex>

#include "RkCallBack.h"
#include "RkError.h"

namespace RkPipeLib {

class RkPipeErrorHandler final : public RkErrorCallBack {
 public:
  RkPipeErrorHandler(RkLib::RkErrorInfo* status, std::mutex* lock) : status_(status), lock_(lock) {}
  void Report(const RkLib::RkErrorInfo& error) override;

 private:
  RkLib::RkErrorInfo* status_;  // guarded by *lock_
  std::mutex* lock_;
};

}  // namespace RkPipeLib
