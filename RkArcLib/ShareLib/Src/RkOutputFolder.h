// RkOutputFolder: the folder that an extraction writes into, and the only way it writes there.
//
// Every path below the base is walked one part at a time with descriptors, folders made where
// missing, and no symbolic link followed on the way: a link planted in the target folder, or a
// name that climbs out of it, can never carry a write elsewhere. Names come in the archive's
// form, parts between '\' or '/'; "." and ".." parts are refused, as is a rooted name.
#pragma once

#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <unordered_map>

#include "RkFid.h"

namespace RkArcLib {

// An open folder below the base, shared by the items that write into it.
class RkFolderHandle {
 public:
  explicit RkFolderHandle(int fd) : fd_(fd) {}
  RkFolderHandle(const RkFolderHandle&) = delete;
  RkFolderHandle& operator=(const RkFolderHandle&) = delete;
  ~RkFolderHandle();
  int fd() const { return fd_; }

 private:
  int fd_;
};

class RkOutputFolder {
 public:
  // Opens the base, making it (and its parents) when missing. 0 or the system's error number.
  int Open(const RkLib::FidString& base);
  const RkLib::FidString& Base() const { return base_; }

  // The folder that holds `name`'s last part, made where missing, and that last part in the
  // system's form. Null with the system's error number when a part is a file, a link, "." or
  // "..". Safe from several threads.
  std::shared_ptr<RkFolderHandle> ParentOf(std::u16string_view name, std::string& lastPart, int& error);
  // Makes the folder `name` and those above it. 0 or the system's error number.
  int MakeFolder(std::u16string_view name);

 private:
  std::shared_ptr<RkFolderHandle> Walk(std::u16string_view folder, int& error);

  RkLib::FidString base_;
  std::mutex mutex_;
  // Folders already walked, by their path below the base in the system's form.
  std::unordered_map<std::string, std::shared_ptr<RkFolderHandle>> folders_;
};

}  // namespace RkArcLib
