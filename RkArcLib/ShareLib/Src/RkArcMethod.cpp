#include "RkArcMethod.h"

namespace RkArcLib {

RkArcMethod RkArcMethodFromZip(uint32_t zipMethod) noexcept {
  switch (zipMethod) {
    case 0:
      return RkArcMethod::kStored;
    case 1:
      return RkArcMethod::kShrink;
    case 2:
      return RkArcMethod::kReduce1;
    case 3:
      return RkArcMethod::kReduce2;
    case 4:
      return RkArcMethod::kReduce3;
    case 5:
      return RkArcMethod::kReduce4;
    case 6:
      return RkArcMethod::kImplode;
    case 7:
      return RkArcMethod::kTokenize;
    case 8:
      return RkArcMethod::kDeflate;
    case 9:
      return RkArcMethod::kDeflate64;
    case 10:
      return RkArcMethod::kDclImplode;
    case 12:
      return RkArcMethod::kBzip2;
    case 14:
      return RkArcMethod::kLzma;
    case 92:
      return RkArcMethod::kDuplicate;
    case 93:
      return RkArcMethod::kZstd;
    case 94:
      return RkArcMethod::kMp3;
    case 95:
      return RkArcMethod::kXz;
    case 96:
      return RkArcMethod::kJpeg;
    case 97:
      return RkArcMethod::kWavPack;
    case 98:
      return RkArcMethod::kPpmd;
    default:
      return RkArcMethod::kUnknown;
  }
}

}  // namespace RkArcLib
