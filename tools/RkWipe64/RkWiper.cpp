#include "RkWiper.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <vector>

#include "RkFid.h"

namespace RkWipe {

namespace {

// Sub-folders deeper than this are left alone when emptying a listed folder: each level holds a
// descriptor open, and the viewer itself makes no sub-folders at all.
constexpr int kMaxFolderDepth = 64;
// A title is shown in every message; a longer one from a confused caller is cut.
constexpr size_t kMaxTitle = 80;

// Text for stderr: control bytes of a hostile name must not drive the terminal.
std::string Printable(std::string_view text, size_t limit = std::string_view::npos) {
  std::string out(text.substr(0, limit));
  for (char& c : out)
    if (static_cast<unsigned char>(c) < 0x20 || c == 0x7f) c = '?';
  return out;
}

// The components of a path that name something: empty ones (doubled separators) and "." drop out.
std::vector<std::string_view> Components(std::string_view path) {
  std::vector<std::string_view> parts;
  while (!path.empty()) {
    size_t end = std::min(path.find('/'), path.size());
    std::string_view part = path.substr(0, end);
    if (!part.empty() && part != ".") parts.push_back(part);
    path.remove_prefix(std::min(end + 1, path.size()));
  }
  return parts;
}

}  // namespace

RkFd& RkFd::operator=(RkFd&& other) noexcept {
  if (this != &other) reset(other.release());
  return *this;
}

int RkFd::release() noexcept {
  int fd = fd_;
  fd_ = -1;
  return fd;
}

void RkFd::reset(int fd) noexcept {
  if (fd_ >= 0) close(fd_);
  fd_ = fd;
}

RkWiper::RkWiper(std::string_view title)
    : title_(Printable(title, kMaxTitle)), zeros_(new char[kBlockSize]()) {}

std::string RkWiper::SystemPath(std::string_view entry, std::string& why) {
  why.clear();
  if (entry.find('\0') != std::string_view::npos) {
    why = "a NUL byte in it";
    return {};
  }
  std::string path(entry);
  if (entry.find('\\') != std::string_view::npos) {
    // The libraries' form. Their strings are UTF-16, so a name that is not valid UTF-8 would come
    // back changed and could name some other file: such an entry is refused, not converted.
    RkLib::FidString fid = RkLib::FidString::FromPosix(entry);
    std::string expected(entry);
    std::replace(expected.begin(), expected.end(), '/', '\\');
    if (fid.toUtf8() != expected) {
      why = "not valid UTF-8";
      return {};
    }
    path = fid.ToPosix();
  }
  // The viewer always lists full paths; a relative one would depend on wherever the launcher
  // happened to stand, and in a damaged list could hit anything there.
  if (path.empty() || path.front() != '/') {
    why = "not a full path";
    return {};
  }
  std::vector<std::string_view> parts = Components(path);
  if (parts.empty()) {
    why = "the root is never removed";
    return {};
  }
  if (std::find(parts.begin(), parts.end(), "..") != parts.end()) {
    why = "\"..\" could leave the listed path";
    return {};
  }
  return path;
}

bool RkWiper::IsFolderEntry(std::string_view entry) noexcept {
  return !entry.empty() && (entry.back() == '/' || entry.back() == '\\');
}

void RkWiper::note(std::string_view what, std::string_view path, int error) const {
  std::string line = "RkWipe64";
  if (!title_.empty()) line += " (" + title_ + ")";
  line += ": ";
  line += what;
  if (!path.empty()) line += ": " + Printable(path, 512);
  if (error != 0) line += std::string(": ") + std::strerror(error);
  line += '\n';
  // One write per message, so that lines from a detached wiper and its host do not interleave.
  std::fwrite(line.data(), 1, line.size(), stderr);
}

void RkWiper::fail(std::string_view what, std::string_view path, int error) {
  ++failures_;
  note(what, path, error);
}

// Opens the folder that holds the last component of `path`, walking from the root one component
// at a time, each opened relative to the folder before it with O_NOFOLLOW | O_DIRECTORY. The
// kernel thus never resolves a symbolic link for us, and a folder that is swapped for a link after
// we entered it changes nothing: we hold the folder itself, not its name. A link anywhere on the
// way is refused, not judged, also one that the system set up: following "trusted" links would
// mean knowing who may replace each of them, and the viewer lists the real path of its folder.
RkWiper::Reach RkWiper::openParent(const std::string& path, RkFd& parent, std::string& name) {
  RkFd folder(open("/", O_PATH | O_DIRECTORY | O_CLOEXEC));
  if (!folder) {
    fail("cannot open the root folder", "", errno);
    return Reach::kRefused;
  }
  std::vector<std::string_view> parts = Components(path);
  for (size_t i = 0; i + 1 < parts.size(); ++i) {
    std::string part(parts[i]);
    RkFd next(openat(folder.get(), part.c_str(), O_PATH | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    if (next) {
      folder = std::move(next);
      continue;
    }
    int error = errno;
    std::string_view reached(path.data(),
                             static_cast<size_t>(parts[i].data() + parts[i].size() - path.data()));
    if (error == ENOENT) return Reach::kMissing;
    if (error == ENOTDIR || error == ELOOP) {
      struct stat st;
      if (fstatat(folder.get(), part.c_str(), &st, AT_SYMLINK_NOFOLLOW) == 0 && S_ISLNK(st.st_mode)) {
        fail("refused, a symbolic link on the way is never followed", reached);
        return Reach::kRefused;
      }
      return Reach::kMissing;  // a file where a folder should be: nothing can lie below it
    }
    fail("cannot enter", reached, error);
    return Reach::kRefused;
  }
  parent = std::move(folder);
  name = std::string(parts.back());
  return Reach::kFound;
}

// Zeros over the file's whole length before its name goes, so that its blocks no longer hold the
// content. The descriptor is checked, not the name examined before, since the name may have
// changed in between. Only a file of ours with no other name is written: a second name, or
// another owner, means someone else still uses these bytes, and destroying them is not our
// business; such a file only loses the name that was listed.
void RkWiper::overwrite(int parent, const std::string& name, const std::string& path) {
  // O_NONBLOCK: a FIFO swapped in after the check fails at once instead of waiting for a reader.
  RkFd file(openat(parent, name.c_str(), O_WRONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
  if (!file) {
    note("cannot overwrite, deleting only", path, errno);
    return;
  }
  struct stat st;
  if (fstat(file.get(), &st) != 0 || !S_ISREG(st.st_mode)) return;
  if (st.st_uid != geteuid() || st.st_nlink != 1) {
    note("not overwritten, the file has another owner or another name; deleting only", path);
    return;
  }
  off_t done = 0;
  while (done < st.st_size) {
    size_t block = static_cast<size_t>(std::min<off_t>(st.st_size - done, static_cast<off_t>(kBlockSize)));
    ssize_t written = pwrite(file.get(), zeros_.get(), block, done);
    if (written < 0 && errno == EINTR) continue;
    if (written <= 0) {
      note("overwriting stopped, deleting anyway", path, written < 0 ? errno : 0);
      return;
    }
    done += written;
  }
  if (fsync(file.get()) != 0) note("the zeros may not have reached the disk", path, errno);
  if (close(file.release()) != 0) note("the zeros may not have reached the disk", path, errno);
}

// Resolves a listed entry to its folder, held open, and what lies there under its name; false
// when there is nothing to do (already gone) or it was refused, which is then reported.
bool RkWiper::reach(std::string_view entry, RkFd& parent, std::string& name, std::string& path,
                    struct stat& st) {
  std::string why;
  path = SystemPath(entry, why);
  if (path.empty()) {
    fail("skipped, " + why, entry);
    return false;
  }
  if (openParent(path, parent, name) != Reach::kFound) return false;
  if (fstatat(parent.get(), name.c_str(), &st, AT_SYMLINK_NOFOLLOW) != 0) {
    if (errno != ENOENT) fail("cannot examine", path, errno);
    return false;
  }
  return true;
}

void RkWiper::wipeFile(std::string_view entry) {
  RkFd parent;
  std::string name, path;
  struct stat st;
  if (!reach(entry, parent, name, path, st)) return;
  if (S_ISDIR(st.st_mode)) {
    fail("kept, a folder is removed only when listed with a separator at its end", path);
    return;
  }
  if (S_ISREG(st.st_mode)) overwrite(parent.get(), name, path);
  if (unlinkat(parent.get(), name.c_str(), 0) != 0 && errno != ENOENT) fail("cannot delete", path, errno);
}

void RkWiper::removeEmptySubfolders(int folder, int depth) {
  std::unique_ptr<DIR, int (*)(DIR*)> dir(fdopendir(folder), closedir);
  if (!dir) {
    close(folder);
    return;
  }
  int at = dirfd(dir.get());
  // Entries removed while reading are simply not seen again; Linux keeps the walk valid.
  while (const dirent* entry = readdir(dir.get())) {
    std::string_view name = entry->d_name;
    if (name == "." || name == "..") continue;
    bool isFolder = entry->d_type == DT_DIR;
    if (entry->d_type == DT_UNKNOWN) {
      struct stat st;
      isFolder = fstatat(at, entry->d_name, &st, AT_SYMLINK_NOFOLLOW) == 0 && S_ISDIR(st.st_mode);
    }
    if (!isFolder) continue;
    if (depth + 1 < kMaxFolderDepth) {
      int sub = openat(at, entry->d_name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
      if (sub >= 0) removeEmptySubfolders(sub, depth + 1);
    }
    unlinkat(at, entry->d_name, AT_REMOVEDIR);  // fails, as it should, while anything is left inside
  }
}

void RkWiper::removeFolder(std::string_view entry) {
  RkFd parent;
  std::string name, path;
  struct stat st;
  if (!reach(entry, parent, name, path, st)) return;
  if (!S_ISDIR(st.st_mode)) {
    fail(S_ISLNK(st.st_mode) ? "kept, a symbolic link is not a folder" : "kept, not a folder", path);
    return;
  }
  int folder = openat(parent.get(), name.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
  if (folder >= 0) removeEmptySubfolders(folder, 0);
  if (unlinkat(parent.get(), name.c_str(), AT_REMOVEDIR) == 0 || errno == ENOENT) return;
  if (errno == ENOTEMPTY || errno == EEXIST)
    fail("kept, the folder still holds something that was not listed", path);
  else
    fail("cannot remove", path, errno);
}

}  // namespace RkWipe
