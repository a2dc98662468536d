// RkMemIn: the source that sends bytes held in memory, for in-memory items, tests and
// benchmarks. Each buffer carries a piece as long as its capacity, so the cut between blocks is
// predictable.
#pragma once

#include <cstddef>
#include <cstdint>

#include "RkNode.h"

namespace RkPipeLib {

class RkMemIn : public RkSourceNode {
 public:
  // The bytes stay the owner's and must outlive the run, unchanged: the buffers that carry them
  // down the pipe point into them rather than holding copies.
  RkMemIn(const void* data, size_t size, RkLib::RkMsgQueue* first, RkLib::RkMsgQueue* second,
          const RkStreamSettings& settings = RkStreamSettings::Instance())
      : RkSourceNode(first, second, settings), data_(static_cast<const uint8_t*>(data)), size_(size) {}

  void Run() override;
  // Points the node at other bytes, for its next run.
  void SetData(const void* data, size_t size) {
    data_ = static_cast<const uint8_t*>(data);
    size_ = size;
  }

 private:
  const uint8_t* data_;
  size_t size_;
};

}  // namespace RkPipeLib
