// The language module: the user-visible texts of the library by resource number, read from a data
// file beside the library ("rkimgv64.<locale>.lng"). Texts are filled with inserts %1 to %9.
//
// Which language: the "InstalledUILangID" setting under the Langs key that the host executable's
// name selects, first for the user and then for the machine, accepted only when the machine's
// Langs key lists that number; otherwise the locale of the environment; otherwise 1033 (en-US).
// A language without a file falls back to en-US. A missing text is never a failure: the number
// stands in for it.
#pragma once

#include <cstdint>
#include <initializer_list>
#include <map>
#include <string>
#include <string_view>

#include "RkString.h"

namespace RkImgVwr {

using RkLib::RkString;

struct RkLanguageChoice {
  uint32_t languageId = 1033;
  RkString localeName = u"en-US";
};

class RkLangModule {
 public:
  // Caps the file we read: the English module is a few KiB, so anything near this is not ours.
  static constexpr size_t kMaxFileBytes = size_t{4} << 20;

  // The process-wide module, loaded on first use (the library's load triggers that use).
  static const RkLangModule& Get();

  RkString Text(uint32_t id) const;
  // The text of a system error number, or "System error N." when the module has none, ending in
  // "\r\n" as system messages do.
  RkString SystemText(uint32_t code) const;
  // Text(id) with %1..%9 replaced by the inserts and %% by %.
  RkString Format(uint32_t id, std::initializer_list<RkString> inserts) const;
  bool Has(uint32_t id) const { return messages_.count(id) != 0; }
  const RkLanguageChoice& Language() const { return language_; }
  // The file the texts came from; empty when none could be read.
  const std::string& FilePath() const { return filePath_; }

  // Parses the text of a module: "[messages]" and "[system]" sections of "number=text" lines,
  // with \n, \t and \\ escapes; '#' starts a comment line. Bad lines are skipped.
  void Parse(std::string_view text);
  bool LoadFile(const std::string& path);

  // The language rules, from the host executable's file name and the environment's locale
  // (as LC_ALL/LC_MESSAGES/LANG give it, e.g. "de_DE.UTF-8").
  // Parses a module's text into a fresh module and hands each message text to `visit`.
  template <typename Visit>
  static void ParseForTest(std::string_view text, Visit&& visit) {
    RkLangModule module;
    module.Parse(text);
    for (const auto& [id, value] : module.messages_) visit(id, value);
    for (const auto& [id, value] : module.system_) visit(id, value);
  }

  static RkLanguageChoice ChooseLanguage(const RkString& hostFileName, std::string_view environmentLocale);
  static uint32_t LanguageIdOfLocale(std::string_view locale);
  static RkString LocaleNameOfLanguage(uint32_t languageId);

 private:
  RkLangModule() = default;
  void LoadForProcess();

  RkLanguageChoice language_;
  std::string filePath_;
  std::map<uint32_t, RkString> messages_;
  std::map<uint32_t, RkString> system_;
};

RkString RkFillInserts(std::u16string_view text, std::initializer_list<RkString> inserts);

}  // namespace RkImgVwr
