// Every zip of the corpus, loaded in full and held against python3's zipfile reading of the same
// file: entry count, sizes, CRC, method, encryption flag, local offset, comments and the plain
// names. Where the two readers may rightly disagree the file is listed below with the reason; a
// listed file that stops disagreeing fails too, so that the list stays true.
#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <map>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

#include "RkArcCallback.h"
#include "RkArcTestUtil.h"
#include "RkState.h"
#include "RkZipDirReader.h"
#include "RkZipEntry.h"
#include "RkZipFile.h"

using namespace RkArcLib;
using RkArcTest::ScratchFolder;
using RkLib::FidString;
using RkLib::RkString;

namespace {

// One line per archive ("A ok count comment" or "A error text"), then one line per entry. Byte
// strings go as hex, "-" for none, so that no name can break the line format.
constexpr std::string_view kLister = R"PY(
import sys, zipfile, binascii
def hx(b): return binascii.hexlify(b).decode() or "-"
for line in open(sys.argv[1], encoding="utf-8"):
    path = line.rstrip("\n")
    if not path: continue
    try:
        with zipfile.ZipFile(path) as z:
            infos = z.infolist()
            out = ["A\tok\t%d\t%s" % (len(infos), hx(z.comment))]
            for i in infos:
                raw = i.orig_filename
                plain = all(0x20 <= ord(c) < 0x7f for c in raw)
                out.append("E\t%d\t%d\t%d\t%d\t%d\t%d\t%d\t%s\t%s" % (
                    i.file_size, i.compress_size, i.CRC, i.compress_type, i.flag_bits & 1,
                    1 if i.is_dir() else 0, i.header_offset,
                    hx(raw.encode("ascii")) if plain else "-", hx(i.comment)))
            print("\n".join(out))
    except Exception as e:
        print("A\terror\t%s" % ("%s: %s" % (type(e).__name__, e)).replace("\t", " ").replace("\n", " "))
    sys.stdout.flush()
)PY";

struct RefEntry {
  uint64_t size = 0, compressedSize = 0, offset = 0;
  uint32_t crc = 0, method = 0;
  bool encrypted = false, directory = false;
  bool plainName = false;  // printable ASCII, as stored
  std::string name, comment;
};

struct RefArchive {
  bool ok = false;
  std::string error;
  std::string comment;
  std::vector<RefEntry> entries;
};

std::string FromHex(const std::string& hex) {
  if (hex == "-") return {};
  std::string out;
  for (size_t i = 0; i + 1 < hex.size(); i += 2) {
    out.push_back(static_cast<char>(std::stoi(hex.substr(i, 2), nullptr, 16)));
  }
  return out;
}

std::vector<std::string> Fields(const std::string& line) {
  std::vector<std::string> f;
  std::stringstream in(line);
  std::string part;
  while (std::getline(in, part, '\t')) f.push_back(part);
  return f;
}

bool HavePython() { return std::system("python3 -c 'import zipfile' >/dev/null 2>&1") == 0; }

// Runs one python3 for the whole set; the result has one slot per file, in order.
std::vector<RefArchive> ReadWithPython(const std::vector<std::filesystem::path>& files) {
  ScratchFolder dir;
  dir.Write("lister.py", kLister);
  std::string list;
  for (const auto& f : files) list += f.string() + "\n";
  dir.Write("files.txt", list);
  const std::string command = "python3 '" + dir.path() + "/lister.py' '" + dir.path() + "/files.txt'";
  std::vector<RefArchive> result;
  FILE* pipe = ::popen(command.c_str(), "r");
  if (!pipe) return result;
  std::string text;
  char buffer[65536];
  size_t n;
  while ((n = std::fread(buffer, 1, sizeof buffer, pipe)) > 0) text.append(buffer, n);
  ::pclose(pipe);
  std::stringstream lines(text);
  std::string line;
  while (std::getline(lines, line)) {
    const std::vector<std::string> f = Fields(line);
    if (f.size() >= 3 && f[0] == "A") {
      RefArchive a;
      a.ok = f[1] == "ok";
      if (a.ok && f.size() >= 4) {
        a.comment = FromHex(f[3]);
      } else {
        a.error = f[2];
      }
      result.push_back(std::move(a));
    } else if (f.size() == 10 && f[0] == "E" && !result.empty()) {
      RefEntry e;
      e.size = std::stoull(f[1]);
      e.compressedSize = std::stoull(f[2]);
      e.crc = static_cast<uint32_t>(std::stoul(f[3]));
      e.method = static_cast<uint32_t>(std::stoul(f[4]));
      e.encrypted = f[5] == "1";
      e.directory = f[6] == "1";
      e.offset = std::stoull(f[7]);
      e.plainName = f[8] != "-";
      e.name = FromHex(f[8]);
      e.comment = FromHex(f[9]);
      result.back().entries.push_back(std::move(e));
    }
  }
  return result;
}

