#include "RkPPMdRange.h"

#include <limits>

#include "RkDStream.h"

namespace RkPipeLib {

void RkPPMdRange::Refill() {
  reader_->skip(static_cast<uint64_t>(end_ - window_));
  const uint8_t* bytes = nullptr;
  const uint64_t n = reader_->peek(bytes, std::numeric_limits<uint64_t>::max(), 0);
  if (n == 0) throw RkLib::RkSevereError(kPipeReadPastEnd);
  window_ = next_ = bytes;
  end_ = bytes + n;
}

}  // namespace RkPipeLib
