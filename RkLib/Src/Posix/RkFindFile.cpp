#include "RkFindFile.h"

#include <dirent.h>
#include <fcntl.h>
#include <fnmatch.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "RkTimeStamp.h"

namespace RkLib {

struct RkFindFile::State {
  DIR* dir = nullptr;
  FidString folder;
  std::string pattern;
  RkString name;
  struct stat st {};
  int error = 0;
};

RkFindFile::RkFindFile() : state_(std::make_unique<State>()) {}

RkFindFile::~RkFindFile() { Close(); }

bool RkFindFile::Open(const FidString& folder, std::u16string_view pattern) {
  Close();
  state_->folder = folder;
  state_->pattern = RkString(pattern).toUtf8();
  std::string path = folder.empty() ? std::string(".") : folder.ToPosix();
  int fd = ::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (fd < 0 || !(state_->dir = ::fdopendir(fd))) {
    state_->error = errno;
    if (fd >= 0) ::close(fd);
    return false;
  }
  state_->error = 0;
  return true;
}

bool RkFindFile::Next() {
  if (!state_->dir) return false;
  for (;;) {
    errno = 0;
    struct dirent* e = ::readdir(state_->dir);
    if (!e) {
      state_->error = errno;
      return false;
    }
    std::string_view n = e->d_name;
    if (n == "." || n == "..") continue;
    if (!state_->pattern.empty() && state_->pattern != "*" &&
        ::fnmatch(state_->pattern.c_str(), e->d_name, FNM_CASEFOLD | FNM_PERIOD) != 0)
      continue;
    // An entry that vanished between readdir and the stat is skipped, as if never listed.
    if (::fstatat(::dirfd(state_->dir), e->d_name, &state_->st, AT_SYMLINK_NOFOLLOW) != 0) continue;
    state_->name = RkString::FromUtf8(n);
    return true;
  }
}

void RkFindFile::Close() {
  if (state_->dir) ::closedir(state_->dir);
  state_->dir = nullptr;
}

RkString RkFindFile::GetName() const { return state_->name; }

FidString RkFindFile::GetPath() const {
  FidString path(state_->folder);
  path.Append(state_->name.view());
  return path;
}

uint64_t RkFindFile::GetSize() const { return IsFolder() ? 0 : static_cast<uint64_t>(state_->st.st_size); }

bool RkFindFile::IsFolder() const { return S_ISDIR(state_->st.st_mode); }
bool RkFindFile::IsLink() const { return S_ISLNK(state_->st.st_mode); }
bool RkFindFile::IsHidden() const { return state_->name.startsWith(u"."); }
bool RkFindFile::IsReadOnly() const { return (state_->st.st_mode & 0222) == 0; }

uint32_t RkFindFile::GetAttributes() const {
  uint32_t a = IsFolder() ? kAttrDirectory : kAttrArchive;
  if (IsReadOnly()) a |= kAttrReadOnly;
  if (IsHidden()) a |= kAttrHidden;
  if (IsLink()) a |= kAttrReparsePoint;
  return a;
}

int64_t RkFindFile::GetModifiedNanoseconds() const {
  return static_cast<int64_t>(state_->st.st_mtim.tv_sec) * 1000000000 + state_->st.st_mtim.tv_nsec;
}

namespace {

// A time the calendar cannot hold (a file stamped beyond 9999) reads as not set.
RkTimeStamp FromTimespec(const struct timespec& ts) {
  try {
    return RkTimeStamp::FromUnixMilliseconds(static_cast<int64_t>(ts.tv_sec) * 1000 + ts.tv_nsec / 1000000);
  } catch (const DateOutOfBounds&) {
    return RkTimeStamp();
  }
}

}  // namespace

RkTimeStamp RkFindFile::GetModified() const { return FromTimespec(state_->st.st_mtim); }
RkTimeStamp RkFindFile::GetAccessed() const { return FromTimespec(state_->st.st_atim); }
RkTimeStamp RkFindFile::GetStatusChanged() const { return FromTimespec(state_->st.st_ctim); }

int RkFindFile::LastError() const { return state_->error; }

}  // namespace RkLib