// Whether the loader keeps a name as it is stored, but for '\' between the parts: it takes away
// roots, drives, "." and ".." parts and doubled separators, and shortens long names.
bool NameKeptAsStored(std::string name) {
  std::replace(name.begin(), name.end(), '\\', '/');
  if (name.empty() || name.size() > 256 || name[0] == '/') return false;
  if (name.size() >= 2 && name[1] == ':' && std::isalpha(static_cast<unsigned char>(name[0]))) return false;
  size_t at = 0;
  while (at <= name.size()) {
    size_t end = name.find('/', at);
    if (end == std::string::npos) end = name.size();
    const std::string part = name.substr(at, end - at);
    if (part == "." || part == ".." || (part.empty() && end != name.size())) return false;
    if (end == name.size()) break;
    at = end + 1;
  }
  return true;
}

std::string Slashed(const RkString& name) {
  std::string s = name.toUtf8();
  std::replace(s.begin(), s.end(), '\\', '/');
  return s;
}

class Collector : public RkArcCallback {
 public:
  bool ReportMessage(uint32_t level, const RkString& text) override {
    messages += "[" + std::to_string(level) + "] " + text.toUtf8() + "; ";
    return true;
  }
  std::string messages;
};

struct Outcome {
  std::string difference;  // empty when the two agree
  uint32_t code = 0;       // of our load, 0 when it went through
  size_t entries = 0, names = 0;  // compared
};

Outcome Compare(const std::filesystem::path& file, const RefArchive& ref) {
  Outcome out;
  Collector callback;
  RkZipFile zip(FidString::FromPosix(file.string()));
  zip.SetCallback(&callback);
  RkState state;
  const bool ok = zip.Load(0, -1, nullptr, state);
  const bool refused = !ok && state.IsFatalToLoad();
  out.code = ok ? 0 : state.code;
  std::ostringstream why;
  if (!ref.ok) {
    if (!refused) why << "python refuses (" << ref.error << "), we list " << zip.GetItemCount() << " entries";
    out.difference = why.str();
    return out;
  }
  if (!ok || !zip.IsLoaded()) {
    why << "python lists " << ref.entries.size() << " entries, we fail with code " << state.code << " severity "
        << state.severity << " (" << callback.messages << ")";
    out.difference = why.str();
    return out;
  }
  if (static_cast<size_t>(zip.GetItemCount()) != ref.entries.size()) {
    why << "count: python " << ref.entries.size() << ", we " << zip.GetItemCount() << "; ";
  }
  if (zip.EndRecord().rawComment != ref.comment) why << "archive comment differs; ";
  const size_t count = std::min(ref.entries.size(), static_cast<size_t>(zip.GetItemCount()));
  int shown = 0;
  for (size_t i = 0; i < count && shown < 4; ++i) {
    const RefEntry& r = ref.entries[i];
    const RkZipEntry* e = zip.Entry(static_cast<int64_t>(i));
    if (!e) {
      why << "entry " << i << " not loaded; ";
      ++shown;
      continue;
    }
    ++out.entries;
    std::ostringstream d;
    if (e->originalSize64 != r.size) d << " size " << r.size << "/" << e->originalSize64;
    if (e->compressedSize64 != r.compressedSize) d << " packed " << r.compressedSize << "/" << e->compressedSize64;
    if (e->crc != r.crc) d << " crc " << r.crc << "/" << e->crc;
    if (e->method != r.method) d << " method " << r.method << "/" << e->method;
    if (e->IsEncrypted() != r.encrypted) d << " encrypted " << r.encrypted << "/" << e->IsEncrypted();
    if (e->localOffset64 != r.offset) d << " offset " << r.offset << "/" << e->localOffset64;
    if (r.directory && !e->IsDirectory()) d << " not a directory";
    const std::string comment = e->detail() ? e->detail()->rawComment : std::string();
    if (comment != r.comment) d << " comment";
    if (r.plainName && !e->hasUnicodeName && NameKeptAsStored(r.name)) {
      std::string expected = r.name;
      std::replace(expected.begin(), expected.end(), '\\', '/');
      ++out.names;
      if (Slashed(e->name) != expected) d << " name '" << r.name << "'/'" << Slashed(e->name) << "'";
    }
    if (!d.str().empty()) {
      why << "entry " << i << " (python/we):" << d.str() << "; ";
      ++shown;
    }
  }
  out.difference = why.str();
  return out;
}

