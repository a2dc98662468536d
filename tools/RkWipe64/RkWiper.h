// RkWiper: overwrites and unlinks listed files, and removes listed folders once they are empty,
// without ever letting a symbolic link lead the work outside the paths it was given.
//
// Every operation counts what it could not finish; a path that no longer exists counts as done,
// since the aim is only that nothing listed survives.
#pragma once

#include <sys/stat.h>

#include <cstddef>
#include <memory>
#include <string>
#include <string_view>

namespace RkWipe {

// Owns one file descriptor; -1 when empty.
class RkFd {
 public:
  RkFd() = default;
  explicit RkFd(int fd) noexcept : fd_(fd) {}
  RkFd(RkFd&& other) noexcept : fd_(other.release()) {}
  RkFd& operator=(RkFd&& other) noexcept;
  RkFd(const RkFd&) = delete;
  RkFd& operator=(const RkFd&) = delete;
  ~RkFd() { reset(); }

  int get() const noexcept { return fd_; }
  explicit operator bool() const noexcept { return fd_ >= 0; }
  int release() noexcept;
  void reset(int fd = -1) noexcept;

 private:
  int fd_ = -1;
};

class RkWiper {
 public:
  // Blocks of zeros written at a time: large enough that a big file takes few system calls.
  static constexpr size_t kBlockSize = size_t{1} << 20;

  explicit RkWiper(std::string_view title);
  RkWiper(const RkWiper&) = delete;
  RkWiper& operator=(const RkWiper&) = delete;

  // A listed entry in system form: the libraries' `\` separators become `/`. Empty with `why`
  // set when the entry cannot name something to wipe (relative, "..", the root, bad text).
  static std::string SystemPath(std::string_view entry, std::string& why);
  // A folder entry ends in a separator.
  static bool IsFolderEntry(std::string_view entry) noexcept;

  // Overwrites a regular file with zeros before unlinking it; anything else but a folder is
  // unlinked as it is (a symbolic link goes, its target stays).
  void wipeFile(std::string_view entry);
  // Removes the folder if it is empty once its empty sub-folders are gone; a folder that still
  // holds anything is kept.
  void removeFolder(std::string_view entry);

  // Reports on stderr and counts a failure; `path` may be empty.
  void fail(std::string_view what, std::string_view path, int error = 0);
  void note(std::string_view what, std::string_view path, int error = 0) const;
  size_t failures() const noexcept { return failures_; }

 private:
  enum class Reach { kFound, kMissing, kRefused };
  Reach openParent(const std::string& path, RkFd& parent, std::string& name);
  bool reach(std::string_view entry, RkFd& parent, std::string& name, std::string& path, struct stat& st);
  void overwrite(int parent, const std::string& name, const std::string& path);
  void removeEmptySubfolders(int folder, int depth);

  std::string title_;
  std::unique_ptr<char[]> zeros_;
  size_t failures_ = 0;
};

}  // namespace RkWipe
