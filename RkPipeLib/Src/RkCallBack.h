// The two interfaces through which a pipe talks to its owner.
#pragma once

#include "RkLibFwd.h"

namespace RkPipeLib {

// The owner's window on a running pipe. Poll drains the owner's message queues, updates its
// progress display and answers false once the user has cancelled. The target calls it on the
// thread that called RkPipe::Run; a link that is given one calls it on its own thread.
class RkUICallBack {
 public:
  virtual ~RkUICallBack() = default;
  virtual bool Poll(RkLib::RkMsgQueue* queue) = 0;
};

// Receives each node's failure as it ends; it may be called from every thread of a pipe at once.
class RkErrorCallBack {
 public:
  virtual ~RkErrorCallBack() = default;
  virtual void Report(const RkLib::RkErrorInfo& error) = 0;
};

}  // namespace RkPipeLib
