// RkBunzip2: the bzip2 decoder node, a thin layer over libbz2's streaming decompressor.
//
// The data ends with the end of a bzip2 stream. Streams that follow one another back to back are
// decoded as one output, as the bzip2 tool does with concatenated files; whatever follows the
// last stream without a bzip2 signature is left unread, like the tool's "trailing garbage".
//
// Failures: damaged data (a bad signature on the first stream, a bad block or stream CRC) is
// RkSevereError(7010); input that ends inside a stream, including no input at all, is
// RkSevereError(7006); the library out of memory is RkFatalError(7001).
#pragma once

#include <cstdint>
#include <memory>

#include "RkBStrm.h"
#include "RkNode.h"

namespace RkPipeLib {

// The library's stream state, which its header declares as an unnamed struct.
class RkBzipDecompressor;

class RkBunzip2 : public RkLinkNode {
 public:
  RkBunzip2(RkLib::RkMsgQueue* first, RkLib::RkMsgQueue* second,
            const RkStreamSettings& settings = RkStreamSettings::Instance());
  ~RkBunzip2() override;

  void Run() override;
  // Empties the output stream for the next item, also after a run that failed part way.
  virtual void Reset();

 private:
  // Decodes one stream. False when the first bytes are not a bzip2 signature and `first` is
  // false: the end of the data, not an error.
  bool DecodeStream(bool first);
  // True when more input is buffered or could be had; at the end it remembers the end.
  bool MoreInput();

  std::unique_ptr<RkBzipDecompressor> library_;
  RkBStrm reader_;
  std::unique_ptr<RkBStrm> writer_;  // made anew only after a run that failed with data in it
  bool writerClean_ = true;
  bool inputEnded_ = false;
};

}  // namespace RkPipeLib
