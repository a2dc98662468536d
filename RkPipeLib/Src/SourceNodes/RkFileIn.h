// RkFileIn: the source that reads an open file from its current position to its end.
#pragma once

#include <cstdint>

#include "RkLibFwd.h"
#include "RkNode.h"

namespace RkPipeLib {

class RkFileIn : public RkSourceNode {
 public:
  // The file stays the owner's and must stay open while the pipe runs.
  RkFileIn(RkLib::RkFileIO* file, RkLib::RkMsgQueue* first, RkLib::RkMsgQueue* second,
           const RkStreamSettings& settings = RkStreamSettings::Instance())
      : RkSourceNode(first, second, settings), file_(file) {}

  // A failing read ends the stream with RkFatalError(14) rather than passing a short file off
  // as whole.
  void Run() override;
  uint64_t TotalRead() const noexcept { return totalRead_; }

 private:
  uint64_t ReadInto(RkPipeBuffer* buffer);

  RkLib::RkFileIO* file_;
  uint64_t totalRead_ = 0;
};

}  // namespace RkPipeLib
