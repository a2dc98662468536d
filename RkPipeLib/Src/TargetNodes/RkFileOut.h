// RkFileOut: the target that writes the stream to an open file at its current position.
#pragma once

#include <cstdint>

#include "RkLibFwd.h"
#include "RkNode.h"

namespace RkPipeLib {

class RkFileOut : public RkTargetNode {
 public:
  // Its exchange buffer has this size whatever the settings say; producers fill the buffers they
  // get to each one's own capacity.
  static constexpr uint64_t kSpareBytes = 524288;

  // The file stays the owner's and must stay open while the pipe runs.
  RkFileOut(RkLib::RkFileIO* file, RkLib::RkMsgQueue* first, RkLib::RkMsgQueue* second);
  ~RkFileOut() override;

  // A short write throws RkFatalError(7018) when the disk is full and RkFatalError(7008)
  // otherwise; the owner's cancel, seen through Poll after each buffer, RkFatalError(7002).
  void Run() override;
  uint64_t TotalWritten() const noexcept { return totalWritten_; }

 private:
  RkLib::RkFileIO* file_;
  RkPipeBuffer* spare_;  // owned: the buffer last taken, or the first spare
  uint64_t totalWritten_ = 0;
};

}  // namespace RkPipeLib
