// The settings store: typed values under backslash-separated key paths in two hives, and the two
// look-ups through which the libraries read their tuning values.
//
// Each hive is one UTF-8 INI file whose section names are key paths and whose values use a
// syntax close to exported registry files:
//
//   [Software\Rakona Computing\Rakona\Rakona]
//   ImageViewer="0,10,10,800,600,96"      a string
//   PipeBufferCount=4                     unquoted text is a string too (hand editing)
//   Flags=dword:0000000a                  32 bits, hexadecimal
//   Stamp=qword:00000000deadbeef          64 bits, hexadecimal
//   Blob=hex:01,02,ff                     bytes
//   @="x"                                 the key's unnamed value
//
// Key paths and value names compare without regard to case. A missing, unreadable or damaged
// store, and any line that does not parse, reads as absent: settings never stop the program.
//
// Thread safety: every function may be called from any thread. Writers in this process are
// serialised; a reader sees the file either before or after a write, never half of it. Writers
// in two processes do not lock each other out: the last rename wins.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "RkString.h"

namespace RkLib {

enum class RkHive { CurrentUser, LocalMachine };

struct RkRegValue {
  // The registry's own type numbers, so that a value keeps its meaning in logs and tools.
  enum Type : uint32_t { kString = 1, kBinary = 3, kDword = 4, kQword = 11 };

  Type type = kString;
  RkString text;               // kString
  uint64_t number = 0;         // kDword (the low 32 bits) and kQword
  std::vector<uint8_t> bytes;  // kBinary

  static RkRegValue String(RkString text);
  static RkRegValue Dword(uint32_t value);
  static RkRegValue Qword(uint64_t value);
  static RkRegValue Binary(std::vector<uint8_t> bytes);

  friend bool operator==(const RkRegValue& a, const RkRegValue& b);
};

class RkSettingsStore {
 public:
  // A store is a few KiB in practice. The cap bounds what one look-up may allocate when the file
  // is something else (a disk image copied over it, /dev/zero linked in): beyond it the store
  // reads as absent and writes are refused, so a stray huge file is never truncated by us.
  static constexpr size_t kMaxFileBytes = size_t{16} << 20;

  static std::optional<RkRegValue> Read(RkHive hive, const RkString& keyPath, const RkString& name);
  // Creates the key, the folder and the file as needed. False when the store cannot be read
  // back whole (it is then left alone), the key path is empty or holds control characters, or
  // the file system refuses.
  static bool Write(RkHive hive, const RkString& keyPath, const RkString& name, const RkRegValue& value);
  // True when something was removed.
  static bool DeleteValue(RkHive hive, const RkString& keyPath, const RkString& name);
  // Removes the key with all its sub-keys; true when something was removed.
  static bool DeleteKey(RkHive hive, const RkString& keyPath);
  // A key exists when it or one of its sub-keys has a section.
  static bool KeyExists(RkHive hive, const RkString& keyPath);

  // The file behind a hive: RK_REGISTRY_USER or RK_REGISTRY_MACHINE when set, otherwise
  // "$XDG_CONFIG_HOME/Rakona Computing/registry.ini" (default ~/.config) for the user and
  // "/etc/xdg/Rakona Computing/registry.ini" for the machine. Empty when no home is known.
  static std::string HivePath(RkHive hive);
};

// Reads an integer setting. A file name that does not begin with "Rakona" (ignoring case) names a
// private profile file: the key is read from that INI file, where a relative name lies in the
// user's "Rakona Computing" configuration folder; a missing key gives the default, the leading
// decimal digits of the value count and a negative value gives 0. A file name that begins with
// "Rakona" reads the string value `key` under "SOFTWARE\Rakona Computing\Rakona\<section>" in the
// current-user hive and parses it as a decimal number as wcstol does (no digits give 0); any
// other type, or none, gives the default. Never throws: any failure gives the default.
int32_t readSettingInt(const RkString& section, const RkString& key, int32_t defaultValue,
                       const RkString& fileName);

// The same choice of store for a string. `out` receives the stored text, or the default when the
// value is missing or not a string; the result says whether the stored text was found. A profile
// value loses surrounding blanks and one pair of enclosing quotes. Never throws.
bool readSettingString(const RkString& section, const RkString& key, const RkString& defaultValue,
                       RkString& out, const RkString& fileName);

}  // namespace RkLib
