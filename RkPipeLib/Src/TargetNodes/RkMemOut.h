// RkMemOut: the target that collects the stream in memory, for in-memory items and tests. With
// a limit it stops once it holds that many bytes, which stops the nodes above it without error.
#pragma once

#include <cstdint>
#include <limits>
#include <vector>

#include "RkNode.h"

namespace RkPipeLib {

class RkMemOut : public RkTargetNode {
 public:
  static constexpr uint64_t kNoLimit = std::numeric_limits<uint64_t>::max();

  RkMemOut(RkLib::RkMsgQueue* first, RkLib::RkMsgQueue* second, uint64_t limit = kNoLimit,
           const RkStreamSettings& settings = RkStreamSettings::Instance());
  ~RkMemOut() override;

  // The owner's cancel, seen through Poll after each buffer, throws RkFatalError(7002).
  void Run() override;
  const std::vector<uint8_t>& Bytes() const noexcept { return bytes_; }
  void Clear() noexcept { bytes_.clear(); }

 private:
  RkPipeBuffer* spare_;
  uint64_t limit_;
  std::vector<uint8_t> bytes_;
};

}  // namespace RkPipeLib
