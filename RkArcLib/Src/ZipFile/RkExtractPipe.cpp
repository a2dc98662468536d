#include "RkExtractPipe.h"

#include "RkBunzip2.h"
#include "RkExplode.h"
#include "RkInflate.h"
#include "RkLzmaDecoder.h"
#include "RkPPMdDecoder.h"
#include "RkUnpackMP3.h"
#include "RkUnreduce.h"
#include "RkUnshrink.h"
#include "RkWavUnpack.h"
#include "RkXzDecoder.h"
#include "RkZipEntry.h"
#include "RkZstdDecoder.h"

namespace RkArcLib {

using namespace RkPipeLib;

namespace {

// The zip method numbers of the decoders.
enum : uint32_t {
  kShrunk = 1,
  kReducedFirst = 2,
  kReducedLast = 5,
  kImploded = 6,
  kDeflated = 8,
  kDeflate64 = 9,
  kBzip2 = 12,
  kLzma = 14,
  kZstd = 93,
  kMp3 = 94,
  kXz = 95,
  kJpeg = 96,
  kWavPack = 97,
  kPPMd = 98,
};

constexpr uint16_t kLzmaEndMarkerFlag = 0x0002;

}  // namespace

RkExtractPipe::RkExtractPipe()
    : sourceNode_(std::make_unique<RkExtractSourceNode>()), crcNode_(std::make_unique<RkCrcProgress>(nullptr, nullptr)) {}

RkExtractPipe::~RkExtractPipe() = default;

bool RkExtractPipe::Decodes(uint32_t method) {
  switch (method) {
    case 0:
    case kShrunk:
    case kImploded:
    case kDeflated:
    case kDeflate64:
    case kBzip2:
    case kLzma:
    case kZstd:
    case kMp3:
    case kXz:
    case kWavPack:
    case kPPMd:
      return true;
    default:
      return method >= kReducedFirst && method <= kReducedLast;
  }
}

RkLinkNode* RkExtractPipe::Decoder(const RkZipEntry& data) {
  const uint32_t method = data.EffectiveMethod();
  const uint64_t size = data.originalSize64;
  const bool reduced = method >= kReducedFirst && method <= kReducedLast;
  // The four reduce factors share one node; every other method keeps its own.
  const bool same = currentMethod_ == static_cast<int64_t>(method) ||
                    (reduced && currentMethod_ >= kReducedFirst && currentMethod_ <= kReducedLast);
  if (same && decoder_) {
    switch (method) {
      case kShrunk:
        static_cast<RkUnshrink&>(*decoder_).Reset();
        return decoder_.get();
      case kImploded:
        static_cast<RkExplode&>(*decoder_).Reset(static_cast<uint8_t>((data.flags >> 1) & 3), size);
        return decoder_.get();
      case kDeflated:
      case kDeflate64:
        static_cast<RkInflate&>(*decoder_).Reset();
        return decoder_.get();
      case kBzip2:
        static_cast<RkBunzip2&>(*decoder_).Reset();
        return decoder_.get();
      case kLzma: {
        auto& lzma = static_cast<RkLzmaDecoder&>(*decoder_);
        lzma.Reset();
        lzma.SetUncompressedSize((data.flags & kLzmaEndMarkerFlag) ? RkLzmaDecoder::kSizeUnknown : size);
        return decoder_.get();
      }
      case kZstd:
        static_cast<RkZstdDecoder&>(*decoder_).Reset();
        return decoder_.get();
      case kMp3:
        static_cast<RkUnpackMP3&>(*decoder_).Reset();
        return decoder_.get();
      case kXz:
        static_cast<RkXzDecoder&>(*decoder_).Reset();
        return decoder_.get();
      default:
        if (reduced) {
          static_cast<RkUnreduce&>(*decoder_).Reset(method - 1, size);
          return decoder_.get();
        }
        break;  // made anew: their state depends on the entry
    }
  }
  decoder_.reset();
  currentMethod_ = -1;
  switch (method) {
    case kShrunk:
      decoder_ = std::make_unique<RkUnshrink>(nullptr, nullptr);
      break;
    case kImploded:
      decoder_ = std::make_unique<RkExplode>(static_cast<uint8_t>((data.flags >> 1) & 3), size, nullptr, nullptr);
      break;
    case kDeflated:
      decoder_ = std::make_unique<RkInflate>(0, nullptr, nullptr);
      break;
    case kDeflate64:
      decoder_ = std::make_unique<RkInflate>(1, nullptr, nullptr);
      break;
    case kBzip2:
      decoder_ = std::make_unique<RkBunzip2>(nullptr, nullptr);
      break;
    case kLzma:
      decoder_ = std::make_unique<RkLzmaDecoder>(
          (data.flags & kLzmaEndMarkerFlag) ? RkLzmaDecoder::kSizeUnknown : size, nullptr, nullptr);
      break;
    case kZstd:
      decoder_ = std::make_unique<RkZstdDecoder>(nullptr, nullptr);
      break;
    case kMp3:
      decoder_ = std::make_unique<RkUnpackMP3>(nullptr, nullptr);
      break;
    case kXz:
      decoder_ = std::make_unique<RkXzDecoder>(nullptr, nullptr);
      break;
    case kWavPack:
      decoder_ = std::make_unique<RkWavUnpack>(data.compressedSize64, nullptr, nullptr);
      break;
    case kPPMd:
      decoder_ = std::make_unique<RkPPMdDecoder>(nullptr, nullptr);
      break;
    default:
      if (!reduced) throw RkLib::RkSevereError(kPipeUnsupported);
      decoder_ = std::make_unique<RkUnreduce>(method - 1, size, nullptr, nullptr);
      break;
  }
  currentMethod_ = method;
  return decoder_.get();
}

void RkExtractPipe::SetUp(const RkZipEntry& entry, const RkZipEntry& data, RkReadBuf& reader,
                          RkExtractTarget target) {
  const uint32_t method = data.EffectiveMethod();
  if (!Decodes(method)) throw RkLib::RkSevereError(kPipeUnsupported);
  sourceNode_->OutputStream()->Reset();
  sourceNode_->SetInput(&reader, data.compressedSize64);
  crcNode_->Reset();
  switch (target) {
    case kExtractToFile:
      currentTarget_ = &FileOut();
      break;
    case kExtractToTest:
      currentTarget_ = &Made(testOut_);
      break;
    case kExtractToMemory:
      currentTarget_ = &MemoryOut();
      memoryOut_->Clear();
      break;
    case kExtractToCFlag:
      currentTarget_ = &CFlagOut();
      cflagOut_->Clear();
      break;
  }
  // Not one byte past the declared size leaves the pipe.
  currentTarget_->Begin(entry.originalSize64);

  pipe_ = std::make_unique<RkPipe>();
  pipe_->SetSource(sourceNode_.get());
  if (method != 0) pipe_->AddLink(Decoder(data));
  pipe_->AddLink(crcNode_.get());
  pipe_->SetTarget(currentTarget_);
}

void RkExtractPipe::Run(RkUICallBack* callback) { pipe_->Run(callback); }

void RkExtractPipe::RunInline(RkUICallBack* callback) { pipe_->RunInline(callback); }

}  // namespace RkArcLib
