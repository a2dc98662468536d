// rkview: a small host of the viewer library. It opens a viewer record on an archive and a
// temporary folder, adds the names given, prints the collection in order with each document's
// kind, state and full path, shows the viewer (or says why it cannot), and closes again.
//
//   rkview ARCHIVE TEMP_FOLDER NAME...   names may carry a folder: "photos/a.jpg"
//   rkview --demo                        the same on a sample made in a fresh temporary folder
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>
#include <vector>

#include "RkViewerRecord.h"
#include "rkimgv64.h"

using RkImgVwr::RkDocCollection;
using RkImgVwr::RkSourceDocument;
using RkLib::FidString;
using RkLib::RkString;

namespace {

std::u16string Wide(const std::string& utf8) { return RkString::FromUtf8(utf8).str(); }
FidString Path(const std::string& utf8) { return FidString(RkString::FromUtf8(utf8)); }

std::string ErrorOf(RkViewerRecord* record) {
  char16_t text[1024];
  std::string description = get_error_description(record, text, 1024) ? RkString(text).toUtf8() : "?";
  return std::to_string(get_error_code(record)) + " (severity " + std::to_string(get_severity_code(record)) +
         "): " + description;
}

const char* StateOf(const RkSourceDocument& d) {
  if (d.getFailed()) return "failed";
  if (d.existsOnDisk()) return d.getExtracted() ? "extracted" : "ready";
  return "waiting";
}

void Print(const RkDocCollection& collection, const char* heading) {
  std::printf("%s\n", heading);
  for (size_t i = 0; i < collection.count(); ++i) {
    const RkSourceDocument& d = *collection.at(i);
    std::printf("  %2zu  %-5s  %-9s  %s%s\n", i, d.typeName().toUtf8().c_str(), StateOf(d),
                d.fullPath().ToPosix().c_str(), d.getStartHere() ? "  (start here)" : "");
  }
}

int Run(const std::string& archive, const std::string& folder, const std::vector<std::string>& names) {
  RkViewerRecord* record = nullptr;
  if (!open_viewer(Wide(archive).c_str(), Wide(folder).c_str(), 1, 0, 0, 0, &record)) {
    std::fprintf(stderr, "rkview: open_viewer failed: %s\n", record ? ErrorOf(record).c_str() : "no record");
    return 1;
  }
  for (const std::string& name : names) {
    FidString path = Path(name);
    std::u16string inFolder = path.GetFolder().str();
    if (!inFolder.empty()) inFolder.pop_back();
    const bool startHere = name == names.back();
    if (!add_item(record, inFolder.c_str(), path.GetName().c_str(), 0, 0, startHere))
      std::printf("add_item %s refused: %s\n", name.c_str(), ErrorOf(record).c_str());
  }
  RkDocCollection& collection = *record->collection;
  Print(collection, "collection, in the host's order:");

  // The window's first move: the start document, then on through the ones that are ready.
  collection.setNavigationContext(RkImgVwr::kNavigateNormal);
  bool isLast = false;
  std::printf("walk from the start document:\n");
  for (RkSourceDocument* d = collection.startDocument(isLast); d; d = collection.nextReady(d, isLast)) {
    std::printf("  shows %s\n", FidString(d->folderAndName()).ToPosix().c_str());
    if (isLast) break;
  }
  Print(collection, "after the walk:");
  std::printf("visible: %u of %zu\n", collection.visibleCount(), collection.count());

  if (!show_viewer(record, 0, 0, 0, 0, nullptr, 0))
    std::printf("show_viewer: %s\n", ErrorOf(record).c_str());
  close_viewer(record);
  struct stat st;
  std::printf("after close_viewer the temporary folder %s\n",
              stat(folder.c_str(), &st) == 0 ? "is still there (it holds files of the host's)" : "is gone");
  return 0;
}

// A sample: an archive file and two items already extracted by an earlier run, so that the walk
// has something ready and something it cannot produce yet.
int Demo() {
  const char* tmp = std::getenv("TMPDIR");
  std::string root = std::string(tmp && *tmp ? tmp : P_tmpdir) + "/rkview-demo-XXXXXX";
  if (!mkdtemp(root.data())) {
    std::perror("rkview: cannot make the demo folder");
    return 1;
  }
  const std::string archive = root + "/sample.zip";
  const std::string folder = root + "/extract";
  std::ofstream(archive) << "PK\x05\x06" << std::string(18, '\0');  // an empty zip
  mkdir(folder.c_str(), 0700);
  mkdir((folder + "/photos").c_str(), 0700);
  std::ofstream(folder + "/photos/beach.jpg") << "not really a jpeg";
  std::ofstream(folder + "/notes.txt") << "hello\n";
  std::printf("demo archive %s, temporary folder %s\n", archive.c_str(), folder.c_str());
  int status = Run(archive, folder, {"notes.txt", "photos/beach.jpg", "photos/missing.png", "README"});
  unlink((folder + "/photos/beach.jpg").c_str());
  unlink((folder + "/notes.txt").c_str());
  rmdir((folder + "/photos").c_str());
  rmdir(folder.c_str());
  unlink(archive.c_str());
  rmdir(root.c_str());
  return status;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc == 2 && std::string(argv[1]) == "--demo") return Demo();
  if (argc < 4) {
    std::fprintf(stderr, "usage: rkview ARCHIVE TEMP_FOLDER NAME...\n       rkview --demo\n");
    return 2;
  }
  return Run(argv[1], argv[2], std::vector<std::string>(argv + 3, argv + argc));
}
