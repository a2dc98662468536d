// Byte order marks: which Unicode form a text file announces at its start.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace RkLib {

class RkFileIO;

enum RkBomKind : int {
  kBomNone = 0,
  kBomUtf8 = 1,       // EF BB BF
  kBomUtf16Le = 2,    // FF FE
  kBomUtf16Be = 3,    // FE FF
};

class RkBOM {
 public:
  static RkBomKind Detect(const void* data, size_t size) noexcept;
  // Looks at the first bytes of the file without moving its position; kBomNone if they cannot
  // be read.
  static RkBomKind Detect(const RkFileIO& file);
  static size_t Length(RkBomKind kind) noexcept;
  // The mark's bytes, to write in front of a text; empty for kBomNone.
  static std::string_view Bytes(RkBomKind kind) noexcept;
};

}  // namespace RkLib
