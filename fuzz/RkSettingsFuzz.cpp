// Arbitrary bytes as a settings file, with a key, a name and a value taken from the front of the
// input. Besides not crashing, every rewrite must read back as it claims: a written value is found
// again, a removed value or key is gone.
#include <fuzzer/FuzzedDataProvider.h>

#include <cstddef>
#include <cstdint>
#include <string>

#include "RkSettingsImage.h"

using namespace RkLib;

namespace {

RkRegValue PickValue(FuzzedDataProvider& in) {
  switch (in.ConsumeIntegralInRange<int>(0, 3)) {
    case 0:
      return RkRegValue::String(RkString::FromUtf8(in.ConsumeRandomLengthString(64)));
    case 1:
      return RkRegValue::Dword(in.ConsumeIntegral<uint32_t>());
    case 2:
      return RkRegValue::Qword(in.ConsumeIntegral<uint64_t>());
    default:
      return RkRegValue::Binary(in.ConsumeBytes<uint8_t>(in.ConsumeIntegralInRange<size_t>(0, 32)));
  }
}

void Check(bool ok) {
  if (!ok) __builtin_trap();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  FuzzedDataProvider in(data, size);
  RkString key = RkString::FromUtf8(in.ConsumeRandomLengthString(48));
  RkString name = RkString::FromUtf8(in.ConsumeRandomLengthString(24));
  RkRegValue value = PickValue(in);
  std::string text = in.ConsumeRemainingBytesAsString();

  RkSettingsImage image(text);
  (void)image.Find(key, name);
  (void)image.FindText(key, name);
  bool hadKey = image.HasKey(key);

  std::optional<std::string> written = image.WithValue(key, name, value);
  Check(written.has_value() ==
        RkSettingsImage::IsStorableKeyPath(RkSettingsImage::NormalizeKeyPath(key.view())));
  if (written) {
    RkSettingsImage after(*written);
    std::optional<RkRegValue> back = after.Find(key, name);
    Check(back && *back == value);
    Check(after.HasKey(key));
  }
  if (std::optional<std::string> removed = image.WithoutValue(key, name)) {
    Check(!RkSettingsImage(*removed).Find(key, name));
  }
  std::optional<std::string> dropped = image.WithoutKey(key);
  Check(dropped.has_value() == hadKey);
  if (dropped) Check(!RkSettingsImage(*dropped).HasKey(key));
  return 0;
}
