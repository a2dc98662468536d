// RkExtractPipe: the pipe of one extraction item, kept from entry to entry. The decoder of the
// last method stays built and is only reset while the method stays the same: rebuilding an
// inflate table or a large decoder state for each of thousands of small entries would dominate.
//
// The chain: RkExtractSourceNode, the decoder (none for stored data), RkCrcProgress, an output.
#pragma once

#include <cstdint>
#include <memory>

#include "RkCrcProgress.h"
#include "RkExtractSourceNode.h"
#include "RkMultiPipeOut.h"
#include "RkPipe.h"

namespace RkArcLib {

class RkZipEntry;

enum RkExtractTarget : int {
  kExtractToFile = 0,
  kExtractToTest = 1,
  kExtractToMemory = 2,
  kExtractToCFlag = 3,
};

class RkExtractPipe {
 public:
  RkExtractPipe();
  ~RkExtractPipe();
  RkExtractPipe(const RkExtractPipe&) = delete;
  RkExtractPipe& operator=(const RkExtractPipe&) = delete;

  // Builds the chain for `entry`'s data (for a duplicate, its target's), which `reader` is left
  // at. A method without a decoder here is RkSevereError(7017).
  void SetUp(const RkZipEntry& entry, const RkZipEntry& data, RkReadBuf& reader, RkExtractTarget target);
  // Runs it on the calling thread; the pipe's failure as an exception.
  void Run(RkPipeLib::RkUICallBack* callback);
  // The same without threads, for data that fits the buffers (see RkPipe::RunInline).
  void RunInline(RkPipeLib::RkUICallBack* callback);

  RkPipeLib::RkCrcProgress& Crc() { return *crcNode_; }
  RkMultiPipeOut& Output() { return *currentTarget_; }
  // The outputs are made on first use: each holds a buffer of half a megabyte.
  RkExtractOut& FileOut() { return Made(fileOut_); }
  RkInMemoryOut& MemoryOut() { return Made(memoryOut_); }
  RkCFlagTarget& CFlagOut() { return Made(cflagOut_); }
  // Whether the method has a decoder here.
  static bool Decodes(uint32_t method);

 private:
  template <typename Out>
  static Out& Made(std::unique_ptr<Out>& out) {
    if (!out) out = std::make_unique<Out>();
    return *out;
  }
  RkPipeLib::RkLinkNode* Decoder(const RkZipEntry& data);

  std::unique_ptr<RkPipeLib::RkPipe> pipe_;
  std::unique_ptr<RkExtractSourceNode> sourceNode_;
  std::unique_ptr<RkPipeLib::RkLinkNode> decoder_;
  std::unique_ptr<RkPipeLib::RkCrcProgress> crcNode_;
  std::unique_ptr<RkExtractOut> fileOut_;
  std::unique_ptr<RkTestOut> testOut_;
  std::unique_ptr<RkInMemoryOut> memoryOut_;
  std::unique_ptr<RkCFlagTarget> cflagOut_;
  RkMultiPipeOut* currentTarget_ = nullptr;
  int64_t currentMethod_ = -1;
};

}  // namespace RkArcLib
