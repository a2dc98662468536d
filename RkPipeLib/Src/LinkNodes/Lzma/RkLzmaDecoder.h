// RkLzmaDecoder: the LZMA decoder node for the form that ZIP stores (method 14), over liblzma's
// raw LZMA1 decoder.
//
// The data opens with four bytes: the encoder's major and minor version, then the length of the
// properties, 16 bits little-endian, which must be 5. The five property bytes follow (lc, lp
// and pb packed in one byte, then the dictionary size, 32 bits little-endian), and then the
// range-coded data.
//
// The data ends after the uncompressed size given to the constructor: what follows (an end
// marker, or more data when the size was short) is not read. With kSizeUnknown (ZIP flag bit 1:
// an end marker follows) it ends at the marker, which must then be present.
//
// Failures, each an RkSevereError: a properties length other than 5, or properties that the
// decoder cannot take (lc + lp above 4), 7016; a dictionary above 1.5 GiB, 7017; damaged data,
// 7010; input that ends first, 7006; the library out of memory, 7001.
#pragma once

#include <cstdint>
#include <limits>
#include <memory>

#include "RkBStrm.h"
#include "RkNode.h"

namespace RkPipeLib {

class RkLzmaRaw;

class RkLzmaDecoder : public RkLinkNode {
 public:
  static constexpr uint64_t kSizeUnknown = std::numeric_limits<uint64_t>::max();

  RkLzmaDecoder(uint64_t uncompressedSize, RkLib::RkMsgQueue* first, RkLib::RkMsgQueue* second,
                const RkStreamSettings& settings = RkStreamSettings::Instance());
  ~RkLzmaDecoder() override;

  void Run() override;
  // Empties the output stream for the next item, also after a run that failed part way.
  virtual void Reset();
  // The size for the next run, when the node is kept for the next entry.
  void SetUncompressedSize(uint64_t size) { uncompressedSize_ = size; }

 private:
  // Reads the header and the properties and sets the library up for them.
  void Begin();

  std::unique_ptr<RkLzmaRaw> library_;
  RkBStrm reader_;
  std::unique_ptr<RkBStrm> writer_;  // made anew only after a run that failed with data in it
  uint64_t uncompressedSize_;
  bool writerClean_ = true;
  bool inputEnded_ = false;
};

}  // namespace RkPipeLib
