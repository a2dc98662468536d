#include "RkUnpackMP3.h"

namespace RkPipeLib {

void RkUnpackMP3::Run() {
  RK_ASSERT(input_ != nullptr);
  throw RkLib::RkSevereError(kNotSupported);
}

}  // namespace RkPipeLib
