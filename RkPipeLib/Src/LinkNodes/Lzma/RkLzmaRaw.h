// RkLzmaRaw: liblzma's raw decoder for one filter chain, driven between the reader and the
// writer of a node. Internal to the LZMA and xz nodes: it is the one place that includes the
// library's header, so the nodes' own headers stay free of it.
//
// The coder is set up again for each stream or block with Begin; liblzma keeps its allocations
// when the new chain needs no more than the old one, so a node reused for many items does not
// allocate its dictionary again and again.
#pragma once

#include <lzma.h>

#include <algorithm>
#include <cstdint>

#include "RkBStrm.h"

namespace RkPipeLib {

// The largest dictionary a stream may claim: 1.5 GiB, the most that the xz tool and the usual
// 7-Zip builds write. A claim above it is refused before anything is allocated, so a header of
// a few bytes cannot make a worker ask for 4 GiB.
inline constexpr uint64_t kLzmaMaxDictionary = uint64_t{1536} << 20;

class RkLzmaRaw {
 public:
  RkLzmaRaw() = default;
  RkLzmaRaw(const RkLzmaRaw&) = delete;
  RkLzmaRaw& operator=(const RkLzmaRaw&) = delete;
  ~RkLzmaRaw() { lzma_end(&stream_); }

  // The library's answer: LZMA_OK, LZMA_MEM_ERROR or LZMA_OPTIONS_ERROR.
  lzma_ret Begin(const lzma_filter* filters) { return lzma_raw_decoder(&stream_, filters); }

  // Decodes until the chain reports its end or `outputLimit` bytes have come, taking at most
  // `inputLeft` bytes from `reader` (the count goes down by what is taken) and writing through
  // `writer`; `onOutput(data, length)` sees every byte before it is committed. Returns
  // LZMA_STREAM_END at the end, LZMA_BUF_ERROR when the chain needs input beyond the limit or
  // beyond the end of the input (which `inputEnded` then records), or the library's error.
  template <typename OnOutput>
  lzma_ret Drive(RkBStrm& reader, RkBStrm& writer, uint64_t& inputLeft, uint64_t outputLimit, bool& inputEnded,
                 OnOutput&& onOutput) {
    // A step stays within the library's size_t counts on every target and within the buffers.
    constexpr uint64_t kMaxStep = 1u << 30;
    if (outputLimit == 0) return LZMA_STREAM_END;
    uint64_t written = 0;
    for (;;) {
      const uint8_t* in = nullptr;
      const uint64_t wanted = std::min(inputLeft, kMaxStep);
      const uint64_t available = reader.available() && wanted ? reader.peek(in, wanted, 0) : 0;
      uint8_t* out;
      const uint64_t room = writer.reserve(out, std::min(kMaxStep, outputLimit - written), 1);
      stream_.next_in = in;
      stream_.avail_in = static_cast<size_t>(available);
      stream_.next_out = out;
      stream_.avail_out = static_cast<size_t>(room);
      const lzma_ret result = lzma_code(&stream_, LZMA_RUN);
      const uint64_t consumed = available - stream_.avail_in;
      const uint64_t produced = room - stream_.avail_out;
      reader.skip(consumed);
      inputLeft -= consumed;
      if (produced) {
        onOutput(static_cast<const uint8_t*>(out), produced);
        writer.commit(produced);
        written += produced;
      }
      // At the limit the output is whole; what the library may say about the bytes after it
      // (in the same call) is not the output's concern.
      if (written >= outputLimit) return LZMA_STREAM_END;
      if (result != LZMA_OK) return result;
      if (consumed || produced) continue;
      // Stuck: more input is waited for only now, so that everything decodable has gone out.
      if (available || inputLeft == 0 || reader.available() || inputEnded) return LZMA_BUF_ERROR;
      inputEnded = !reader.refill(kSoftEnd);
      if (inputEnded) return LZMA_BUF_ERROR;
    }
  }

 private:
  lzma_stream stream_ = LZMA_STREAM_INIT;
};

}  // namespace RkPipeLib
