#include "RkProcess.h"

#include <limits.h>
#include <unistd.h>

namespace RkLib {

std::string RkExecutablePath() {
  char path[PATH_MAX];
  ssize_t n = ::readlink("/proc/self/exe", path, sizeof path - 1);
  return n > 0 ? std::string(path, static_cast<size_t>(n)) : std::string();
}

}  // namespace RkLib
