#include "RkFileIO.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <utility>

#include "RkTimeStamp.h"

namespace RkLib {

namespace {

// Parses an fopen mode into open(2) flags; -1 for a mode we do not know.
int OpenFlags(const char* mode) {
  if (!mode || !*mode) return -1;
  bool plus = std::strchr(mode, '+') != nullptr;
  bool exclusive = std::strchr(mode, 'x') != nullptr;
  int flags = O_CLOEXEC;
  switch (mode[0]) {
    case 'r': flags |= plus ? O_RDWR : O_RDONLY; break;
    case 'w': flags |= (plus ? O_RDWR : O_WRONLY) | O_CREAT | O_TRUNC; break;
    case 'a': flags |= (plus ? O_RDWR : O_WRONLY) | O_CREAT | O_APPEND; break;
    default: return -1;
  }
  if (exclusive) {
    if (mode[0] != 'w') return -1;
    flags |= O_EXCL;
  }
  for (const char* p = mode + 1; *p; ++p)
    if (!std::strchr("b+xt", *p)) return -1;
  return flags;
}

}  // namespace

RkFileIO::RkFileIO(RkFileIO&& other) noexcept
    : fd_(std::exchange(other.fd_, -1)), lastError_(other.lastError_.load()), path_(std::move(other.path_)) {}

RkFileIO& RkFileIO::operator=(RkFileIO&& other) noexcept {
  if (this != &other) {
    Close();
    fd_ = std::exchange(other.fd_, -1);
    lastError_ = other.lastError_.load();
    path_ = std::move(other.path_);
  }
  return *this;
}

RkFileIO::~RkFileIO() { Close(); }

bool RkFileIO::Open(const FidString& path, const char* mode) {
  return OpenAt(AT_FDCWD, path.ToPosix().c_str(), mode, path);
}

bool RkFileIO::OpenAt(int folder, const char* name, const char* mode, const FidString& path) {
  Close();
  int flags = OpenFlags(mode);
  if (flags < 0) {
    lastError_ = EINVAL;
    return false;
  }
  if (folder != AT_FDCWD) flags |= O_NOFOLLOW;
  int fd;
  do {
    fd = ::openat(folder, name, flags, 0666);
  } while (fd < 0 && errno == EINTR);
  if (fd < 0) {
    lastError_ = errno;
    return false;
  }
  struct stat st;
  int statError = ::fstat(fd, &st) != 0 ? errno : (S_ISDIR(st.st_mode) ? EISDIR : 0);
  if (statError != 0) {
    lastError_ = statError;
    ::close(fd);
    return false;
  }
  fd_ = fd;
  lastError_ = 0;
  path_ = path;
  return true;
}

void RkFileIO::Close() noexcept {
  if (fd_ >= 0) ::close(fd_);
  fd_ = -1;
}

// Repeats a read until `size` bytes, the end of the file (a zero count) or an error other than
// an interrupted call; `error` receives that error, 0 otherwise.
template <typename ReadSome>
static size_t ReadFully(uint8_t* p, size_t size, int& error, ReadSome readSome) {
  size_t done = 0;
  error = 0;
  while (done < size) {
    ssize_t n = readSome(p + done, size - done, done);
    if (n > 0) {
      done += static_cast<size_t>(n);
    } else if (n == 0) {
      break;
    } else if (errno != EINTR) {
      error = errno;
      break;
    }
  }
  return done;
}

size_t RkFileIO::Read(void* buffer, size_t size) {
  int error;
  size_t done = ReadFully(static_cast<uint8_t*>(buffer), size, error,
                          [this](uint8_t* p, size_t n, size_t) { return ::read(fd_, p, n); });
  lastError_ = error;
  return done;
}

size_t RkFileIO::ReadAt(void* buffer, size_t size, int64_t offset) const {
  int error;
  size_t done = ReadFully(static_cast<uint8_t*>(buffer), size, error, [&](uint8_t* p, size_t n, size_t at) {
    return ::pread(fd_, p, n, static_cast<off_t>(offset + static_cast<int64_t>(at)));
  });
  if (error != 0) lastError_ = error;
  return done;
}

size_t RkFileIO::Write(const void* buffer, size_t size) {
  auto* p = static_cast<const uint8_t*>(buffer);
  size_t done = 0;
  lastError_ = 0;
  while (done < size) {
    ssize_t n = ::write(fd_, p + done, size - done);
    if (n > 0) {
      done += static_cast<size_t>(n);
    } else if (n < 0 && errno == EINTR) {
      continue;
    } else {
      lastError_ = n == 0 ? ENOSPC : errno;
      break;
    }
  }
  return done;
}

bool RkFileIO::Seek(int64_t offset, RkSeekFrom from) {
  int whence = from == RkSeekFrom::kBegin ? SEEK_SET : from == RkSeekFrom::kCurrent ? SEEK_CUR : SEEK_END;
  if (::lseek(fd_, static_cast<off_t>(offset), whence) < 0) {
    lastError_ = errno;
    return false;
  }
  return true;
}

int64_t RkFileIO::Tell() const {
  off_t pos = ::lseek(fd_, 0, SEEK_CUR);
  if (pos < 0) lastError_ = errno;
  return pos;
}

int64_t RkFileIO::GetSize() const {
  struct stat st;
  if (::fstat(fd_, &st) != 0) {
    lastError_ = errno;
    return -1;
  }
  return st.st_size;
}

bool RkFileIO::SetEndOfFile() {
  int64_t pos = Tell();
  if (pos < 0) return false;
  if (::ftruncate(fd_, static_cast<off_t>(pos)) != 0) {
    lastError_ = errno;
    return false;
  }
  return true;
}

namespace {

struct timespec ToTimespec(const RkTimeStamp* stamp) {
  struct timespec ts {};
  if (!stamp || !stamp->isValid()) {
    ts.tv_nsec = UTIME_OMIT;
    return ts;
  }
  int64_t ms = stamp->toUnixMilliseconds();
  // Floor division: a stamp before 1970 has a negative count and a positive remainder.
  int64_t sec = ms >= 0 ? ms / 1000 : -((-ms + 999) / 1000);
  ts.tv_sec = static_cast<time_t>(sec);
  ts.tv_nsec = static_cast<long>((ms - sec * 1000) * 1000000);
  return ts;
}

}  // namespace

bool RkFileIO::SetTimeStamp(const RkTimeStamp& modified, const RkTimeStamp* accessed) {
  struct timespec times[2] = {ToTimespec(accessed), ToTimespec(&modified)};
  if (::futimens(fd_, times) != 0) {
    lastError_ = errno;
    return false;
  }
  return true;
}

bool RkFileIO::Flush() {
  if (::fsync(fd_) != 0) {
    lastError_ = errno;
    return false;
  }
  return true;
}

bool RkFileIO::DiskFull() const noexcept {
  const int error = lastError_;
  return error == ENOSPC || error == EDQUOT;
}

}  // namespace RkLib
