#include "RkOutputFolder.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "RkString.h"

namespace RkArcLib {

namespace {

// Enough open folders for any real archive's tree; past it the cache starts over, which costs a
// walk, never a failure.
constexpr size_t kMaxCachedFolders = 512;

int OpenFolderAt(int parent, const char* name) {
  int fd;
  do {
    fd = ::openat(parent, name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
  } while (fd < 0 && errno == EINTR);
  return fd;
}

bool IsSeparator(char16_t c) { return c == u'\\' || c == u'/'; }

}  // namespace

RkFolderHandle::~RkFolderHandle() {
  if (fd_ >= 0) ::close(fd_);
}

int RkOutputFolder::Open(const RkLib::FidString& base) {
  base_ = base;
  folders_.clear();
  std::string path = base.ToPosix();
  if (path.empty()) path.assign(1, '.');
  // The base itself is the caller's choice and may be reached through links; only what lies
  // below it is guarded.
  for (size_t at = 1; at <= path.size(); ++at) {
    if (at == path.size() || path[at] == '/') {
      const char kept = path[at];
      path[at] = '\0';  // the prefix, in place
      const int made = ::mkdir(path.c_str(), 0777);
      const int error = made != 0 && errno != EEXIST ? errno : 0;
      path[at] = kept;
      if (error != 0) return error;
    }
  }
  int fd;
  do {
    fd = ::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  } while (fd < 0 && errno == EINTR);
  if (fd < 0) return errno;
  folders_.emplace(std::string(), std::make_shared<RkFolderHandle>(fd));
  return 0;
}

std::shared_ptr<RkFolderHandle> RkOutputFolder::Walk(std::u16string_view folder, int& error) {
  std::lock_guard<std::mutex> lock(mutex_);
  error = 0;
  std::string key = RkLib::RkString(folder).toUtf8();
  for (char& c : key)
    if (c == '\\') c = '/';
  if (auto found = folders_.find(key); found != folders_.end()) return found->second;
  if (folders_.empty()) {
    error = EBADF;
    return nullptr;
  }
  std::shared_ptr<RkFolderHandle> base = folders_.at(std::string());
  if (folders_.size() >= kMaxCachedFolders) {
    folders_.clear();
    folders_.emplace(std::string(), base);
  }
  std::shared_ptr<RkFolderHandle> current = base;
  std::string walked;
  size_t start = 0;
  while (start < key.size()) {
    size_t end = key.find('/', start);
    if (end == std::string::npos) end = key.size();
    const std::string part = key.substr(start, end - start);
    start = end + 1;
    if (part.empty()) continue;
    if (part == "." || part == "..") {
      error = EINVAL;
      return nullptr;
    }
    if (!walked.empty()) walked.push_back('/');
    walked.append(part);
    if (auto found = folders_.find(walked); found != folders_.end()) {
      current = found->second;
      continue;
    }
    if (::mkdirat(current->fd(), part.c_str(), 0777) != 0 && errno != EEXIST) {
      error = errno;
      return nullptr;
    }
    // O_NOFOLLOW: a link in the way fails with ELOOP instead of being walked through.
    const int fd = OpenFolderAt(current->fd(), part.c_str());
    if (fd < 0) {
      error = errno == ELOOP ? ENOTDIR : errno;
      return nullptr;
    }
    current = std::make_shared<RkFolderHandle>(fd);
    folders_.emplace(walked, current);
  }
  return current;
}

std::shared_ptr<RkFolderHandle> RkOutputFolder::ParentOf(std::u16string_view name, std::string& lastPart,
                                                         int& error) {
  size_t end = name.size();
  while (end > 0 && IsSeparator(name[end - 1])) --end;
  size_t cut = end;
  while (cut > 0 && !IsSeparator(name[cut - 1])) --cut;
  const std::u16string_view last = name.substr(cut, end - cut);
  if (last.empty() || last == u"." || last == u".." || (!name.empty() && IsSeparator(name[0]))) {
    error = EINVAL;
    return nullptr;
  }
  lastPart = RkLib::RkString(last).toUtf8();
  return Walk(name.substr(0, cut), error);
}

int RkOutputFolder::MakeFolder(std::u16string_view name) {
  if (!name.empty() && IsSeparator(name[0])) return EINVAL;
  int error = 0;
  Walk(name, error);
  return error;
}

}  // namespace RkArcLib
