// RkUnreduce: the decoder of the ZIP reduce methods (2 to 5, factors 1 to 4), one node for all
// four: Reset gives it the factor and size of the next item.
//
// Two stages in one loop. The first turns bits into bytes: each byte is drawn from the follower
// set of the byte before it (sets of up to 32 bytes, stored for all 256 bytes at the front of the
// data) or read whole. The second expands those bytes: 144 starts a copy, and the byte after it
// holds the top `factor` bits of the distance and the low 8 - `factor` bits of the length (all
// of them set: a further byte adds to the length); a zero there is a plain 144. Bytes before the
// start of the data count as zeros. There is no end mark: the node ends once it has delivered
// the uncompressed size. A follower set of more than 32 bytes or an index past the end of its
// set raises RkSevereError(7010); the input ending first raises RkSevereError(7006).
#pragma once

#include <cstdint>
#include <memory>

#include "RkBStrm.h"
#include "RkLsbBitReader.h"
#include "RkNode.h"

namespace RkPipeLib {

class RkUnreduce : public RkLinkNode {
 public:
  // `factor` is the method less 1: 1 to 4.
  RkUnreduce(uint32_t factor, uint64_t uncompressedSize, RkLib::RkMsgQueue* first, RkLib::RkMsgQueue* second,
             const RkStreamSettings& settings = RkStreamSettings::Instance());

  void Run() override;
  // Empties the output stream and takes the factor and size of the next item.
  void Reset(uint32_t factor, uint64_t uncompressedSize);

 private:
  // Copies reach back at most 4096 bytes (factor 4: 15 * 256 + 256); the window is a power of
  // two above that, written out each time the position wraps.
  static constexpr uint32_t kWindowSize = 16384;
  static constexpr uint32_t kMaxFollowers = 32;

  void ReadFollowerSets();
  uint8_t NextByte(uint8_t last);
  void Put(uint8_t byte) {
    window_[windowPos_++] = byte;
    if (windowPos_ == kWindowSize) FlushWindow();
  }
  void FlushWindow();

  RkBStrm reader_;
  RkBStrm writer_;
  RkLsbBitReader bits_;
  std::unique_ptr<uint8_t[]> window_;
  std::unique_ptr<uint8_t[][kMaxFollowers]> followers_;
  uint8_t followerCount_[256] = {};
  uint8_t indexBits_[256] = {};
  uint32_t factor_;
  uint64_t size_;
  uint32_t windowPos_ = 0;
};

}  // namespace RkPipeLib
