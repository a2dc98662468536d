// rksum: prints, for every file below a folder, its size, modification time, CRC-32 and SHA-256,
// walking sub-folders but never following a symbolic link. Exit status 1 when any file could
// not be read.
#include <algorithm>
#include <cstdio>
#include <memory>
#include <vector>

#include "RkDigest.h"
#include "RkFid.h"
#include "RkFileIO.h"
#include "RkFindFile.h"
#include "RkTimeStamp.h"

using namespace RkLib;

namespace {

struct Digests {
  uint32_t crc = 0;
  uint8_t sha256[32] = {};
};

bool DigestFile(const FidString& path, Digests& out) {
  RkFileIO file;
  if (!file.Open(path, "rb")) return false;
  auto crc = RkDigestFunction::Create(kDigestCrc32);
  auto sha = RkDigestFunction::Create(kDigestSha256);
  crc->Reset();
  sha->Reset();
  std::vector<uint8_t> buffer(1 << 20);
  for (;;) {
    size_t n = file.Read(buffer.data(), buffer.size());
    if (n == 0) break;
    crc->Update(buffer.data(), n);
    sha->Update(buffer.data(), n);
  }
  if (file.LastError() != 0) return false;
  crc->Finish();
  sha->Final(out.sha256);
  out.crc = crc->GetValueWord();
  return true;
}

struct Entry {
  RkString name;
  bool folder;
  uint64_t size;
  RkTimeStamp modified;
  bool operator<(const Entry& o) const { return name < o.name; }
};

int Walk(const FidString& folder, const FidString& shownAs) {
  RkFindFile find;
  if (!find.Open(folder)) {
    std::fprintf(stderr, "rksum: cannot read folder %s (errno %d)\n", folder.ToPosix().c_str(), find.LastError());
    return 1;
  }
  // Sorted, so that two runs over the same tree print the same lines.
  std::vector<Entry> entries;
  while (find.Next())
    if (!find.IsLink()) entries.push_back({find.GetName(), find.IsFolder(), find.GetSize(), find.GetModified()});
  std::sort(entries.begin(), entries.end());
  int failures = 0;
  for (const Entry& e : entries) {
    FidString path(folder), shown(shownAs);
    path.Append(e.name.view());
    shown.Append(e.name.view());
    if (e.folder) {
      failures += Walk(path, shown);
      continue;
    }
    Digests d;
    if (!DigestFile(path, d)) {
      std::fprintf(stderr, "rksum: cannot read %s\n", path.ToPosix().c_str());
      ++failures;
      continue;
    }
    RkString when = RkFormatTimeStamp(e.modified, kDateStyleIso, kTimeStyleSeconds, kFormatLocalTime);
    std::printf("%08x  ", d.crc);
    for (uint8_t b : d.sha256) std::printf("%02x", b);
    std::printf("  %10llu  %-19s  %s\n", static_cast<unsigned long long>(e.size), when.toUtf8().c_str(),
                shown.ToPosix().c_str());
  }
  return failures;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fprintf(stderr, "usage: rksum FOLDER\n");
    return 2;
  }
  std::printf("%-8s  %-64s  %10s  %-19s  %s\n", "crc32", "sha256", "size", "modified", "file");
  return Walk(FidString::FromPosix(argv[1]), FidString()) == 0 ? 0 : 1;
}
