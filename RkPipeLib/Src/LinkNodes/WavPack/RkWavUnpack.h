// RkWavUnpack: the WavPack decoder node (ZIP method 97), a thin layer over libwavpack.
//
// The compressed data is a WavPack stream as the wavpack tool writes a .wv file: the original
// file's header (a RIFF header for a WAV file) travels inside the first block, its trailer, if
// any, inside the last one. The output is the original file again, byte for byte, as wvunpack
// restores it: the stored header, the samples in the header's format (little-endian PCM of 1 to
// 4 bytes, 8-bit unsigned, or 32-bit float; the byte order and signedness of AIFF-style
// wrappers are kept too), then the stored trailer. For a stream stored without the original
// header (raw samples, or the tool told not to keep it) the library makes a plain RIFF header,
// and the output is what wvunpack writes for it.
//
// Failures, each an RkSevereError: a stream that the library cannot open (not WavPack, DSD
// audio, a damaged first block), 7010; a damaged block later on (its checksum or the sample
// count does not agree), 7010; input that ends before the stream's last sample, 7006.
#pragma once

#include <cstdint>
#include <memory>

#include "RkBStrm.h"
#include "RkNode.h"

namespace RkPipeLib {

class RkWavDecompressor;

class RkWavUnpack : public RkLinkNode {
 public:
  // `compressedSize` is the length of the data, which the library uses to find the trailer.
  RkWavUnpack(uint64_t compressedSize, RkLib::RkMsgQueue* first, RkLib::RkMsgQueue* second,
              const RkStreamSettings& settings = RkStreamSettings::Instance());
  ~RkWavUnpack() override;

  void Run() override;
  // Empties the output stream for the next item, also after a run that failed part way.
  virtual void Reset();
  // The size for the next run, when the node is kept for the next entry.
  void SetCompressedSize(uint64_t size) { compressedSize_ = size; }

 private:
  std::unique_ptr<RkWavDecompressor> library_;
  RkBStrm reader_;
  std::unique_ptr<RkBStrm> writer_;  // made anew only after a run that failed with data in it
  uint64_t compressedSize_;
  bool writerClean_ = true;
};

}  // namespace RkPipeLib