// Files on which the two readers disagree by design: the reason, and the code our load ends with
// (0 when it goes through).
struct Known {
  const char* reason;
  uint32_t code;
};

const std::map<std::string, Known>& KnownDifferences() {
  constexpr const char* kShifted =
      "bytes stand before the zip and its offsets were not moved: python adds the shift that the "
      "directory size implies, we take offsets as written and refuse the file";
  static const std::map<std::string, Known> known = {
      {"commons-compress/zip/COMPRESS-379.jar",
       {"META-INF/maven/ comes from a Unix host with mode 0xFFFF: for a Unix host the mode's type "
        "decides, not the trailing '/', so it is no directory",
        0}},
      {"libarchive/zip/test_read_format_zip_nofiletype.zip",
       {"dir2/ comes from a Unix host with mode 0755 and no type bits: for a Unix host the mode's "
        "type decides, not the trailing '/', so it is no directory",
        0}},
      {"commons-compress/zip/COMPRESS-621.zip", {kShifted, kZipErrNotZip}},
      {"go-zip/test-prefix.zip", {kShifted, kZipErrNotZip}},
      {"libarchive/zip/test_read_format_zip_padded1.zip", {kShifted, kZipErrNotZip}},
      {"libarchive/zip/test_read_format_zip_padded3.zip", {kShifted, kZipErrNotZip}},
      {"commons-compress/zip/bla-stored-dd.zip",
       {"the end record's directory offset is 16 short of the directory (descriptors were added "
        "without moving it): python shifts by what the size implies, we refuse",
        kZipErrNotZip}},
      {"commons-compress/zip/bla-stored-dd-nosig.zip",
       {"directory offset 16 short of the directory, as bla-stored-dd.zip", kZipErrNotZip}},
      {"commons-compress/zip/bla-stored-dd-sizes-differ.zip",
       {"directory offset 16 short of the directory, as bla-stored-dd.zip", kZipErrNotZip}},
      {"commons-compress/zip/bla-stored-dd-contradicts-actualsize.zip",
       {"directory offset 16 short of the directory, as bla-stored-dd.zip", kZipErrNotZip}},
      {"go-zip/test-baddirsz.zip",
       {"the end record's directory size is 16 short: python reads by the size and fails on the cut "
        "record, we walk by offset and count and list both entries",
        0}},
      {"go-zip/test-badbase.zip",
       {"the end record's directory size is 78 short: python derives a base shift from it, lists "
        "only the last record and shifts its offset; we walk by offset and count and list both",
        0}},
      {"commons-compress/zip/split/split_zip_created_by_zip/split_zip_created_by_zip_zip64.zip",
       {"last part of a spanned zip64 set, which python refuses; we read the set through its "
        ".z01/.z02 parts (SplitSetsListLikeTheirUnsplitTwins checks the listing)",
        0}},
  };
  return known;
}

bool IsZipLike(const std::filesystem::path& p) {
  std::string ext = p.extension().string();
  std::transform(ext.begin(), ext.end(), ext.begin(), [](unsigned char c) { return std::tolower(c); });
  return ext == ".zip" || ext == ".jar" || ext == ".zipx";
}

