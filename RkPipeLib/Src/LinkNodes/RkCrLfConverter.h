// RkCrLfConverter: turns bare line feeds and bare carriage returns into CR LF pairs, unless the
// start of the data says it is not plain text.
//
// The decision is made once, on the first block: PDF and RTF files (recognised by their magic in
// a block of at least 7 bytes) and anything with a control byte other than tab, LF, FF and CR,
// or a byte of 128 or above, within the first 80 bytes pass through unchanged. A pair split
// over two blocks stays one pair; a CR at the very end of the data gets no LF.
#pragma once

#include <cstdint>
#include <vector>

#include "RkBStrm.h"
#include "RkNode.h"

namespace RkPipeLib {

class RkCrLfConverter : public RkLinkNode {
 public:
  RkCrLfConverter(RkLib::RkMsgQueue* first, RkLib::RkMsgQueue* second,
                  const RkStreamSettings& settings = RkStreamSettings::Instance())
      : RkLinkNode(first, second, settings), writer_(&output_) {}

  void Run() override;

  // The decision on the first block.
  static bool ShouldConvert(const uint8_t* block, uint64_t length);

 private:
  // Writes the block with its line ends made pairs; `previous_` carries the last byte over.
  void Convert(const uint8_t* block, uint64_t length);

  RkBStrm reader_;
  RkBStrm writer_;
  std::vector<uint8_t> converted_;  // kept between blocks so that its storage is reused
  uint8_t previous_ = 0;
};

}  // namespace RkPipeLib
