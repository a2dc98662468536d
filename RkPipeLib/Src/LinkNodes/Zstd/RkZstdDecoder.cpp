#include "RkZstdDecoder.h"

#include <zstd.h>
#include <zstd_errors.h>

#include <new>

namespace RkPipeLib {

namespace {

constexpr uint32_t kBadData = kPipeBadData;
constexpr uint32_t kTooLarge = kPipeUnsupported;
constexpr uint64_t kMaxStep = 1u << 30;

[[noreturn]] void Fail(size_t result) {
  switch (ZSTD_getErrorCode(result)) {
    case ZSTD_error_memory_allocation:
      throw RkLib::RkFatalError(kPipeOutOfMemory);
    case ZSTD_error_frameParameter_windowTooLarge:
      throw RkLib::RkSevereError(kTooLarge);
    default:
      throw RkLib::RkSevereError(kBadData);
  }
}

}  // namespace

void RkZstdDecoder::FreeContext::operator()(ZSTD_DCtx_s* context) const noexcept { ZSTD_freeDStream(context); }

RkZstdDecoder::RkZstdDecoder(RkLib::RkMsgQueue* first, RkLib::RkMsgQueue* second, const RkStreamSettings& settings)
    : RkLinkNode(first, second, settings), writer_(std::make_unique<RkBStrm>(&output_)) {
  context_.reset(ZSTD_createDStream());
  if (!context_) throw std::bad_alloc();
  const size_t result = ZSTD_DCtx_setParameter(context_.get(), ZSTD_d_windowLogMax, kMaxWindowLog);
  if (ZSTD_isError(result)) Fail(result);
  output_.Reset();
}

RkZstdDecoder::~RkZstdDecoder() = default;

void RkZstdDecoder::Reset() {
  output_.Reset();
  if (!writerClean_) writer_ = std::make_unique<RkBStrm>(&output_);
  writerClean_ = true;
}

bool RkZstdDecoder::MoreInput() {
  if (reader_.available() != 0) return true;
  if (inputEnded_) return false;
  inputEnded_ = !reader_.refill(kSoftEnd);
  return !inputEnded_;
}

void RkZstdDecoder::Run() {
  RK_ASSERT(input_ != nullptr);
  reader_.attach(input_);
  inputEnded_ = false;
  writerClean_ = false;
  // A session reset keeps the buffers of the last frame and the window limit.
  ZSTD_DCtx_reset(context_.get(), ZSTD_reset_session_only);
  for (;;) {
    const uint8_t* in = nullptr;
    const uint64_t available = reader_.available() ? reader_.peek(in, kMaxStep, 0) : 0;
    uint8_t* out;
    const uint64_t room = writer_->reserve(out, kMaxStep, 1);
    ZSTD_inBuffer inBuffer{in, static_cast<size_t>(available), 0};
    ZSTD_outBuffer outBuffer{out, static_cast<size_t>(room), 0};
    const size_t result = ZSTD_decompressStream(context_.get(), &outBuffer, &inBuffer);
    if (ZSTD_isError(result)) Fail(result);
    reader_.skip(inBuffer.pos);
    writer_->commit(outBuffer.pos);
    if (result == 0) {
      // A frame has ended and all of it is out; the input decides whether another follows.
      if (!MoreInput()) break;
      continue;
    }
    if (inBuffer.pos == 0 && outBuffer.pos == 0) {
      if (available != 0) throw RkLib::RkSevereError(kBadData);  // stuck with input: never loop
      if (!MoreInput()) throw RkLib::RkSevereError(kPipeReadPastEnd);
    }
  }
  writer_->finishOutput();
  writerClean_ = true;
}

}  // namespace RkPipeLib
