// A language module file is data beside the library that anyone may edit or replace: arbitrary
// bytes parse without crashing, and every text that comes out can be filled with inserts.
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "RkLangModule.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  std::string_view text(reinterpret_cast<const char*>(data), size);
  RkImgVwr::RkLangModule::ParseForTest(text, [](uint32_t id, const RkLib::RkString& value) {
    (void)id;
    (void)RkImgVwr::RkFillInserts(value.view(), {RkLib::RkString(u"one"), RkLib::RkString(u"two")});
  });
  (void)RkImgVwr::RkLangModule::LanguageIdOfLocale(text.substr(0, 64));
  return 0;
}
