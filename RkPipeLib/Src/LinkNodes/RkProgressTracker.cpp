#include "RkProgressTracker.h"

#include "RkProgress.h"

namespace RkPipeLib {

void RkProgressTracker::Run() {
  PassBuffers([this](RkPipeBuffer& buffer) { progress_->Add(static_cast<int64_t>(buffer.remaining())); });
}

}  // namespace RkPipeLib
