// RkProgressTracker: passes each buffer on untouched and adds its length to a progress object.
#pragma once

#include "RkLibFwd.h"
#include "RkNode.h"

namespace RkPipeLib {

class RkProgressTracker : public RkLinkNode {
 public:
  // The progress object stays the owner's; it is added to from this node's thread.
  RkProgressTracker(RkLib::RkProgress* progress, RkLib::RkMsgQueue* first, RkLib::RkMsgQueue* second,
                    const RkStreamSettings& settings = RkStreamSettings::Instance())
      : RkLinkNode(first, second, settings), progress_(progress) {}

  void Run() override;

 private:
  RkLib::RkProgress* progress_;
};

}  // namespace RkPipeLib
