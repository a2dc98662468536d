// Path-level file operations, for code that holds a name and no open file: what lies at a path,
// and making, moving, copying and deleting files and folders.
//
// The operations that change something return 0 on success or the system error number of
// RkSystemError.h (2 not found, 3 a folder of the path is missing or not a folder, 5 access
// denied or the wrong kind of entry, 80 exists, 145 folder not empty, 1921 a link in the way ...),
// which a caller hands on as it is or turns into a code of its own.
//
// Nothing here that changes the file system acts through a symbolic link: deleting a link removes
// the link, removing a folder refuses a link to one, moving moves the link itself, and a copy reads
// through a link at its source but refuses one at its target. A trailing separator does not make
// a link count as its folder. The inquiries look at a link itself unless told to follow it.
#pragma once

#include <cstdint>

#include "RkFid.h"
#include "RkFindFile.h"
#include "RkTimeStamp.h"

namespace RkLib {

enum class RkLinks { kNotFollowed, kFollowed };
enum class RkReplace { kNo, kYes };

enum class RkPathKind { kFile, kFolder, kLink, kOther };

// What lies at a path, as RkFindFile reports an entry of a folder.
struct RkPathInfo {
  RkPathKind kind = RkPathKind::kOther;
  uint64_t size = 0;         // bytes of a file; 0 for anything else
  uint32_t attributes = 0;   // RkFileAttribute bits
  uint32_t permissions = 0;  // the POSIX permission bits, 07777 at most
  // Universal time; not set for a time beyond the calendar's year 9999.
  RkTimeStamp modified;
  RkTimeStamp accessed;
  RkTimeStamp statusChanged;
  int64_t modifiedNanoseconds = 0;  // since 1970, for callers that need no calendar
};

uint32_t RkGetPathInfo(const FidString& path, RkPathInfo& info, RkLinks links = RkLinks::kNotFollowed);
bool RkPathExists(const FidString& path, RkLinks links = RkLinks::kNotFollowed);
bool RkIsFolder(const FidString& path, RkLinks links = RkLinks::kNotFollowed);

// One folder, whose parent must exist; an existing one gives 80.
uint32_t RkMakeFolder(const FidString& path);
// A file or a link; a folder gives 5.
uint32_t RkDeleteFile(const FidString& path);
// An empty folder only: one with entries gives 145, a link to a folder 3.
uint32_t RkRemoveFolder(const FidString& path);
// Renames within one file system (17 across two: the caller may copy and delete). Without
// RkReplace::kYes an existing target gives 80 and neither name changes.
uint32_t RkMoveFile(const FidString& from, const FidString& to, RkReplace replace);
// Copies a file's bytes and modification time. A new target takes the source's permission bits
// less the umask; a replaced one keeps its own. Without RkReplace::kYes an existing target gives
// 80; a file copied onto itself gives 87 and is left whole. A target that could not be completed
// is removed again if the copy had made it.
uint32_t RkCopyFile(const FidString& from, const FidString& to, RkReplace replace);

}  // namespace RkLib
