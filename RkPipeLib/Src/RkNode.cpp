#include "RkNode.h"

namespace RkPipeLib {

bool RkTargetNode::Poll() { return callback_ ? callback_->Poll(first_) : true; }

}  // namespace RkPipeLib
