// Arbitrary bytes as a zip file, loaded and every entry tested through the pipes; a small input is
// extracted as well, into a folder three levels down a per-process jail. Each entry must end
// sound or with its code: a crash, a hang, a leak, a failure without a code, a file larger than
// any size the archive declares, a symbolic link, or anything written beside the output folder
// is the fault looked for.
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <set>
#include <string>

#include "RkArcCallback.h"
#include "RkArcSelection.h"
#include "RkState.h"
#include "RkString.h"
#include "RkZipEntry.h"
#include "RkZipFile.h"

using namespace RkArcLib;
namespace fs = std::filesystem;

namespace {

// Extraction writes files, so only inputs up to this size are extracted.
constexpr size_t kExtractUpTo = 16 << 10;
// An entry that keeps the promise of its size costs time in proportion to it: beyond these sums
// of declared sizes a run would spend seconds decoding a valid bomb and find nothing.
constexpr uint64_t kTestUpTo = 256ull << 20;
constexpr uint64_t kExtractSizesUpTo = 16ull << 20;

// A host that lets every run go on to its end and replaces what stands in the way.
class Host : public RkArcCallback {
 public:
  bool ReportMessage(uint32_t, const RkLib::RkString&) override { return true; }
  int AskFileExists(const RkLib::FidString&, const RkArcItem&) override { return kArcExistsReplace; }
};

// The per-process places: the input file, and the output folder at the bottom of a chain of
// folders that must hold nothing but the next one. Removed at exit.
struct Places {
  Places() {
    std::string pattern = (fs::temp_directory_path() / "rkzipxfuzz-XXXXXX").string();
    if (!mkdtemp(pattern.data())) __builtin_trap();
    root = pattern;
    input = root / "input.zip";
    out = root / "a/b/c/out";
    fs::create_directories(out);
  }
  ~Places() {
    std::error_code ignored;
    fs::remove_all(root, ignored);
  }
  fs::path root, input, out;
};

Places& Here() {
  static Places places;
  return places;
}

// Nothing beside the chain down to the output folder, no link below it, and no file larger than
// the largest size an entry declares.
void CheckOutput(const Places& places, uint64_t largestSize) {
  for (fs::path folder = places.out.parent_path(), next = places.out;; next = folder, folder = folder.parent_path()) {
    for (const auto& item : fs::directory_iterator(folder)) {
      if (item.path() != next && item.path() != places.input) __builtin_trap();
    }
    if (folder == places.root) break;
  }
  for (const auto& item : fs::recursive_directory_iterator(places.out)) {
    struct stat st;
    if (::lstat(item.path().c_str(), &st) != 0 || S_ISLNK(st.st_mode)) __builtin_trap();
    if (S_ISREG(st.st_mode) && static_cast<uint64_t>(st.st_size) > largestSize) __builtin_trap();
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  Places& places = Here();
  FILE* file = std::fopen(places.input.c_str(), "wb");
  if (!file) __builtin_trap();
  const bool written = std::fwrite(data, 1, size, file) == size;
  if (std::fclose(file) != 0 || !written) __builtin_trap();

  Host host;
  RkZipFile zip(RkLib::FidString::FromPosix(places.input.string()));
  zip.SetCallback(&host);
  RkState state;
  zip.Load(0, -1, nullptr, state);
  if (!zip.IsLoaded()) return 0;
  uint64_t sum = 0, largest = 0;
  for (int64_t i = 0; i < zip.GetItemCount(); ++i) {
    if (const RkZipEntry* entry = zip.Entry(i)) {
      sum += std::min<uint64_t>(entry->originalSize64, kTestUpTo);
      largest = std::max<uint64_t>(largest, entry->originalSize64);
    }
  }
  if (sum >= kTestUpTo) return 0;

  RkArcSelection all(zip.GetSupportInfo());
  // A run that fails says why.
  if (!zip.Test(all, state) && state.code == 0) __builtin_trap();

  if (size > kExtractUpTo || sum > kExtractSizesUpTo) return 0;
  RkArcSelection into(zip.GetSupportInfo());
  into.SetBaseFolder(RkLib::FidString::FromPosix(places.out.string()));
  if (!zip.Extract(into, state) && state.code == 0) __builtin_trap();
  CheckOutput(places, largest);
  fs::remove_all(places.out);
  fs::create_directory(places.out);
  return 0;
}
