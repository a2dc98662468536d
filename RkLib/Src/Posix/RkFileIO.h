// RkFileIO: a file on a POSIX descriptor, with 64-bit offsets and close-on-exec.
//
// Operations report failure by their result and keep the system's error number for LastError(),
// so that a caller can tell a full disk from other write failures and pick its own error code.
// One object is used by one thread at a time; ReadAt may be called concurrently on one object.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>

#include "RkFid.h"

namespace RkLib {

class RkTimeStamp;

enum class RkSeekFrom { kBegin, kCurrent, kEnd };

class RkFileIO {
 public:
  RkFileIO() = default;
  RkFileIO(const RkFileIO&) = delete;
  RkFileIO& operator=(const RkFileIO&) = delete;
  RkFileIO(RkFileIO&& other) noexcept;
  RkFileIO& operator=(RkFileIO&& other) noexcept;
  virtual ~RkFileIO();

  // fopen-style modes: "rb", "r+b", "wb" (create or truncate), "w+b", "ab", "a+b", and "x" added
  // to a "w" mode to fail when the file exists. Folders are refused. Returns false with
  // LastError() set; an unknown mode gives EINVAL.
  bool Open(const FidString& path, const char* mode);
  // The same for `name`, one part, inside the open folder `folder`; a symbolic link there is
  // never followed (ELOOP). `path` is what Path() then tells.
  bool OpenAt(int folder, const char* name, const char* mode, const FidString& path);
  void Close() noexcept;
  bool IsOpen() const noexcept { return fd_ >= 0; }

  // Reads until `size` bytes or the end of the file; the count is short only at the end or on a
  // failure, which LastError() then tells (0 at the end).
  size_t Read(void* buffer, size_t size);
  // Positional read that leaves the file position alone.
  size_t ReadAt(void* buffer, size_t size, int64_t offset) const;
  // Writes all bytes; a short count means failure (ENOSPC when the disk is full).
  size_t Write(const void* buffer, size_t size);
  bool Seek(int64_t offset, RkSeekFrom from = RkSeekFrom::kBegin);
  int64_t Tell() const;
  int64_t GetSize() const;  // -1 on failure
  // Cuts or extends the file at the current position.
  bool SetEndOfFile();
  // Sets the modification and (if given) access time; stamps are universal time. A stamp that is
  // not set leaves that time alone.
  bool SetTimeStamp(const RkTimeStamp& modified, const RkTimeStamp* accessed = nullptr);
  bool Flush();

  int LastError() const noexcept { return lastError_; }
  bool DiskFull() const noexcept;
  int Handle() const noexcept { return fd_; }
  const FidString& Path() const noexcept { return path_; }

 private:
  int fd_ = -1;
  // Atomic because concurrent ReadAt calls may each record a failure.
  mutable std::atomic<int> lastError_{0};
  FidString path_;
};

}  // namespace RkLib
