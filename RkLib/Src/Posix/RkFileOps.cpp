#include "RkFileOps.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <string>
#include <vector>

#include "RkSystemError.h"

namespace RkLib {

namespace {

// The system form of a path without trailing separators: "link/" would make the kernel resolve
// the link, and every operation here acts on the name as given.
std::string SystemPath(const FidString& path) {
  std::string sys = path.ToPosix();
  while (sys.size() > 1 && sys.back() == '/') sys.pop_back();
  return sys;
}

uint32_t LastSystemError() noexcept { return RkSystemErrorFromErrno(errno); }

int StatPath(const std::string& sys, struct stat& st, RkLinks links) {
  return links == RkLinks::kFollowed ? ::stat(sys.c_str(), &st) : ::lstat(sys.c_str(), &st);
}

// A time the calendar cannot hold (a file stamped beyond 9999) reads as not set.
RkTimeStamp FromTimespec(const struct timespec& ts) {
  try {
    return RkTimeStamp::FromUnixMilliseconds(static_cast<int64_t>(ts.tv_sec) * 1000 + ts.tv_nsec / 1000000);
  } catch (const DateOutOfBounds&) {
    return RkTimeStamp();
  }
}

int OpenRetrying(const char* path, int flags, mode_t mode = 0) {
  int fd;
  do {
    fd = ::open(path, flags, mode);
  } while (fd < 0 && errno == EINTR);
  return fd;
}

// Copies to the end of `in`; 0 or an errno value.
int CopyBytes(int in, int out) {
  // Large enough that the calls cost nothing beside the disk; on the heap, since the caller may
  // be a worker thread with a small stack.
  std::vector<char> buffer(256 * 1024);
  for (;;) {
    const ssize_t got = ::read(in, buffer.data(), buffer.size());
    if (got == 0) return 0;
    if (got < 0) {
      if (errno == EINTR) continue;
      return errno;
    }
    for (ssize_t done = 0; done < got;) {
      const ssize_t wrote = ::write(out, buffer.data() + done, static_cast<size_t>(got - done));
      if (wrote > 0) {
        done += wrote;
      } else if (wrote < 0 && errno == EINTR) {
        continue;
      } else {
        return wrote == 0 ? ENOSPC : errno;
      }
    }
  }
}

// Closes both descriptors and, on a failure, removes a target that the copy made; returns the
// error as a system error number.
uint32_t FinishCopy(int in, int out, int error, bool created, const std::string& target) {
  if (::close(out) != 0 && error == 0) error = errno;
  ::close(in);
  if (error != 0 && created) ::unlink(target.c_str());
  return RkSystemErrorFromErrno(error);
}

}  // namespace

uint32_t RkGetPathInfo(const FidString& path, RkPathInfo& info, RkLinks links) {
  struct stat st;
  if (StatPath(SystemPath(path), st, links) != 0) return LastSystemError();
  info = RkPathInfo();
  info.kind = S_ISREG(st.st_mode)   ? RkPathKind::kFile
              : S_ISDIR(st.st_mode) ? RkPathKind::kFolder
              : S_ISLNK(st.st_mode) ? RkPathKind::kLink
                                    : RkPathKind::kOther;
  info.size = info.kind == RkPathKind::kFile ? static_cast<uint64_t>(st.st_size) : 0;
  info.permissions = static_cast<uint32_t>(st.st_mode & 07777);
  // The same bits RkFindFile gives an entry of a folder.
  info.attributes = info.kind == RkPathKind::kFolder ? kAttrDirectory : kAttrArchive;
  if ((st.st_mode & 0222) == 0) info.attributes |= kAttrReadOnly;
  if (path.GetName().startsWith(u".")) info.attributes |= kAttrHidden;
  if (info.kind == RkPathKind::kLink) info.attributes |= kAttrReparsePoint;
  info.modified = FromTimespec(st.st_mtim);
  info.accessed = FromTimespec(st.st_atim);
  info.statusChanged = FromTimespec(st.st_ctim);
  info.modifiedNanoseconds = static_cast<int64_t>(st.st_mtim.tv_sec) * 1000000000 + st.st_mtim.tv_nsec;
  return 0;
}

bool RkPathExists(const FidString& path, RkLinks links) {
  struct stat st;
  return !path.empty() && StatPath(SystemPath(path), st, links) == 0;
}

bool RkIsFolder(const FidString& path, RkLinks links) {
  struct stat st;
  return !path.empty() && StatPath(SystemPath(path), st, links) == 0 && S_ISDIR(st.st_mode);
}

uint32_t RkMakeFolder(const FidString& path) {
  return ::mkdir(SystemPath(path).c_str(), 0777) == 0 ? 0 : LastSystemError();
}

uint32_t RkDeleteFile(const FidString& path) {
  return ::unlink(SystemPath(path).c_str()) == 0 ? 0 : LastSystemError();
}

uint32_t RkRemoveFolder(const FidString& path) {
  return ::rmdir(SystemPath(path).c_str()) == 0 ? 0 : LastSystemError();
}

uint32_t RkMoveFile(const FidString& from, const FidString& to, RkReplace replace) {
  const std::string source = SystemPath(from);
  const std::string target = SystemPath(to);
  if (replace == RkReplace::kYes) return ::rename(source.c_str(), target.c_str()) == 0 ? 0 : LastSystemError();
  if (::renameat2(AT_FDCWD, source.c_str(), AT_FDCWD, target.c_str(), RENAME_NOREPLACE) == 0) return 0;
  if (errno != EINVAL && errno != ENOSYS) return LastSystemError();
  // A file system that cannot refuse to replace (some network and overlay mounts) gets a test
  // first; it leaves a window in which another process may create the target.
  struct stat st;
  if (::lstat(target.c_str(), &st) == 0) return RkSystemErrorFromErrno(EEXIST);
  return ::rename(source.c_str(), target.c_str()) == 0 ? 0 : LastSystemError();
}

uint32_t RkCopyFile(const FidString& from, const FidString& to, RkReplace replace) {
  const std::string source = SystemPath(from);
  const std::string target = SystemPath(to);
  // Non-blocking, so that a named pipe at the source is refused below instead of waiting for a
  // writer; a regular file ignores the flag.
  const int in = OpenRetrying(source.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
  if (in < 0) return LastSystemError();
  struct stat st;
  const int sourceError = ::fstat(in, &st) != 0 ? errno
                          : S_ISDIR(st.st_mode)  ? EISDIR
                          : !S_ISREG(st.st_mode) ? EINVAL
                                                 : 0;
  if (sourceError != 0) {
    ::close(in);
    return RkSystemErrorFromErrno(sourceError);
  }
  // Make the target if it is not there; only then, and only when asked, open the one that is.
  // O_NOFOLLOW: a link at the target is never written through.
  bool created = true;
  int out = OpenRetrying(target.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, st.st_mode & 0777);
  if (out < 0 && errno == EEXIST && replace == RkReplace::kYes) {
    created = false;
    out = OpenRetrying(target.c_str(), O_WRONLY | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK);
  }
  if (out < 0) {
    const int error = errno;
    ::close(in);
    return RkSystemErrorFromErrno(error);
  }
  struct stat outSt;
  if (::fstat(out, &outSt) != 0) return FinishCopy(in, out, errno, created, target);
  // Truncating the target would destroy a source that is the same file under another name.
  if (outSt.st_dev == st.st_dev && outSt.st_ino == st.st_ino) return FinishCopy(in, out, EINVAL, created, target);
  if (!S_ISREG(outSt.st_mode)) return FinishCopy(in, out, EINVAL, created, target);
  if (!created && ::ftruncate(out, 0) != 0) return FinishCopy(in, out, errno, created, target);
  int error = CopyBytes(in, out);
  const struct timespec times[2] = {{0, UTIME_OMIT}, st.st_mtim};
  if (error == 0 && ::futimens(out, times) != 0) error = errno;
  return FinishCopy(in, out, error, created, target);
}

}  // namespace RkLib
