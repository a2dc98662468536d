#include "RkWavUnpack.h"

#include <wavpack/wavpack.h>

#include <algorithm>
#include <cstdio>
#include <exception>
#include <utility>
#include <vector>

namespace RkPipeLib {

namespace {

constexpr uint32_t kBadData = kPipeBadData;
// Sample words decoded per call, whatever the channel count: 256 KiB of them.
constexpr uint32_t kSampleWords = 65536;
constexpr uint32_t kSkipChunk = 4096;

// Sample words as the original file held them, `kBytes` bytes each in the byte order given; the
// width is a template argument so that each word becomes a few plain stores.
template <int kBytes, bool kBigEndian>
void PackWords(const int32_t* in, size_t count, uint32_t bias, uint8_t* out) {
  for (size_t i = 0; i < count; ++i, out += kBytes) {
    const uint32_t v = static_cast<uint32_t>(in[i]) + bias;
    for (int k = 0; k < kBytes; ++k) out[kBigEndian ? kBytes - 1 - k : k] = static_cast<uint8_t>(v >> (8 * k));
  }
}

// 8-bit data is unsigned and wider data signed, as WAV has them, unless the wrapper said
// otherwise; the byte order is little-endian unless the wrapper was big-endian (AIFF).
void FormatSamples(const int32_t* in, size_t count, int bytes, int qualifyMode, uint8_t* out) {
  if (bytes == 1) {
    const uint32_t bias = (qualifyMode & QMODE_SIGNED_BYTES) ? 0 : 128;
    PackWords<1, false>(in, count, bias, out);
    return;
  }
  const uint32_t bias = (qualifyMode & QMODE_UNSIGNED_WORDS) ? 1u << (bytes * 8 - 1) : 0;
  const bool big = qualifyMode & QMODE_BIG_ENDIAN;
  switch (bytes) {
    case 2:
      return big ? PackWords<2, true>(in, count, bias, out) : PackWords<2, false>(in, count, bias, out);
    case 3:
      return big ? PackWords<3, true>(in, count, bias, out) : PackWords<3, false>(in, count, bias, out);
    default:
      return big ? PackWords<4, true>(in, count, bias, out) : PackWords<4, false>(in, count, bias, out);
  }
}

}  // namespace

// The library's context over the node's reader. The library pulls its input through the
// callbacks below, which read from the RkBStrm and never let an exception into the C code: a
// failure of the input (the pipe stopped, say) is kept and raised again once the library call
// has returned.
//
// The input is a forward-only stream. It claims to be seekable only while the trailer is looked
// for, after the last sample, when the library seeks forward to it and back once it has read it:
// the forward seek is done by reading, the backward one fails and nothing more is read anyway.
class RkWavDecompressor {
 public:
  void Decode(RkBStrm& reader, RkBStrm& writer, uint64_t length);

 private:
  struct CloseContext {
    void operator()(WavpackContext* context) const noexcept { WavpackCloseFile(context); }
  };

  static RkWavDecompressor& Self(void* id) { return *static_cast<RkWavDecompressor*>(id); }
  static int32_t ReadBytes(void* id, void* data, int32_t count);
  static int32_t WriteBytes(void*, void*, int32_t) { return 0; }
  static int64_t GetPosition(void* id) { return static_cast<int64_t>(Self(id).position_); }
  static int SetPositionAbsolute(void* id, int64_t position) { return Self(id).SeekTo(position); }
  static int SetPositionRelative(void* id, int64_t delta, int mode);
  static int PushBackByte(void* id, int c);
  static int64_t GetLength(void* id) { return static_cast<int64_t>(Self(id).length_); }
  static int CanSeek(void* id) { return Self(id).seekable_; }
  static int Truncate(void*) { return -1; }
  static int Close(void*) { return 0; }
  static WavpackStreamReader64 callbacks_;

  // Reads up to `count` bytes; fewer only at the end of the input.
  uint64_t Read(uint8_t* data, uint64_t count);
  // Moves forward to `position` by reading; -1 for a position behind, or past the end.
  int SeekTo(int64_t position);
  // Raises what a callback kept.
  void RaiseKept() {
    if (failure_) std::rethrow_exception(std::exchange(failure_, nullptr));
  }
  void Write(RkBStrm& writer, const uint8_t* data, uint64_t length) {
    if (length) writer.writeBytes(data, length);
  }

