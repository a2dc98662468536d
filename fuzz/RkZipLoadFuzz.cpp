// Arbitrary bytes as an archive file: the factory's content tests decide a type, then the zip
// directory reader finds the end records and walks every central record. Damage must end in one of
// our errors; a crash, a hang or an allocation sized by the input is the fault looked for.
#include <sys/mman.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include "RkArchiveFactory.h"
#include "RkArchiveType.h"
#include "RkError.h"
#include "RkFid.h"
#include "RkSpanIn.h"
#include "RkZipCharset.h"
#include "RkZipDirReader.h"

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

  auto span = std::make_shared<RkSpanIn>();
  if (!span->Open(path, 32768, 64)) return 0;
  RkZipDirReader reader(span, nullptr, kZipCharsetAuto);
  try {
    reader.Locate();
    uint64_t seen = 0;
    reader.Walk(0, -1, [&](uint64_t index, const RkZipRecord& record) {
      if (index != seen++ || record.name.empty()) __builtin_trap();
    });
    if (seen != reader.EndRecord().entriesTotal) __builtin_trap();
  } catch (const RkLib::RkError&) {
  }
  return 0;
}
