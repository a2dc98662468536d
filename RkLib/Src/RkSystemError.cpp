#include "RkSystemError.h"

#include <cerrno>

namespace RkLib {

uint32_t RkSystemErrorFromErrno(int error) noexcept {
  switch (error) {
    case 0: return 0;
    case ENOENT: return kSysFileNotFound;
    case ENOTDIR: return kSysPathNotFound;
    case EMFILE: case ENFILE: return 4;         // too many open files
    case EACCES: case EPERM: case EISDIR: return kSysAccessDenied;
    case EBADF: return 6;                       // invalid handle
    case ENOMEM: return 8;                      // not enough memory
    case EXDEV: return 17;                      // not the same device
    case EROFS: return 19;                      // write protected
    case EBUSY: case ETXTBSY: return 32;        // in use by another process
    case EEXIST: return 80;                     // the file exists
    case EINVAL: return kSysInvalidParameter;
    case ENOSPC: case EDQUOT: return kSysDiskFull;
    case ENOTEMPTY: return 145;                 // folder not empty
    case ENAMETOOLONG: return 206;              // name too long
    case EIO: return 1117;                      // I/O device error
    case ELOOP: return 1921;                    // cannot be reached through links
    default: return kSysUnmappedErrnoBit | static_cast<uint32_t>(error);
  }
}

}  // namespace RkLib
