// RkXzDecoder: the xz decoder node (ZIP method 95, and .xz files). The container is walked here
// (stream header and footer, block headers with their filter chains, the index, the checks);
// liblzma's raw decoders undo each block's filter chain: LZMA2 after any of delta and the
// branch converters (BCJ) that the library knows.
//
// Streams back to back, with stream padding between and after them, are one output, as the xz
// tool reads a file. The data ends with the input after the last stream's padding.
//
// What is verified: the CRC32 of every header, footer and the index; each block's check (CRC32,
// CRC64 or SHA-256; the reserved check types are skipped by their size, as the tool does with a
// warning); the sizes a block header states against the data; the index against the blocks;
// the footer against the header and the index.
//
// Failures, each an RkSevereError unless said: input that ends too early, 7006; a bad stream
// header, block header, index or footer, or anything after a stream that is neither padding nor
// a stream, 7016; a size past the format's limits or an LZMA2 dictionary above 1.5 GiB, 7017,
// before the dictionary is allocated; damaged data, a wrong check or a block that disagrees
// with its header, 7010; the library out of memory, RkFatalError(7001).
#pragma once

#include <cstdint>
#include <memory>

#include "RkBStrm.h"
#include "RkNode.h"

namespace RkPipeLib {

class RkLzmaRaw;
class RkXzFltRead;
class RkXzCheck;

class RkXzDecoder : public RkLinkNode {
 public:
  RkXzDecoder(RkLib::RkMsgQueue* first, RkLib::RkMsgQueue* second,
              const RkStreamSettings& settings = RkStreamSettings::Instance());
  ~RkXzDecoder() override;

  void Run() override;
  // Empties the output stream for the next item, also after a run that failed part way.
  virtual void Reset();

 private:
  // One stream, from its header to its footer.
  void DecodeStream();
  // One block, from the byte after its size byte to the end of its check.
  void DecodeBlock(uint8_t sizeByte);
  // The index, from the byte after its indicator, and then the footer.
  void ReadIndexAndFooter();
  // Skips stream padding; true when another stream follows.
  bool NextStream();
  // True when more input is buffered or could be had; at the end it remembers the end.
  bool MoreInput();
  uint8_t ReadByte();

  std::unique_ptr<RkLzmaRaw> library_;
  std::unique_ptr<RkXzFltRead> filters_;
  std::unique_ptr<RkXzCheck> check_;
  RkBStrm reader_;
  std::unique_ptr<RkBStrm> writer_;  // made anew only after a run that failed with data in it
  bool writerClean_ = true;
  bool inputEnded_ = false;

  // The stream being read.
  uint32_t checkType_ = 0;
  uint64_t blockCount_ = 0;
  // What the index must repeat, kept as sums and a CRC-64 over the records so that memory
  // stays the same however many blocks a stream holds.
  uint64_t unpaddedSum_ = 0;
  uint64_t uncompressedSum_ = 0;
  uint64_t recordCrc_ = 0;
};

}  // namespace RkPipeLib
