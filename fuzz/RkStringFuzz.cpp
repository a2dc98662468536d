// Untrusted text as it reaches the libraries: entry names in every narrow form, and format strings
// from the language module. Beyond not crashing: code-page bytes survive a round trip, UTF-8 that
// we wrote decodes to the same text, and a path always splits back into itself.
#include <fuzzer/FuzzedDataProvider.h>

#include <cstddef>
#include <cstdint>
#include <string>

#include "RkFid.h"
#include "RkString.h"

using namespace RkLib;

namespace {

void Check(bool ok) {
  if (!ok) __builtin_trap();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  FuzzedDataProvider in(data, size);
  const int selector = in.PickValueInArray({kNarrowOem, kNarrowAnsi, kNarrowUtf8});
  const std::string bytes = in.ConsumeRandomLengthString(4096);

  RkString text = RkString::FromNarrow(bytes, selector);
  std::string back = text.toNarrow(selector);
  Check(back.size() == text.narrowLength(selector));
  if (selector != kNarrowUtf8) Check(back == bytes);
  Check(RkString::FromUtf8(text.toUtf8()) == text);

  FidString path(text);
  Check((path.GetFolder() + path.GetName()) == path);
  Check(path.GetBaseName().length() + (path.GetExtension().empty() ? 0 : path.GetExtension().length() + 1) <=
        path.GetName().length());
  (void)path.IsRoot();
  (void)path.ToPosix();
  FidString joined(path);
  joined.Append(text.view());
  Check(joined.startsWith(path.view()));

  const std::u16string format = RkString::FromUtf8(in.ConsumeRandomLengthString(256)).str();
  (void)RkFormatSigned(format.c_str(), in.ConsumeIntegral<int64_t>());
  (void)RkFormatUnsigned(format.c_str(), in.ConsumeIntegral<uint64_t>());
  (void)RkFormatChar(format.c_str(), in.ConsumeIntegral<char16_t>());
  (void)text.compareNoCase(RkString(format));
  return 0;
}
