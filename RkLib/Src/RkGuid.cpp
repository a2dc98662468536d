#include "RkGuid.h"

#include <sys/random.h>

#include <cerrno>
#include <cstring>

#include "RkError.h"

namespace RkLib {

RkGuid RkGuid::New() {
  uint8_t b[16];
  size_t got = 0;
  while (got < sizeof b) {
    ssize_t n = ::getrandom(b + got, sizeof b - got, 0);
    if (n < 0 && errno == EINTR) continue;
    RK_API_CHECK(n > 0);
    got += static_cast<size_t>(n);
  }
  b[6] = static_cast<uint8_t>((b[6] & 0x0F) | 0x40);  // version 4
  b[8] = static_cast<uint8_t>((b[8] & 0x3F) | 0x80);  // RFC 4122 variant
  RkGuid g;
  g.data1 = (uint32_t(b[0]) << 24) | (uint32_t(b[1]) << 16) | (uint32_t(b[2]) << 8) | b[3];
  g.data2 = static_cast<uint16_t>((b[4] << 8) | b[5]);
  g.data3 = static_cast<uint16_t>((b[6] << 8) | b[7]);
  std::memcpy(g.data4.data(), b + 8, 8);
  return g;
}

RkString RkGuid::ToString() const {
  return RkString::Format(u"%08X-%04X-%04X-%02X%02X-%02X%02X%02X%02X%02X%02X", data1, data2, data3, data4[0],
                          data4[1], data4[2], data4[3], data4[4], data4[5], data4[6], data4[7]);
}

FidString RkTempName(const FidString& folder, std::u16string_view prefix, std::u16string_view extension) {
  RkString name(prefix);
  name += RkGuid::New().ToString();
  name += extension;
  FidString path(folder);
  path.Append(name.view());
  return path;
}

}  // namespace RkLib
