#include "RkSettingsFile.h"

#include <fcntl.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <vector>

namespace RkLib {

namespace {

constexpr const char* kFolderName = "/Rakona Computing";

class FileDescriptor {
 public:
  explicit FileDescriptor(int fd) : fd_(fd) {}
  FileDescriptor(const FileDescriptor&) = delete;
  FileDescriptor& operator=(const FileDescriptor&) = delete;
  ~FileDescriptor() {
    if (fd_ >= 0) ::close(fd_);
  }
  int get() const { return fd_; }
  // Closing reports the last write error on some file systems, so a writer must see it.
  bool close() {
    int fd = fd_;
    fd_ = -1;
    return ::close(fd) == 0;
  }

 private:
  int fd_;
};

bool WriteAll(int fd, std::string_view data) {
  while (!data.empty()) {
    ssize_t n = ::write(fd, data.data(), data.size());
    if (n < 0) {
      if (errno == EINTR) continue;
      return false;
    }
    data.remove_prefix(static_cast<size_t>(n));
  }
  return true;
}

bool MakeFolders(const std::string& folder, mode_t mode) {
  struct stat st;
  if (::stat(folder.c_str(), &st) == 0) return S_ISDIR(st.st_mode);
  for (size_t i = 1; i <= folder.size(); ++i) {
    if (i < folder.size() && folder[i] != '/') continue;
    std::string part = folder.substr(0, i);
    if (::mkdir(part.c_str(), mode) != 0 && errno != EEXIST) return false;
  }
  return ::stat(folder.c_str(), &st) == 0 && S_ISDIR(st.st_mode);
}

std::string HomeFromPasswordDatabase() {
  long hint = ::sysconf(_SC_GETPW_R_SIZE_MAX);
  std::vector<char> buffer(hint > 0 ? static_cast<size_t>(hint) : 16384);
  struct passwd entry;
  struct passwd* found = nullptr;
  if (::getpwuid_r(::getuid(), &entry, buffer.data(), buffer.size(), &found) != 0 || !found) return {};
  return found->pw_dir ? std::string(found->pw_dir) : std::string();
}

}  // namespace

RkFileLoad RkLoadSettingsFile(const std::string& path, size_t maxBytes, std::string& out) {
  out.clear();
  if (path.empty()) return RkFileLoad::kFailed;
  FileDescriptor fd(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY | O_NONBLOCK));
  if (fd.get() < 0) return errno == ENOENT || errno == ENOTDIR ? RkFileLoad::kMissing : RkFileLoad::kFailed;
  struct stat st;
  if (::fstat(fd.get(), &st) != 0 || !S_ISREG(st.st_mode)) return RkFileLoad::kFailed;
  if (static_cast<unsigned long long>(st.st_size) > maxBytes) return RkFileLoad::kFailed;
  out.reserve(static_cast<size_t>(st.st_size));
  // The size is only a hint: the file may grow while we read, so the cap is checked on the bytes.
  char chunk[16384];
  while (true) {
    ssize_t n = ::read(fd.get(), chunk, sizeof chunk);
    if (n < 0) {
      if (errno == EINTR) continue;
      out.clear();
      return RkFileLoad::kFailed;
    }
    if (n == 0) return RkFileLoad::kLoaded;
    if (out.size() + static_cast<size_t>(n) > maxBytes) {
      out.clear();
      return RkFileLoad::kFailed;
    }
    out.append(chunk, static_cast<size_t>(n));
  }
}

bool RkReplaceSettingsFile(const std::string& path, std::string_view content, unsigned folderMode) {
  if (path.empty()) return false;
  std::string target = path;
  struct stat st;
  if (::lstat(path.c_str(), &st) == 0 && S_ISLNK(st.st_mode)) {
    char* resolved = ::realpath(path.c_str(), nullptr);
    if (!resolved) return false;
    target = resolved;
    std::free(resolved);
  }
  size_t slash = target.rfind('/');
  std::string folder = slash == std::string::npos ? "." : slash == 0 ? "/" : target.substr(0, slash);
  if (!MakeFolders(folder, static_cast<mode_t>(folderMode))) return false;

  mode_t mode = 0644;
  if (::stat(target.c_str(), &st) == 0) {
    if (!S_ISREG(st.st_mode)) return false;
    mode = st.st_mode & 07777;
  }
  std::string temp = target + ".XXXXXX";
  FileDescriptor fd(::mkostemp(temp.data(), O_CLOEXEC));
  if (fd.get() < 0) return false;
  // fsync before the rename: otherwise a crash can leave the new name on an empty file.
  bool ok = WriteAll(fd.get(), content) && ::fchmod(fd.get(), mode) == 0 && ::fsync(fd.get()) == 0;
  ok = fd.close() && ok;
  ok = ok && ::rename(temp.c_str(), target.c_str()) == 0;
  if (!ok) ::unlink(temp.c_str());
  return ok;
}

std::string RkUserConfigFolder() {
  std::string base = RkEnvironmentValue("XDG_CONFIG_HOME");
  if (base.empty() || base.front() != '/') {
    std::string home = RkEnvironmentValue("HOME");
    if (home.empty()) home = HomeFromPasswordDatabase();
    if (home.empty()) return {};
    base = home + "/.config";
  }
  return base + kFolderName;
}

std::string RkMachineConfigFolder() { return std::string("/etc/xdg") + kFolderName; }

std::string RkEnvironmentValue(const char* name) {
  const char* value = std::getenv(name);
  return value ? std::string(value) : std::string();
}

}  // namespace RkLib
