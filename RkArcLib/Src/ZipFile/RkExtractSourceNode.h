// RkExtractSourceNode: the start of an extraction pipe: an entry's stored bytes, as they stand,
// from the item's reader, which the local header has left at the data.
#pragma once

#include <cstdint>

#include "RkNode.h"

namespace RkArcLib {

class RkReadBuf;

class RkExtractSourceNode : public RkPipeLib::RkSourceNode {
 public:
  RkExtractSourceNode() : RkSourceNode(nullptr, nullptr) {}

  // Before each run: the reader and how many bytes the entry's data has.
  void SetInput(RkReadBuf* reader, uint64_t length) {
    reader_ = reader;
    length_ = length;
  }
  // Short data ends the entry: RkSevereError(12) after a read failure, (18) at the end of the file.
  void Run() override;

 private:
  RkReadBuf* reader_ = nullptr;
  uint64_t length_ = 0;
};

}  // namespace RkArcLib
