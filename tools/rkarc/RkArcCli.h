// What the commands of rkarc share.
#pragma once

#include <memory>
#include <string>

#include "RkArchive.h"

namespace RkArcLib {
class RkArcCallback;
}

namespace rkarc {

inline constexpr int kExitOk = 0;
inline constexpr int kExitUsage = 1;
inline constexpr int kExitUnreadable = 2;

// The archive at `path`, typed as the viewer types it and loaded whole with `callback`; null with
// `reason` when it cannot be read.
std::unique_ptr<RkArcLib::RkArchive> OpenArchive(const std::string& path, RkArcLib::RkArcCallback& callback,
                                                 std::string& reason);

// `rkarc t` and `rkarc x`, from the arguments after the command.
int TestCommand(int argc, char** argv);
int ExtractCommand(int argc, char** argv);

}  // namespace rkarc
