// Arbitrary bytes as an archive file: the factory's content tests decide a type, then the zip
// loader reads the end records and every central record, and every item is listed and looked up. Damage must end in one of
// our errors; a crash, a hang or an allocation sized by the input is the fault looked for.
#include <sys/mman.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include "RkArcItem.h"
#include "RkArchiveFactory.h"
#include "RkArchiveType.h"
#include "RkError.h"
#include "RkFid.h"
#include "RkZipFile.h"

using namespace RkArcLib;

namespace {

// The input as a file that needs no folder, so that runs in parallel cannot meet.
class MemoryFile {
 public:
  MemoryFile(const uint8_t* data, size_t size) : fd_(memfd_create("rkzipfuzz", 0)) {
    if (fd_ >= 0 && static_cast<size_t>(write(fd_, data, size)) != size) {
      close(fd_);
      fd_ = -1;
    }
  }
  ~MemoryFile() {
    if (fd_ >= 0) close(fd_);
  }
  bool ok() const { return fd_ >= 0; }
  RkLib::FidString Path() const {
    return RkLib::FidString::FromPosix("/proc/self/fd/" + std::to_string(fd_));
  }

 private:
  int fd_;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  MemoryFile file(data, size);
  if (!file.ok()) return 0;
  const RkLib::FidString path = file.Path();
  const int type = RkArchiveFactory::TestContent(path);
  if (type < 0 || type > kArcTypeLast) __builtin_trap();

  // The full load and listing, as a viewer does it.
  RkZipFile zip(path);
  RkState state;
  const bool loaded = zip.Load(0, -1, nullptr, state);
  if (loaded != (state.code == 0 || state.severity < 11)) {
    // Load's result and its state must agree on whether the archive can be used.
    if (loaded) __builtin_trap();
  }
  if (!zip.IsLoaded()) {
    if (zip.GetItemCount() != 0) __builtin_trap();
    return 0;
  }
  for (int64_t i = 0; i < zip.GetItemCount(); ++i) {
    RkArcItem item;
    if (!zip.GetItem(i, item, state)) __builtin_trap();
    // Names are relative paths that cannot climb out of the folder they are extracted to.
    const std::u16string_view name = item.name.view();
    const bool climbs = name == u".." || name.starts_with(u"..\\") || name.ends_with(u"\\..") ||
                        name.find(u"\\..\\") != std::u16string_view::npos;
    const bool drive = name.size() >= 2 && name[1] == u':' &&
                       ((name[0] >= u'A' && name[0] <= u'Z') || (name[0] >= u'a' && name[0] <= u'z'));
    const bool rooted = name.starts_with(u"\\") || drive;
    if (climbs || rooted || name.find(u'/') != std::u16string_view::npos) {
      __builtin_trap();
    }
    const int64_t found = zip.FindItem(item.name, state);
    if (found < 0 || found > i) __builtin_trap();
  }
  // A ranged load of the middle leaves the other slots empty and fills its own.
  const int64_t count = zip.GetItemCount();
  if (count > 2) {
    RkZipFile part(path);
    if (part.Load(1, 1, nullptr, state) && part.GetItemCount() != count) __builtin_trap();
  }
  return 0;
}
