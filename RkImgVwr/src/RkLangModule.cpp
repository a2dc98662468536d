#include "RkLangModule.h"

#include <dlfcn.h>
#include <unistd.h>

#include <cstdlib>
#include <optional>

#include "RkFid.h"
#include "RkFileIO.h"
#include "RkProcess.h"
#include "RkSettings.h"

namespace RkImgVwr {

using RkLib::FidString;
using RkLib::RkHive;
using RkLib::RkRegValue;
using RkLib::RkSettingsStore;

namespace {

struct LocaleRow {
  uint32_t id;
  const char16_t* name;
};

// The languages the product ships, by their numeric ids.
constexpr LocaleRow kLocales[] = {
    {1033, u"en-US"}, {2057, u"en-GB"}, {1031, u"de-DE"}, {1036, u"fr-FR"}, {3082, u"es-ES"},
    {1040, u"it-IT"}, {1043, u"nl-NL"}, {1046, u"pt-BR"}, {2070, u"pt-PT"}, {1049, u"ru-RU"},
    {1045, u"pl-PL"}, {1029, u"cs-CZ"}, {1053, u"sv-SE"}, {1030, u"da-DK"}, {1044, u"nb-NO"},
    {1035, u"fi-FI"}, {1041, u"ja-JP"}, {1042, u"ko-KR"}, {2052, u"zh-CN"}, {1028, u"zh-TW"},
    {1055, u"tr-TR"}, {1032, u"el-GR"}, {1038, u"hu-HU"}, {1058, u"uk-UA"},
};

// The main language alone ("de" of "de_AT") picks the first row of that language.
uint32_t LookUpLocale(std::u16string_view name) {
  for (const LocaleRow& row : kLocales)
    if (RkLib::RkCompareNoCase(row.name, name) == 0) return row.id;
  std::u16string_view main = name.substr(0, name.find(u'-'));
  for (const LocaleRow& row : kLocales)
    if (RkLib::RkCompareNoCase(std::u16string_view(row.name).substr(0, 2), main) == 0 && main.size() == 2)
      return row.id;
  return 0;
}

std::optional<RkString> ReadString(RkHive hive, const RkString& key, const RkString& name) {
  auto value = RkSettingsStore::Read(hive, key, name);
  if (!value || value->type != RkRegValue::kString) return std::nullopt;
  return value->text;
}

std::optional<uint32_t> ReadNumber(RkHive hive, const RkString& key, const RkString& name) {
  auto value = RkSettingsStore::Read(hive, key, name);
  if (!value) return std::nullopt;
  if (value->type == RkRegValue::kDword || value->type == RkRegValue::kQword)
    return value->number <= 0xFFFF ? std::optional<uint32_t>(static_cast<uint32_t>(value->number)) : std::nullopt;
  if (value->type == RkRegValue::kString) {
    std::string digits = value->text.toUtf8();
    char* end = nullptr;
    unsigned long n = std::strtoul(digits.c_str(), &end, 10);
    if (end != digits.c_str() && *end == '\0' && n <= 0xFFFF) return static_cast<uint32_t>(n);
  }
  return std::nullopt;
}

std::string ModuleFolder() {
  Dl_info info{};
  if (dladdr(reinterpret_cast<void*>(&RkFillInserts), &info) != 0 && info.dli_fname && *info.dli_fname) {
    std::string path = info.dli_fname;
    // An executable linked statically with this code reports its own name, which may be relative.
    if (path.find('/') == std::string::npos) path = RkLib::RkExecutablePath();
    return path.substr(0, path.rfind('/') + 1);
  }
  return {};
}

}  // namespace

RkString RkFillInserts(std::u16string_view text, std::initializer_list<RkString> inserts) {
  RkString out;
  for (size_t i = 0; i < text.size(); ++i) {
    if (text[i] == u'%' && i + 1 < text.size()) {
      char16_t c = text[i + 1];
      if (c == u'%') {
        out += u'%';
        ++i;
        continue;
      }
      if (c >= u'1' && c <= u'9') {
        size_t k = static_cast<size_t>(c - u'1');
        if (k < inserts.size()) out += *(inserts.begin() + k);
        ++i;
        continue;
      }
    }
    out += text[i];
  }
  return out;
}

const RkLangModule& RkLangModule::Get() {
  static const RkLangModule* module = [] {
    auto* m = new RkLangModule();  // never destroyed: texts may be needed until the process ends
    m->LoadForProcess();
    return m;
  }();
  return *module;
}

void RkLangModule::LoadForProcess() {
  const char* env = nullptr;
  for (const char* name : {"LC_ALL", "LC_MESSAGES", "LANG"})
    if ((env = std::getenv(name)) && *env) break;
  language_ = ChooseLanguage(FidString::FromPosix(RkLib::RkExecutablePath()).GetName(), env ? env : "");
  const std::string folder = ModuleFolder();
  if (!LoadFile(folder + "rkimgv64." + language_.localeName.toUtf8() + ".lng") &&
      language_.localeName != RkString(u"en-US"))
    LoadFile(folder + "rkimgv64.en-US.lng");
}

RkLanguageChoice RkLangModule::ChooseLanguage(const RkString& hostFileName, std::string_view environmentLocale) {
  FidString host(hostFileName.toLower());
  RkString base = host.GetBaseName();
  RkString key = u"SOFTWARE\\Rakona Computing\\Rakona\\Langs";
  if (base.startsWith(u"harbor")) key = u"SOFTWARE\\Rakona Computing\\Rakona Harbor\\Langs";
  if (base.startsWith(u"lantern")) key = u"SOFTWARE\\Rakona Computing\\Rakona Lantern\\Outlook\\Langs";

  RkLanguageChoice choice;
  choice.languageId = 0;
  for (RkHive hive : {RkHive::CurrentUser, RkHive::LocalMachine}) {
    auto id = ReadNumber(hive, key, u"InstalledUILangID");
    if (!id) continue;
    // Only a language the machine's installation lists counts; its data names the folder.
    RkString listed = RkString::Format(u"%u", *id);
    if (RkSettingsStore::Read(RkHive::LocalMachine, key, listed)) {
      choice.languageId = *id;
      auto folder = ReadString(RkHive::LocalMachine, key, listed);
      choice.localeName = folder && !folder->empty() ? *folder : RkString(u"en-US");
      return choice;
    }
    break;
  }
  choice.languageId = LanguageIdOfLocale(environmentLocale);
  if (choice.languageId == 0) choice.languageId = 1033;
  choice.localeName = LocaleNameOfLanguage(choice.languageId);
  return choice;
}

uint32_t RkLangModule::LanguageIdOfLocale(std::string_view locale) {
  // "de_DE.UTF-8@euro" -> "de-DE"; "C" and "POSIX" name no language.
  locale = locale.substr(0, locale.find_first_of(".@"));
  if (locale.empty() || locale == "C" || locale == "POSIX") return 0;
  std::u16string name;
  for (char c : locale) name += c == '_' ? u'-' : static_cast<char16_t>(static_cast<unsigned char>(c));
  return LookUpLocale(name);
}

RkString RkLangModule::LocaleNameOfLanguage(uint32_t languageId) {
  for (const LocaleRow& row : kLocales)
    if (row.id == languageId) return RkString(row.name);
  return RkString(u"en-US");
}

bool RkLangModule::LoadFile(const std::string& path) {
  RkLib::RkFileIO file;
  if (!file.Open(FidString::FromPosix(path), "rb")) return false;
  const int64_t size = file.GetSize();
  if (size <= 0 || static_cast<uint64_t>(size) > kMaxFileBytes) return false;
  std::string text(static_cast<size_t>(size), '\0');
  // A file cut short meanwhile gives what is left; one grown meanwhile is read to its old size.
  const size_t got = file.Read(text.data(), text.size());
  if (got == 0) return false;
  text.resize(got);
  Parse(text);
  filePath_ = path;
  return true;
}

void RkLangModule::Parse(std::string_view text) {
  if (text.starts_with("\xEF\xBB\xBF")) text.remove_prefix(3);
  std::map<uint32_t, RkString>* section = &messages_;
  while (!text.empty()) {
    size_t end = text.find('\n');
    std::string_view line = text.substr(0, end);
    text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
    if (!line.empty() && line.back() == '\r') line.remove_suffix(1);
    if (line.empty() || line.front() == '#') continue;
    if (line == "[messages]") {
      section = &messages_;
      continue;
    }
    if (line == "[system]") {
      section = &system_;
      continue;
    }
    size_t eq = line.find('=');
    if (eq == 0 || eq == std::string_view::npos || eq > 10) continue;
    uint64_t id = 0;
    bool digits = true;
    for (char c : line.substr(0, eq)) {
      if (c < '0' || c > '9') digits = false;
      else id = id * 10 + static_cast<uint64_t>(c - '0');
    }
    if (!digits || id > 0xFFFFFFFFu) continue;
    std::string value;
    for (size_t i = eq + 1; i < line.size(); ++i) {
      if (line[i] == '\\' && i + 1 < line.size()) {
        char e = line[++i];
        value += e == 'n' ? '\n' : e == 't' ? '\t' : e;
      } else {
        value += line[i];
      }
    }
    (*section)[static_cast<uint32_t>(id)] = RkString::FromUtf8(value);
  }
}

RkString RkLangModule::Text(uint32_t id) const {
  auto it = messages_.find(id);
  return it != messages_.end() ? it->second : RkString::Format(u"%u", id);
}

// A system message carries a trailing carriage return and line feed, as the stored description of
// a system error always has; get_error_description strips them on the way out.
RkString RkLangModule::SystemText(uint32_t code) const {
  auto it = system_.find(code);
  RkString text = it != system_.end() ? it->second : RkString::Format(u"System error %u.", code);
  text += std::u16string_view(u"\r\n");
  return text;
}

RkString RkLangModule::Format(uint32_t id, std::initializer_list<RkString> inserts) const {
  return RkFillInserts(Text(id).view(), inserts);
}

}  // namespace RkImgVwr
