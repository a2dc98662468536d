#include "RkBOM.h"

#include <cstring>

#include "RkFileIO.h"

namespace RkLib {

namespace {

constexpr std::string_view kMarks[] = {
    {},
    {"\xEF\xBB\xBF", 3},
    {"\xFF\xFE", 2},
    {"\xFE\xFF", 2},
};

}  // namespace

RkBomKind RkBOM::Detect(const void* data, size_t size) noexcept {
  if (!data) return kBomNone;
  std::string_view head(static_cast<const char*>(data), size);
  for (int kind = kBomUtf8; kind <= kBomUtf16Be; ++kind)
    if (head.starts_with(kMarks[kind])) return static_cast<RkBomKind>(kind);
  return kBomNone;
}

RkBomKind RkBOM::Detect(const RkFileIO& file) {
  char head[3];
  size_t n = file.ReadAt(head, sizeof head, 0);
  return Detect(head, n);
}

size_t RkBOM::Length(RkBomKind kind) noexcept { return Bytes(kind).size(); }

std::string_view RkBOM::Bytes(RkBomKind kind) noexcept {
  return kind >= kBomUtf8 && kind <= kBomUtf16Be ? kMarks[kind] : std::string_view();
}

}  // namespace RkLib
