// The file system side of the settings store: where its files are, and reading and replacing
// them whole.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace RkLib {

enum class RkFileLoad {
  kLoaded,
  kMissing,  // no such file or folder: an empty store
  kFailed,   // there but not readable as a regular file within the size cap
};

// The whole file into `out`. Opening does not block on a FIFO, and nothing beyond maxBytes is read.
RkFileLoad RkLoadSettingsFile(const std::string& path, size_t maxBytes, std::string& out);

// Replaces the file by a new one written beside it and renamed over it, so that readers and a
// crash see the old or the new contents. Missing folders are created with folderMode. A symbolic
// link is followed, so that the link stays. An existing file keeps its permissions.
bool RkReplaceSettingsFile(const std::string& path, std::string_view content, unsigned folderMode);

// "$XDG_CONFIG_HOME/Rakona Computing" (a relative XDG_CONFIG_HOME is ignored, as the XDG rules
// say), else "$HOME/.config/Rakona Computing", else from the password database; empty when none.
std::string RkUserConfigFolder();
// "/etc/xdg/Rakona Computing".
std::string RkMachineConfigFolder();

// An environment variable's value, empty when unset.
std::string RkEnvironmentValue(const char* name);

}  // namespace RkLib
