// One settings file held in memory. Look-ups and rewrites are single passes over its lines, so
// the memory a call needs is the file plus the rewritten copy, however the lines are made up.
// The line syntax is described in RkSettings.h.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "RkSettings.h"

namespace RkLib {

class RkSettingsImage {
 public:
  // `text` must outlive the image. A UTF-8 byte order mark is skipped, and rewrites keep it.
  explicit RkSettingsImage(std::string_view text);

  // The first value of that name under a section equal to the key path that parses. Duplicates
  // come from hand editing; a damaged one is passed over as if it were not there.
  std::optional<RkRegValue> Find(const RkString& keyPath, const RkString& name) const;
  // The plain INI view used for private profile files: the text after the first '=', without
  // surrounding blanks and one pair of enclosing quotes. No escapes, no types, "@" is a name.
  std::optional<RkString> FindText(const RkString& section, const RkString& name) const;
  // True when a section names the key or one of its sub-keys.
  bool HasKey(const RkString& keyPath) const;

  // Rewritten files. The value replaces the first of its name in the key and drops the others;
  // a new value goes after the last value of the key's first section, and a new key at the end.
  // Nothing when the key path cannot be stored or the value type is unknown.
  std::optional<std::string> WithValue(const RkString& keyPath, const RkString& name,
                                       const RkRegValue& value) const;
  // Nothing when no such value or key is there.
  std::optional<std::string> WithoutValue(const RkString& keyPath, const RkString& name) const;
  std::optional<std::string> WithoutKey(const RkString& keyPath) const;

  // Blanks and backslashes at either end do not count, so "\Software\X\" is "Software\X".
  static RkString NormalizeKeyPath(std::u16string_view keyPath);
  // A storable path is not empty once normalised and holds no control characters, which would
  // break the line it is written on.
  static bool IsStorableKeyPath(const RkString& normalizedPath);

 private:
  std::string StartRewrite(size_t extra) const;

  std::string_view text_;
  bool hasBom_ = false;
};

}  // namespace RkLib