TEST(RkZipCorpusTest, LoaderAgreesWithPythonZipfileOrTheDifferenceIsKnown) {
  const std::filesystem::path corpus = RK_CORPUS_DIR;
  if (!std::filesystem::is_directory(corpus)) GTEST_SKIP() << "no test corpus at " << corpus;
  if (!HavePython()) GTEST_SKIP() << "python3 with zipfile is not installed";
  std::vector<std::filesystem::path> files;
  for (const auto& item : std::filesystem::recursive_directory_iterator(corpus)) {
    if (item.is_regular_file() && IsZipLike(item.path())) files.push_back(item.path());
  }
  std::sort(files.begin(), files.end());
  ASSERT_FALSE(files.empty()) << "no zip in the corpus at " << corpus;
  const std::vector<RefArchive> refs = ReadWithPython(files);
  ASSERT_EQ(refs.size(), files.size()) << "python3 did not answer for every file";

  const auto& known = KnownDifferences();
  size_t agreed = 0, listed = 0, entries = 0, names = 0;
  std::map<std::string, bool> seen;
  for (size_t i = 0; i < files.size(); ++i) {
    const std::string relative = std::filesystem::relative(files[i], corpus).generic_string();
    const Outcome outcome = Compare(files[i], refs[i]);
    entries += outcome.entries;
    names += outcome.names;
    const auto entry = known.find(relative);
    if (entry == known.end()) {
      if (outcome.difference.empty()) {
        ++agreed;
      } else {
        ADD_FAILURE() << relative << ": " << outcome.difference;
      }
      continue;
    }
    seen[relative] = true;
    const Known& k = entry->second;
    if (outcome.difference.empty()) {
      ADD_FAILURE() << relative << " is listed as differing (" << k.reason << ") but agrees";
    } else if (outcome.code != k.code) {
      ADD_FAILURE() << relative << ": our load ends with code " << outcome.code << ", listed " << k.code << ": "
                    << outcome.difference;
    } else {
      ++listed;
      std::cout << "[ differs  ] " << relative << ": " << k.reason << "\n             " << outcome.difference
                << "\n";
    }
  }
  for (const auto& [path, k] : known) {
    if (!seen.count(path)) ADD_FAILURE() << "listed file not in the corpus: " << path;
  }
  std::cout << "[ corpus   ] " << files.size() << " zips: " << agreed << " agree, " << listed
            << " differ as listed; " << entries << " entries and " << names << " names compared\n";
  EXPECT_GT(names, 1000u);
}

// A spanned set loads through its parts and lists what the same files zipped in one piece list.
TEST(RkZipCorpusTest, SplitSetsListLikeTheirUnsplitTwins) {
  const std::filesystem::path corpus = RK_CORPUS_DIR;
  if (!std::filesystem::is_directory(corpus)) GTEST_SKIP() << "no test corpus at " << corpus;
  const struct {
    const char* split;
    const char* whole;
  } sets[] = {
      {"split_zip_created_by_zip/split_zip_created_by_zip.zip",
       "split_zip_created_by_zip/zip_to_compare_created_by_zip.zip"},
      {"split_zip_created_by_zip/split_zip_created_by_zip_zip64.zip",
       "split_zip_created_by_zip/zip_to_compare_created_by_zip_zip64.zip"},
      {"split_zip_created_by_winrar/split_zip_created_by_winrar.zip",
       "split_zip_created_by_winrar/zip_to_compare_created_by_winrar.zip"},
  };
  const std::filesystem::path folder = corpus / "commons-compress/zip/split";
  for (const auto& s : sets) {
    RkZipFile split(FidString::FromPosix((folder / s.split).string()));
    RkZipFile whole(FidString::FromPosix((folder / s.whole).string()));
    RkState state;
    ASSERT_TRUE(split.Load(0, -1, nullptr, state)) << s.split << " code " << state.code;
    ASSERT_TRUE(whole.Load(0, -1, nullptr, state)) << s.whole << " code " << state.code;
    ASSERT_EQ(split.GetItemCount(), whole.GetItemCount()) << s.split;
    EXPECT_GT(split.GetItemCount(), 1) << s.split;
    for (int64_t i = 0; i < split.GetItemCount(); ++i) {
      const RkZipEntry* a = split.Entry(i);
      const RkZipEntry* b = whole.Entry(i);
      ASSERT_TRUE(a && b) << s.split << " entry " << i;
      EXPECT_EQ(a->name, b->name) << s.split << " entry " << i;
      EXPECT_EQ(a->originalSize64, b->originalSize64) << s.split << " " << a->name.toUtf8();
      EXPECT_EQ(a->crc, b->crc) << s.split << " " << a->name.toUtf8();
      EXPECT_EQ(a->method, b->method) << s.split << " " << a->name.toUtf8();
    }
  }
}

}  // namespace
