// RkZstdDecoder: the zstd decoder node (ZIP method 93), a thin layer over libzstd's streaming
// decompressor.
//
// The data is one or more frames back to back, skippable frames included, as the zstd tool
// reads a file; it ends with the input at the end of a frame.
//
// Failures, each an RkSevereError unless said: a frame whose window exceeds 1 GiB, 7017, before
// anything of that size is allocated; any other library error, 7010; input that ends inside a
// frame, or no input at all, 7006; the library out of memory, RkFatalError(7001).
#pragma once

#include <cstdint>
#include <memory>

#include "RkBStrm.h"
#include "RkNode.h"

struct ZSTD_DCtx_s;

namespace RkPipeLib {

class RkZstdDecoder : public RkLinkNode {
 public:
  // The largest window accepted, as a power of two: 1 GiB. The format allows far more, and a
  // frame with a huge content size and no window of its own asks for all of it at once.
  static constexpr int kMaxWindowLog = 30;

  RkZstdDecoder(RkLib::RkMsgQueue* first, RkLib::RkMsgQueue* second,
                const RkStreamSettings& settings = RkStreamSettings::Instance());
  ~RkZstdDecoder() override;

  void Run() override;
  // Empties the output stream for the next item, also after a run that failed part way.
  virtual void Reset();

 private:
  // True when more input is buffered or could be had; at the end it remembers the end.
  bool MoreInput();

  struct FreeContext {
    void operator()(ZSTD_DCtx_s* context) const noexcept;
  };
  std::unique_ptr<ZSTD_DCtx_s, FreeContext> context_;
  RkBStrm reader_;
  std::unique_ptr<RkBStrm> writer_;  // made anew only after a run that failed with data in it
  bool writerClean_ = true;
  bool inputEnded_ = false;
};

}  // namespace RkPipeLib
