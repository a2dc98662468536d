// Facts about the running process that the libraries need.
#pragma once

#include <string>

namespace RkLib {

// The full path of the host executable in the system's form; empty when it cannot be read.
std::string RkExecutablePath();

}  // namespace RkLib
