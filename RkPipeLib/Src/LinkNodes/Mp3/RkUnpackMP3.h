// RkUnpackMP3: the node of ZIP method 94, MP3 files that their writer recompressed. The method's
// format is not published, so the node decodes nothing: it fails every entry with
// RkSevereError(7017), "not supported", without reading its input, which the pipe then stops.
// The entry fails alone and extraction goes on with the next one.
#pragma once

#include <cstdint>

#include "RkNode.h"

namespace RkPipeLib {

class RkUnpackMP3 : public RkLinkNode {
 public:
  static constexpr uint32_t kNotSupported = kPipeUnsupported;

  RkUnpackMP3(RkLib::RkMsgQueue* first, RkLib::RkMsgQueue* second,
              const RkStreamSettings& settings = RkStreamSettings::Instance())
      : RkLinkNode(first, second, settings) {
    output_.Reset();
  }

  void Run() override;
  virtual void Reset() { output_.Reset(); }
};

}  // namespace RkPipeLib
