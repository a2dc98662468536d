#include "RkPPMdDecoder.h"

#include <limits>

#include "RkError.h"

namespace RkPipeLib {

RkPPMdDecoder::RkPPMdDecoder(RkLib::RkMsgQueue* first, RkLib::RkMsgQueue* second, const RkStreamSettings& settings)
    : RkLinkNode(first, second, settings), writer_(&output_) {
  output_.Reset();
}

RkPPMdDecoder::Header RkPPMdDecoder::ParseHeader(uint16_t bits) {
  Header header;
  header.order = (bits & 0x0F) + 1u;
  header.memorySize = (((bits >> 4) & 0xFFu) + 1u) << 20;
  header.method = bits >> 12;
  // An order of 1 would leave the model without the order-1 contexts that it is built on.
  if (header.order < RkPPMdMod::kMinOrder || header.method > RkPPMdMod::kFreeze)
    throw RkLib::RkSevereError(kPPMdBadData);
  return header;
}

void RkPPMdDecoder::Run() {
  RK_ASSERT(input_ != nullptr);
  reader_.attach(input_);
  range_.Attach(&reader_);
  const uint8_t low = range_.RawByte();
  const Header header = ParseHeader(static_cast<uint16_t>(low | range_.RawByte() << 8));
  model_.Allocate(header.memorySize);
  range_.Start();
  model_.Start(header.order, header.method);

  // Symbols go straight into the output buffer, as much of it as is free.
  for (;;) {
    uint8_t* out = nullptr;
    const uint64_t room = writer_.reserve(out, std::numeric_limits<uint64_t>::max(), 1);
    uint64_t n = 0;
    int symbol = 0;
    while (n < room) {
      symbol = model_.DecodeSymbol(range_);
      if (symbol < 0) break;
      out[n++] = static_cast<uint8_t>(symbol);
    }
    writer_.commit(n);
    if (symbol == RkPPMdMod::kEndMark) break;
    if (symbol == RkPPMdMod::kBadSymbol) throw RkLib::RkSevereError(kPPMdBadData);
  }
  range_.Finish();
  writer_.finishOutput();
}

}  // namespace RkPipeLib
