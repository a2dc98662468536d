// System error numbers. The libraries and the host speak of failed system calls by the error
// numbers of the archive tool's home platform (2 file not found, 5 access denied, 112 disk
// full ...), so that a host sees the same codes whatever system the library runs on.
#pragma once

#include <cstdint>

namespace RkLib {

inline constexpr uint32_t kSysFileNotFound = 2;
inline constexpr uint32_t kSysPathNotFound = 3;
inline constexpr uint32_t kSysAccessDenied = 5;
inline constexpr uint32_t kSysInvalidData = 13;
inline constexpr uint32_t kSysDiskFull = 112;
inline constexpr uint32_t kSysInvalidParameter = 87;
// Numbers with this bit are errno values that have no counterpart, kept as they are.
inline constexpr uint32_t kSysUnmappedErrnoBit = 0x20000000;

uint32_t RkSystemErrorFromErrno(int error) noexcept;

}  // namespace RkLib