  RkBStrm* reader_ = nullptr;
  uint64_t position_ = 0;
  uint64_t length_ = 0;
  int pushedBack_ = -1;
  bool ended_ = false;
  int seekable_ = 0;
  std::exception_ptr failure_;
  std::vector<int32_t> samples_;  // kept over runs, like the formatted bytes
  std::vector<uint8_t> bytes_;
};

WavpackStreamReader64 RkWavDecompressor::callbacks_ = {&RkWavDecompressor::ReadBytes,
                                                       &RkWavDecompressor::WriteBytes,
                                                       &RkWavDecompressor::GetPosition,
                                                       &RkWavDecompressor::SetPositionAbsolute,
                                                       &RkWavDecompressor::SetPositionRelative,
                                                       &RkWavDecompressor::PushBackByte,
                                                       &RkWavDecompressor::GetLength,
                                                       &RkWavDecompressor::CanSeek,
                                                       &RkWavDecompressor::Truncate,
                                                       &RkWavDecompressor::Close};

uint64_t RkWavDecompressor::Read(uint8_t* data, uint64_t count) {
  uint64_t got = 0;
  if (pushedBack_ >= 0 && count) {
    data[got++] = static_cast<uint8_t>(pushedBack_);
    pushedBack_ = -1;
  }
  if (got < count && !ended_ && !failure_) {
    try {
      const uint64_t n = reader_->readBytes(data + got, count - got, 0);
      ended_ = n < count - got;
      got += n;
    } catch (...) {
      failure_ = std::current_exception();
    }
  }
  position_ += got;
  return got;
}

int32_t RkWavDecompressor::ReadBytes(void* id, void* data, int32_t count) {
  if (count <= 0) return 0;
  return static_cast<int32_t>(Self(id).Read(static_cast<uint8_t*>(data), static_cast<uint64_t>(count)));
}

int RkWavDecompressor::SeekTo(int64_t position) {
  if (position < 0 || static_cast<uint64_t>(position) < position_) return -1;
  uint8_t scratch[kSkipChunk];
  while (position_ < static_cast<uint64_t>(position)) {
    const uint64_t want = std::min<uint64_t>(sizeof scratch, static_cast<uint64_t>(position) - position_);
    if (Read(scratch, want) != want) return -1;
  }
  return 0;
}

int RkWavDecompressor::SetPositionRelative(void* id, int64_t delta, int mode) {
  RkWavDecompressor& self = Self(id);
  const int64_t base = mode == SEEK_SET   ? 0
                       : mode == SEEK_END ? static_cast<int64_t>(self.length_)
                                          : static_cast<int64_t>(self.position_);
  return self.SeekTo(base + delta);
}

int RkWavDecompressor::PushBackByte(void* id, int c) {
  RkWavDecompressor& self = Self(id);
  if (self.pushedBack_ >= 0 || self.position_ == 0) return EOF;
  self.pushedBack_ = c & 0xFF;
  --self.position_;
  return c;
}

void RkWavDecompressor::Decode(RkBStrm& reader, RkBStrm& writer, uint64_t length) {
  reader_ = &reader;
  length_ = length;
  position_ = 0;
  pushedBack_ = -1;
  ended_ = false;
  seekable_ = 0;
  failure_ = nullptr;

  char error[80] = {};
  // The wrapper holds the original file's header and trailer; ALT_TYPES lets formats other than
  // WAV (AIFF, CAF, Wave64) give theirs too. DSD is not asked for, so the open refuses it.
  std::unique_ptr<WavpackContext, CloseContext> context(
      WavpackOpenFileInputEx64(&callbacks_, this, nullptr, error, OPEN_WRAPPER | OPEN_ALT_TYPES, 0));
  RaiseKept();
  if (!context) throw RkLib::RkSevereError(kBadData);
  WavpackContext* wpc = context.get();

  const int channels = WavpackGetNumChannels(wpc);
  const int bytesPerSample = WavpackGetBytesPerSample(wpc);
  const int qualifyMode = WavpackGetQualifyMode(wpc);
  if (channels <= 0 || bytesPerSample < 1 || bytesPerSample > 4) throw RkLib::RkSevereError(kBadData);
  const int64_t total = WavpackGetNumSamples64(wpc);  // -1 when the writer did not know

  Write(writer, WavpackGetWrapperData(wpc), WavpackGetWrapperBytes(wpc));
  WavpackFreeWrapper(wpc);  // what gathers in the wrapper from now on is the trailer

  const uint32_t perCall = std::max<uint32_t>(1, kSampleWords / static_cast<uint32_t>(channels));
  samples_.resize(size_t{perCall} * static_cast<size_t>(channels));
  bytes_.resize(samples_.size() * static_cast<size_t>(bytesPerSample));
  int64_t unpacked = 0;
  for (;;) {
    const uint32_t got = WavpackUnpackSamples(wpc, samples_.data(), perCall);
    RaiseKept();
    if (got == 0) break;
    const size_t words = size_t{got} * static_cast<size_t>(channels);
    FormatSamples(samples_.data(), words, bytesPerSample, qualifyMode, bytes_.data());
    Write(writer, bytes_.data(), words * static_cast<size_t>(bytesPerSample));
    unpacked += got;
  }
  // The library makes a damaged block silent and counts it; here it fails the item.
  if (WavpackGetNumErrors(wpc) != 0) throw RkLib::RkSevereError(kBadData);
  if (total >= 0 && unpacked != total) throw RkLib::RkSevereError(ended_ ? kPipeReadPastEnd : kBadData);

  seekable_ = 1;
  WavpackSeekTrailingWrapper(wpc);
  seekable_ = 0;
  RaiseKept();
  Write(writer, WavpackGetWrapperData(wpc), WavpackGetWrapperBytes(wpc));
}

RkWavUnpack::RkWavUnpack(uint64_t compressedSize, RkLib::RkMsgQueue* first, RkLib::RkMsgQueue* second,
                         const RkStreamSettings& settings)
    : RkLinkNode(first, second, settings),
      library_(std::make_unique<RkWavDecompressor>()),
      writer_(std::make_unique<RkBStrm>(&output_)),
      compressedSize_(compressedSize) {
  output_.Reset();
}

RkWavUnpack::~RkWavUnpack() = default;

void RkWavUnpack::Reset() {
  output_.Reset();
  if (!writerClean_) writer_ = std::make_unique<RkBStrm>(&output_);
  writerClean_ = true;
}

void RkWavUnpack::Run() {
  RK_ASSERT(input_ != nullptr);
  reader_.attach(input_);
  writerClean_ = false;
  library_->Decode(reader_, *writer_, compressedSize_);
  writer_->finishOutput();
  writerClean_ = true;
}

}  // namespace RkPipeLib
