#include "RkSettings.h"

#include <algorithm>
#include <cstdint>
#include <functional>
#include <mutex>
#include <utility>

#include "RkSettingsFile.h"
#include "RkSettingsImage.h"

namespace RkLib {

namespace {

constexpr std::u16string_view kProductKey = u"SOFTWARE\\Rakona Computing\\Rakona\\";
constexpr std::u16string_view kRegistryPrefix = u"Rakona";

// The user's folder is private as the XDG rules ask; the machine's must stay readable by all.
constexpr unsigned kUserFolderMode = 0700;
constexpr unsigned kMachineFolderMode = 0755;

// Read-modify-write of a hive is one step for the threads of this process.
std::mutex& WriterMutex() {
  static std::mutex mutex;
  return mutex;
}

using Rewrite = std::function<std::optional<std::string>(const RkSettingsImage&)>;

bool ModifyHive(RkHive hive, const Rewrite& rewrite) {
  std::lock_guard<std::mutex> lock(WriterMutex());
  std::string path = RkSettingsStore::HivePath(hive);
  if (path.empty()) return false;
  std::string text;
  // A store we cannot read whole is not ours to overwrite: its other values would be lost.
  if (RkLoadSettingsFile(path, RkSettingsStore::kMaxFileBytes, text) == RkFileLoad::kFailed) return false;
  std::optional<std::string> next = rewrite(RkSettingsImage(text));
  if (!next) return false;
  return RkReplaceSettingsFile(path, *next,
                               hive == RkHive::CurrentUser ? kUserFolderMode : kMachineFolderMode);
}

bool NamesRegistry(const RkString& fileName) { return fileName.startsWithNoCase(kRegistryPrefix); }

// Windows paths keep their backslashes inside the libraries; here they become POSIX ones.
std::string ProfilePath(const RkString& fileName) {
  std::string path = fileName.toUtf8();
  for (char& c : path) {
    if (c == '\\') c = '/';
  }
  if (path.empty() || path.front() == '/') return path;
  std::string folder = RkUserConfigFolder();
  return folder.empty() ? std::string() : folder + "/" + path;
}

std::optional<RkString> ReadProfileText(const RkString& section, const RkString& key,
                                        const RkString& fileName) {
  std::string text;
  if (RkLoadSettingsFile(ProfilePath(fileName), RkSettingsStore::kMaxFileBytes, text) !=
      RkFileLoad::kLoaded) {
    return std::nullopt;
  }
  return RkSettingsImage(text).FindText(section, key);
}

std::optional<RkString> ReadRegistryText(const RkString& section, const RkString& key) {
  std::optional<RkRegValue> value =
      RkSettingsStore::Read(RkHive::CurrentUser, RkString(kProductKey) + section, key);
  if (!value || value->type != RkRegValue::kString) return std::nullopt;
  return std::move(value->text);
}

bool IsSpace(char16_t c) { return c == u' ' || (c >= u'\t' && c <= u'\r'); }

struct Decimal {
  bool negative = false;
  int64_t magnitude = 0;  // stops growing once past the 32-bit range
};

// Blanks, a sign, then decimal digits up to the first other character.
Decimal ScanDecimal(std::u16string_view s) {
  Decimal d;
  size_t i = 0;
  while (i < s.size() && IsSpace(s[i])) ++i;
  if (i < s.size() && (s[i] == u'+' || s[i] == u'-')) d.negative = s[i++] == u'-';
  for (; i < s.size() && s[i] >= u'0' && s[i] <= u'9'; ++i) {
    if (d.magnitude <= INT64_C(1) << 32) d.magnitude = d.magnitude * 10 + (s[i] - u'0');
  }
  return d;
}

int32_t Saturate(int64_t v) { return static_cast<int32_t>(std::clamp<int64_t>(v, INT32_MIN, INT32_MAX)); }

// wcstol where long has 32 bits: a number out of range gives the nearest limit.
int32_t ParseLong(std::u16string_view s) {
  Decimal d = ScanDecimal(s);
  return Saturate(d.negative ? -d.magnitude : d.magnitude);
}

// The profile reader's documented rule: a negative value reads as 0. Large ones saturate.
int32_t ParseProfileInt(std::u16string_view s) {
  Decimal d = ScanDecimal(s);
  return d.negative ? 0 : Saturate(d.magnitude);
}

}  // namespace

RkRegValue RkRegValue::String(RkString text) {
  RkRegValue v;
  v.type = kString;
  v.text = std::move(text);
  return v;
}

RkRegValue RkRegValue::Dword(uint32_t value) {
  RkRegValue v;
  v.type = kDword;
  v.number = value;
  return v;
}

RkRegValue RkRegValue::Qword(uint64_t value) {
  RkRegValue v;
  v.type = kQword;
  v.number = value;
  return v;
}

RkRegValue RkRegValue::Binary(std::vector<uint8_t> bytes) {
  RkRegValue v;
  v.type = kBinary;
  v.bytes = std::move(bytes);
  return v;
}

bool operator==(const RkRegValue& a, const RkRegValue& b) {
  if (a.type != b.type) return false;
  switch (a.type) {
    case RkRegValue::kString:
      return a.text == b.text;
    case RkRegValue::kDword:
      return (a.number & 0xFFFFFFFFu) == (b.number & 0xFFFFFFFFu);
    case RkRegValue::kQword:
      return a.number == b.number;
    case RkRegValue::kBinary:
      return a.bytes == b.bytes;
  }
  return false;
}

std::optional<RkRegValue> RkSettingsStore::Read(RkHive hive, const RkString& keyPath, const RkString& name) {
  // Parsed on every call: settings are read a handful of times per process, and a cache keyed on
  // the modification time would miss a rewrite within the file system's time granularity.
  std::string text;
  if (RkLoadSettingsFile(HivePath(hive), kMaxFileBytes, text) != RkFileLoad::kLoaded) return std::nullopt;
  return RkSettingsImage(text).Find(keyPath, name);
}

bool RkSettingsStore::Write(RkHive hive, const RkString& keyPath, const RkString& name,
                            const RkRegValue& value) {
  return ModifyHive(hive,
                    [&](const RkSettingsImage& image) { return image.WithValue(keyPath, name, value); });
}

bool RkSettingsStore::DeleteValue(RkHive hive, const RkString& keyPath, const RkString& name) {
  return ModifyHive(hive, [&](const RkSettingsImage& image) { return image.WithoutValue(keyPath, name); });
}

bool RkSettingsStore::DeleteKey(RkHive hive, const RkString& keyPath) {
  return ModifyHive(hive, [&](const RkSettingsImage& image) { return image.WithoutKey(keyPath); });
}

bool RkSettingsStore::KeyExists(RkHive hive, const RkString& keyPath) {
  std::string text;
  if (RkLoadSettingsFile(HivePath(hive), kMaxFileBytes, text) != RkFileLoad::kLoaded) return false;
  return RkSettingsImage(text).HasKey(keyPath);
}

std::string RkSettingsStore::HivePath(RkHive hive) {
  bool user = hive == RkHive::CurrentUser;
  std::string path = RkEnvironmentValue(user ? "RK_REGISTRY_USER" : "RK_REGISTRY_MACHINE");
  if (!path.empty()) return path;
  std::string folder = user ? RkUserConfigFolder() : RkMachineConfigFolder();
  return folder.empty() ? std::string() : folder + "/registry.ini";
}

int32_t readSettingInt(const RkString& section, const RkString& key, int32_t defaultValue,
                       const RkString& fileName) {
  try {
    if (!NamesRegistry(fileName)) {
      std::optional<RkString> text = ReadProfileText(section, key, fileName);
      // An empty value counts as missing, as the profile reader treats it.
      if (!text || text->empty()) return defaultValue;
      return ParseProfileInt(text->view());
    }
    std::optional<RkString> text = ReadRegistryText(section, key);
    return text ? ParseLong(text->view()) : defaultValue;
  } catch (...) {
    return defaultValue;
  }
}

bool readSettingString(const RkString& section, const RkString& key, const RkString& defaultValue,
                       RkString& out, const RkString& fileName) {
  std::optional<RkString> text;
  try {
    text = NamesRegistry(fileName) ? ReadRegistryText(section, key) : ReadProfileText(section, key, fileName);
  } catch (...) {
  }
  try {
    out = text ? std::move(*text) : defaultValue;
  } catch (...) {
    // Only the copy of the default can throw here, and only for want of memory.
    out.clear();
  }
  return text.has_value();
}

}  // namespace RkLib
