#include "RkLzmaDecoder.h"

#include "RkLzmaRaw.h"

namespace RkPipeLib {

namespace {

constexpr uint32_t kBadData = kPipeBadData;
constexpr uint32_t kBadHeader = kPipeBadHeader;
constexpr uint32_t kTooLarge = kPipeUnsupported;

constexpr uint32_t kHeaderBytes = 4;  // major, minor, properties length
constexpr uint32_t kPropertyBytes = 5;
// lc, lp and pb are packed as (pb * 5 + lp) * 9 + lc, each at most 4 and lc at most 8.
constexpr uint32_t kMaxPackedProperties = (4 * 5 + 4) * 9 + 8;
constexpr uint32_t kMinDictionary = 4096;  // the decoder never uses less

// The library's result as the node's failure; success never comes here.
[[noreturn]] void Fail(lzma_ret result) {
  switch (result) {
    case LZMA_DATA_ERROR:
      throw RkLib::RkSevereError(kBadData);
    case LZMA_BUF_ERROR:  // the input ended, or nothing after it could be read
      throw RkLib::RkSevereError(kPipeReadPastEnd);
    case LZMA_MEM_ERROR:
      throw RkLib::RkSevereError(kPipeOutOfMemory);
    case LZMA_OPTIONS_ERROR:
      throw RkLib::RkSevereError(kBadHeader);
    default:
      throw RkLib::RkSevereError(kPipeUnknownException);
  }
}

}  // namespace

RkLzmaDecoder::RkLzmaDecoder(uint64_t uncompressedSize, RkLib::RkMsgQueue* first, RkLib::RkMsgQueue* second,
                             const RkStreamSettings& settings)
    : RkLinkNode(first, second, settings),
      library_(std::make_unique<RkLzmaRaw>()),
      writer_(std::make_unique<RkBStrm>(&output_)),
      uncompressedSize_(uncompressedSize) {
  output_.Reset();
}

RkLzmaDecoder::~RkLzmaDecoder() = default;

void RkLzmaDecoder::Reset() {
  output_.Reset();
  if (!writerClean_) writer_ = std::make_unique<RkBStrm>(&output_);
  writerClean_ = true;
}

void RkLzmaDecoder::Begin() {
  uint8_t header[kHeaderBytes];
  reader_.readBytes(header, kHeaderBytes, kHeaderBytes);
  if ((header[2] | header[3] << 8) != kPropertyBytes) throw RkLib::RkSevereError(kBadHeader);
  uint8_t properties[kPropertyBytes];
  reader_.readBytes(properties, kPropertyBytes, kPropertyBytes);

  uint32_t packed = properties[0];
  if (packed > kMaxPackedProperties) throw RkLib::RkSevereError(kBadHeader);
  lzma_options_lzma options{};
  options.pb = packed / (9 * 5);
  packed -= options.pb * 9 * 5;
  options.lp = packed / 9;
  options.lc = packed - options.lp * 9;
  // liblzma takes lc + lp up to 4 only; the wider settings that the format allows are not
  // written by any common encoder.
  if (options.lc + options.lp > LZMA_LCLP_MAX) throw RkLib::RkSevereError(kBadHeader);

  uint64_t dictionary = properties[1] | properties[2] << 8 | properties[3] << 16 | uint32_t{properties[4]} << 24;
  // No match reaches further back than the data's start, so a known size bounds the window.
  if (uncompressedSize_ != kSizeUnknown) dictionary = std::min(dictionary, uncompressedSize_);
  dictionary = std::max<uint64_t>(dictionary, kMinDictionary);
  if (dictionary > kLzmaMaxDictionary) throw RkLib::RkSevereError(kTooLarge);
  options.dict_size = static_cast<uint32_t>(dictionary);

  // The extended form takes the size, and with the flag it also takes an end marker right at
  // that size, which some encoders write even when the size is stored.
  options.ext_flags = LZMA_LZMA1EXT_ALLOW_EOPM;
  lzma_set_ext_size(options, uncompressedSize_);
  const lzma_filter filters[] = {{LZMA_FILTER_LZMA1EXT, &options}, {LZMA_VLI_UNKNOWN, nullptr}};
  const lzma_ret result = library_->Begin(filters);
  if (result != LZMA_OK) Fail(result);
}

void RkLzmaDecoder::Run() {
  RK_ASSERT(input_ != nullptr);
  reader_.attach(input_);
  inputEnded_ = false;
  writerClean_ = false;
  Begin();
  // A known size ends the data when it is reached, as a plain LZMA decoder stops at its output
  // length: whatever follows, an end marker or more data, is not read. (liblzma 5.4 would also
  // fail a marker there when the input reaches it split over buffers.)
  uint64_t inputLeft = kSizeUnknown;
  const lzma_ret result =
      library_->Drive(reader_, *writer_, inputLeft, uncompressedSize_, inputEnded_, [](const uint8_t*, uint64_t) {});
  if (result != LZMA_STREAM_END) Fail(result);
  writer_->finishOutput();
  writerClean_ = true;
}

}  // namespace RkPipeLib
