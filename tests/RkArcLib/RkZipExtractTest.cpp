// Extraction and test of zips that real tools write: each method the decoders know, as zip, 7zz
// and python3 write it, extracted next to what unzip (or 7zz, for the methods unzip lacks) makes
// of the same archive; then the run's behaviour around one entry: bad CRCs, selections, existing
// files, encrypted and duplicate entries, cancel, and a zip64 entry past 4 GiB.
#include <gtest/gtest.h>

#include <cstdlib>
#include <sys/stat.h>
#include <sys/statvfs.h>

#include <cstdint>
#include <set>
#include <string>
#include <thread>

#include "RkArcTestUtil.h"
#include "RkExtractPoolGroup.h"
#include "RkZipEntry.h"
#include "RkZipRunUtil.h"

using namespace RkArcLib;
using namespace RkArcTest;
using RkLib::RkString;

namespace {

// Writes one archive of the tree in the current folder: ARCHIVE METHOD LEVEL STREAM. A stream
// that cannot seek makes zipfile write a data descriptor after each entry. Exit 3: this python
// cannot write the method.
constexpr std::string_view kPyZip = R"PY(
import os, sys, zipfile
archive, method, level, stream = sys.argv[1], sys.argv[2], int(sys.argv[3]), sys.argv[4] == "1"
methods = {"stored": zipfile.ZIP_STORED, "deflate": zipfile.ZIP_DEFLATED, "bzip2": zipfile.ZIP_BZIP2,
           "lzma": zipfile.ZIP_LZMA, "zstd": getattr(zipfile, "ZIP_ZSTANDARD", None)}
if methods[method] is None: sys.exit(3)
class Pipe:
    def __init__(self, f): self.f = f
    def write(self, b): return self.f.write(b)
    def flush(self): self.f.flush()
with open(archive, "wb") as f:
    with zipfile.ZipFile(Pipe(f) if stream else f, "w", methods[method], compresslevel=level or None) as z:
        for top, dirs, files in os.walk("."):
            dirs.sort()
            for name in dirs + sorted(files):
                path = os.path.join(top, name)[2:]
                z.write(path, path + "/" if name in dirs else path)
)PY";

// Archives of the single-purpose tests, made into the folder given first.
constexpr std::string_view kPyCases = R"PY(
import os, sys, warnings, zipfile
out, case = sys.argv[1], sys.argv[2]
path = os.path.join(out, case + ".zip")
if case == "badcrc":
    with zipfile.ZipFile(path, "w") as z:
        for n in range(5): z.writestr("e%d.txt" % n, bytes([65 + n]) * 1000)
    data = bytearray(open(path, "rb").read())
    data[data.find(b"C" * 1000) + 500] ^= 0x01
    open(path, "wb").write(data)
elif case == "dup":
    with warnings.catch_warnings():
        warnings.simplefilter("ignore")
        with zipfile.ZipFile(path, "w") as z:
            z.writestr("dup.txt", b"first")
            z.writestr("other.txt", b"between")
            z.writestr("DUP.txt", b"second one")
elif case == "samelast":
    with zipfile.ZipFile(path, "w") as z:
        z.writestr("a/x.txt", b"a")
        z.writestr("b/x.txt", b"b")
elif case == "empty":
    zipfile.ZipFile(path, "w").close()
elif case == "zip64":
    # 4 GiB + 1 stored zeros and an entry behind them; the zeros are holes in the file.
    ZERO = bytes(64 << 20)
    class Holes:
        def __init__(self, f): self.f = f
        def write(self, b):
            if b is ZERO:
                self.f.seek(len(b), 1)
                return len(b)
            return self.f.write(b)
        def tell(self): return self.f.tell()
        def seek(self, *a): return self.f.seek(*a)
        def flush(self): self.f.flush()
    with open(path, "wb") as f:
        with zipfile.ZipFile(Holes(f), "w") as z:
            with z.open("big", "w", force_zip64=True) as w:
                for _ in range(64): w.write(ZERO)
                w.write(b"\0")
            z.writestr("after.txt", b"tail")
)PY";

// A name as long as one part of a path may be.
const std::string kLongName = std::string(251, 'n') + ".txt";

// Bytes that are neither all alike nor all random, so that every method has work to do.
std::string Mixed(size_t size, uint32_t seed) {
  std::string s;
  s.reserve(size);
  uint32_t x = seed;
  while (s.size() < size) {
    x = x * 1103515245u + 12345u;
    if ((x >> 28) < 6) {
      s += "line " + std::to_string(s.size()) + " of some text that repeats\n";
    } else {
      for (int i = 0; i < 64; ++i) s.push_back(static_cast<char>((x = x * 1103515245u + 12345u) >> 24));
    }
  }
  s.resize(size);
  return s;
}

// The tree every method archive holds.
void MakeTree(const std::string& root) {
  namespace fs = std::filesystem;
  const auto put = [&](const std::string& name, const std::string& bytes) {
    fs::create_directories(fs::path(root + "/" + name).parent_path());
    std::ofstream(root + "/" + name, std::ios::binary) << bytes;
  };
  std::string text;
  for (int i = 1; i <= 30000; ++i) text += std::to_string(i) + " is a line of the text file\n";
  put("text.txt", text);
  put("mixed.bin", Mixed(1500000, 7));  // more than one bzip2 block
  put("zero.dat", "");
  put("a/b/c/deep.txt", "deep\n");
  put(kLongName, "long name\n");
  put("na\xC3\xAFve \xE6\x97\xA5\xE6\x9C\xAC.txt", "utf-8 name\n");
  put("tool.sh", "#!/bin/sh\necho tool\n");
  fs::permissions(root + "/tool.sh", fs::perms(0755));
  fs::create_directories(root + "/empty");
  fs::create_directories(root + "/a/b/empty-inner");
}

class RkZipExtractTest : public testing::Test {
 protected:
  static void SetUpTestSuite() {
    folder_ = new ScratchFolder();
    MakeTree(Src());
    folder_->Write("pyzip.py", kPyZip);
    folder_->Write("pycases.py", kPyCases);
  }
  static void TearDownTestSuite() {
    delete folder_;
    folder_ = nullptr;
  }
  static std::string Src() { return folder_->path() + "/src"; }
  // An archive of the tree by `command` (run in the tree, with $A the archive); "" when it failed.
  static std::string Archive(const std::string& command, int* status = nullptr) {
    const std::string archive = folder_->path() + "/" + std::to_string(++made_) + ".zip";
    const int rc = std::system(("cd " + Quote(Src()) + " && A=" + Quote(archive) +
                                " PY=" + Quote(folder_->path() + "/pyzip.py") + " && " + command)
                                   .c_str());
    if (status) *status = rc;
    return rc == 0 ? archive : std::string();
  }
  // One of the archives of kPyCases, fresh for each test.
  std::string Case(const std::string& name) {
    if (!Have("python3")) return {};
    if (!Shell("python3 " + Quote(folder_->path() + "/pycases.py") + " " + Quote(folder_->path()) + " " + name))
      return {};
    return folder_->path() + "/" + name + ".zip";
  }

  static ScratchFolder* folder_;
  static int made_;
};

ScratchFolder* RkZipExtractTest::folder_ = nullptr;
int RkZipExtractTest::made_ = 0;

// ---- Every method, as each tool writes it.

enum Reference { kUnzip, k7zz };

struct Recipe {
  const char* name;
  const char* tool;
  const char* command;
  Reference reference;
  uint32_t method;    // of text.txt
  uint16_t flagMask;  // and its flags under this mask
  uint16_t flagValue;
};

constexpr uint16_t kDescriptor = 0x0008, kEndMarker = 0x0002;

const Recipe kRecipes[] = {
    {"zip_stored", "zip", "zip -q -r -0 \"$A\" .", kUnzip, 0, kDescriptor, 0},
    {"zip_deflate_fast", "zip", "zip -q -r -1 \"$A\" .", kUnzip, 8, kDescriptor, 0},
    {"zip_deflate_best", "zip", "zip -q -r -9 \"$A\" .", kUnzip, 8, 0, 0},
    {"zip_bzip2", "zip", "zip -q -r -Z bzip2 \"$A\" .", kUnzip, 12, 0, 0},
    {"zip_to_pipe", "zip", "zip -q -r - . | cat > \"$A\"", kUnzip, 8, kDescriptor, kDescriptor},
    {"zip_from_stdin", "zip", "zip -q -r \"$A\" . && zip -q \"$A\" - < mixed.bin", kUnzip, 8, 0, 0},
    {"zip_forced_zip64", "zip", "zip -q -r -fz \"$A\" .", kUnzip, 8, 0, 0},
    {"7zz_copy", "7zz", "7zz a -tzip -mm=Copy \"$A\" . >/dev/null", kUnzip, 0, 0, 0},
    {"7zz_deflate", "7zz", "7zz a -tzip -mm=Deflate -mx=9 \"$A\" . >/dev/null", kUnzip, 8, 0, 0},
    {"7zz_deflate64", "7zz", "7zz a -tzip -mm=Deflate64 \"$A\" . >/dev/null", kUnzip, 9, 0, 0},
    {"7zz_bzip2", "7zz", "7zz a -tzip -mm=BZip2 \"$A\" . >/dev/null", kUnzip, 12, 0, 0},
    {"7zz_lzma_end_marker", "7zz", "7zz a -tzip -mm=LZMA \"$A\" . >/dev/null", k7zz, 14, kEndMarker, kEndMarker},
    {"7zz_lzma_sized", "7zz", "7zz a -tzip -mm=LZMA:eos=off \"$A\" . >/dev/null", k7zz, 14, kEndMarker, 0},
    {"7zz_ppmd", "7zz", "7zz a -tzip -mm=PPMd \"$A\" . >/dev/null", k7zz, 98, 0, 0},
    {"7zz_xz", "7zz", "7zz a -tzip -mm=XZ \"$A\" . >/dev/null", k7zz, 95, 0, 0},
    {"py_stored", "python3", "python3 \"$PY\" \"$A\" stored 0 0", kUnzip, 0, kDescriptor, 0},
    {"py_deflate_fast", "python3", "python3 \"$PY\" \"$A\" deflate 1 0", kUnzip, 8, 0, 0},
    {"py_deflate_stream", "python3", "python3 \"$PY\" \"$A\" deflate 9 1", kUnzip, 8, kDescriptor, kDescriptor},
    {"py_bzip2", "python3", "python3 \"$PY\" \"$A\" bzip2 9 0", kUnzip, 12, 0, 0},
    {"py_lzma", "python3", "python3 \"$PY\" \"$A\" lzma 0 0", k7zz, 14, kEndMarker, kEndMarker},
    {"py_lzma_stream", "python3", "python3 \"$PY\" \"$A\" lzma 0 1", k7zz, 14, kDescriptor, kDescriptor},
    {"py_zstd", "python3", "python3 \"$PY\" \"$A\" zstd 3 0", k7zz, 93, 0, 0},
};

class RkZipMethodTest : public RkZipExtractTest, public testing::WithParamInterface<Recipe> {};

TEST_P(RkZipMethodTest, ExtractsWhatTheReferenceToolDoes) {
  const Recipe& r = GetParam();
  const char* referenceTool = r.reference == kUnzip ? "unzip" : "7zz";
  if (!Have(r.tool) || !Have(referenceTool)) {
    GTEST_SKIP() << r.tool << " and " << referenceTool << " are needed";
  }
  int status = 0;
  const std::string archive = Archive(r.command, &status);
  if (WIFEXITED(status) && WEXITSTATUS(status) == 3) {
    GTEST_SKIP() << "no installed tool writes " << r.name;
  }
  ASSERT_FALSE(archive.empty()) << r.command;
  ScratchFolder out;
  const std::string want = out.path() + "/want", got = out.path() + "/got";
  ASSERT_TRUE(Shell(r.reference == kUnzip ? "unzip -o -q " + Quote(archive) + " -d " + Quote(want)
                                          : "7zz x -y -o" + Quote(want) + " " + Quote(archive) + " >/dev/null"));

  ZipRun run(archive);
  ASSERT_TRUE(run.loaded) << run.loadCode;
  RkState state;
  const RkZipEntry* text = run.zip->Entry(run.zip->FindItem(RkString(u"text.txt"), state));
  ASSERT_NE(text, nullptr);
  EXPECT_EQ(text->EffectiveMethod(), r.method) << "the tool wrote another method than wanted";
  EXPECT_EQ(text->flags & r.flagMask, r.flagValue);

  run.host.messages.clear();
  const bool tested = run.Run("");
  EXPECT_TRUE(tested) << run.state.code << "\n" << run.host.All();
  EXPECT_EQ(run.host.announced, run.zip->GetItemCount());
  ASSERT_TRUE(run.Run(got)) << run.state.code << "\n" << run.host.All();
  EXPECT_EQ(run.host.CountAt(RkLib::kSeveritySevere), 0u) << run.host.All();

  const Tree wanted = TreeOf(want, true);
  EXPECT_EQ(TreeDiff(wanted, TreeOf(got, true)), "");
  ASSERT_TRUE(wanted.count(kLongName));
  // Zip's own times have two seconds to the step; some tools keep finer ones in an extra field.
  for (const auto& [path, what] : wanted) {
    struct stat a, b;
    if (what.rfind("file", 0) != 0 || ::stat((want + "/" + path).c_str(), &a) != 0 ||
        ::stat((got + "/" + path).c_str(), &b) != 0)
      continue;
    EXPECT_LE(std::abs(static_cast<long long>(a.st_mtime) - b.st_mtime), 2) << path;
  }
}

INSTANTIATE_TEST_SUITE_P(Tools, RkZipMethodTest, testing::ValuesIn(kRecipes),
                         [](const testing::TestParamInfo<Recipe>& p) { return std::string(p.param.name); });

// ---- One entry's fault, and the run around it.

TEST_F(RkZipExtractTest, TestGoesOnPastABadCrcAndExtractDropsOnlyThatFile) {
  const std::string archive = Case("badcrc");
  if (archive.empty()) GTEST_SKIP() << "python3 is needed";
  if (Have("7zz")) {
    EXPECT_FALSE(Shell("7zz t " + Quote(archive) + " >/dev/null 2>&1")) << "the fixture is not bad";
  }
  ZipRun run(archive);
  ASSERT_TRUE(run.loaded);
  EXPECT_FALSE(run.Run(""));
  EXPECT_EQ(run.state.code, kZipErrCrc);
  EXPECT_EQ(run.state.severity, RkLib::kSeveritySevere);
  EXPECT_EQ(run.host.announced, 5);
  EXPECT_EQ(run.host.CountAt(RkLib::kSeveritySevere), 1u) << run.host.All();
  EXPECT_EQ(run.host.CountAt(0), 5u) << "four entries tested fine, and the end of the tests\n" << run.host.All();

  ZipRun extract(archive);
  ScratchFolder out;
  EXPECT_FALSE(extract.Run(out.path()));
  EXPECT_EQ(extract.state.code, kZipErrCrc);
  Tree want;
  for (char c : std::string("ABDE")) want["e" + std::to_string(c - 'A') + ".txt"] = "file " + std::string(1000, c);
  EXPECT_EQ(TreeDiff(want, TreeOf(out.path())), "");
}

// Failures name their entry, so that a person can tell which file is bad.
TEST_F(RkZipExtractTest, FailureMessagesNameTheEntry) {
  const std::string archive = Case("badcrc");
  if (archive.empty()) GTEST_SKIP() << "python3 is needed";
  ZipRun run(archive);
  ASSERT_TRUE(run.loaded);
  EXPECT_FALSE(run.Run(""));
  ASSERT_EQ(run.host.CountAt(RkLib::kSeveritySevere), 1u);
  for (const auto& [level, text] : run.host.messages) {
    if (level != RkLib::kSeveritySevere) continue;
    EXPECT_NE(text.find("e2.txt"), std::string::npos) << text;
  }
}

TEST_F(RkZipExtractTest, SelectionsExtractOnlyWhatTheyName) {
  if (!Have("zip")) GTEST_SKIP() << "zip is needed";
  const std::string archive = Archive("zip -q -r \"$A\" .");
  ASSERT_FALSE(archive.empty());
  const Tree all = TreeOf(Src());
  const struct {
    std::u16string item;
    bool wildcard;
    std::set<std::string> paths;
  } cases[] = {
      {u"a/b/c/deep.txt", false, {"a", "a/b", "a/b/c", "a/b/c/deep.txt"}},
      {u"A\\B\\C\\DEEP.TXT", false, {"a", "a/b", "a/b/c", "a/b/c/deep.txt"}},
      {u"t*.*", true, {"text.txt", "tool.sh"}},
      {u"a/*/c/*", true, {"a", "a/b", "a/b/c", "a/b/c/deep.txt"}},
      {u"empty/", false, {"empty"}},
  };
  for (const auto& c : cases) {
    ZipRun run(archive);
    ScratchFolder out;
    EXPECT_TRUE(run.Run(out.path(), [&](RkArcSelection& s) { s.AddItem(RkString(c.item), c.wildcard); }))
        << run.state.code;
    Tree want;
    for (const std::string& p : c.paths) want[p] = all.at(p);
    EXPECT_EQ(TreeDiff(want, TreeOf(out.path())), "") << RkString(c.item).toUtf8();
  }
  ZipRun none(archive);
  ScratchFolder out;
  EXPECT_FALSE(none.Run(out.path(), [](RkArcSelection& s) { s.AddItem(RkString(u"no such file"), false); }));
  EXPECT_EQ(none.state.code, kArcNoFilesSelected);
  EXPECT_EQ(none.state.severity, RkLib::kSeverityWarning);
  EXPECT_TRUE(TreeOf(out.path()).empty());
}

// In memory mode nothing touches the disk, and the caller gets the entry's exact bytes.
TEST_F(RkZipExtractTest, MemoryModeHandsOverTheBytesAndWritesNothing) {
  if (!Have("zip")) GTEST_SKIP() << "zip is needed";
  const std::string archive = Archive("zip -q -r \"$A\" .");
  ASSERT_FALSE(archive.empty());
  ZipRun run(archive);
  ScratchFolder out;
  EXPECT_TRUE(run.Run(out.path(), [](RkArcSelection& s) {
    s.AddItem(RkString(u"a/b/c/deep.txt"), false);
    s.toMemory = true;
  })) << run.state.code;
  const std::vector<uint8_t>& got = run.zip->MemoryOutput();
  EXPECT_EQ(std::string(got.begin(), got.end()), ReadFile(Src() + "/a/b/c/deep.txt"));
  EXPECT_TRUE(TreeOf(out.path()).empty());
}

TEST_F(RkZipExtractTest, JunkPathsPutsEveryFileInTheBase) {
  if (!Have("zip")) GTEST_SKIP() << "zip is needed";
  const std::string archive = Archive("zip -q -r \"$A\" . -x '*.bin'");
  ASSERT_FALSE(archive.empty());
  ZipRun run(archive);
  ScratchFolder out;
  ASSERT_TRUE(run.Run(out.path(), [](RkArcSelection& s) { s.SetJunkPaths(true); })) << run.state.code;
  Tree want;
  for (const auto& [path, what] : TreeOf(Src()))
    if (what != "dir" && path.find(".bin") == std::string::npos) want[path.substr(path.rfind('/') + 1)] = what;
  EXPECT_EQ(TreeDiff(want, TreeOf(out.path())), "");
}

TEST_F(RkZipExtractTest, ExistingFileIsKeptOrReplacedAsTheHostSays) {
  if (!Have("zip")) GTEST_SKIP() << "zip is needed";
  const std::string archive = Archive("zip -q \"$A\" text.txt tool.sh");
  ASSERT_FALSE(archive.empty());
  const std::string text = ReadFile(Src() + "/text.txt");
  const struct {
    int answer;
    bool replaced;
  } cases[] = {
      {kArcExistsReplace, true}, {kArcExistsSkip, false}, {kArcExistsReplaceAll, true}, {kArcExistsSkipAll, false}};
  for (const auto& c : cases) {
    ScratchFolder out;
    out.Write("text.txt", "older bytes");
    ZipRun run(archive);
    run.host.existsAnswer = c.answer;
    EXPECT_TRUE(run.Run(out.path())) << c.answer << ": " << run.state.code;
    EXPECT_EQ(run.host.existsAsked, 1) << c.answer;
    EXPECT_EQ(ReadFile(out.path() + "/text.txt"), c.replaced ? text : "older bytes") << c.answer;
    EXPECT_EQ(ReadFile(out.path() + "/tool.sh"), ReadFile(Src() + "/tool.sh")) << c.answer;
  }
}

TEST_F(RkZipExtractTest, EncryptedEntryIsRefusedAndThePlainOnesExtract) {
  if (!Have("zip")) GTEST_SKIP() << "zip is needed";
  const std::string archive = Archive("zip -q -P secret \"$A\" a/b/c/deep.txt && zip -q \"$A\" text.txt zero.dat");
  ASSERT_FALSE(archive.empty());
  ZipRun run(archive);
  ScratchFolder out;
  EXPECT_FALSE(run.Run(out.path()));
  EXPECT_EQ(run.state.code, kZipErrNoPassword);
  EXPECT_EQ(run.state.severity, RkLib::kSeverityWarning);
  EXPECT_EQ(run.host.CountAt(RkLib::kSeverityWarning), 1u) << run.host.All();
  const Tree got = TreeOf(out.path());
  EXPECT_EQ(got.count("a/b/c/deep.txt"), 0u);
  EXPECT_EQ(got.at("text.txt"), "file " + ReadFile(Src() + "/text.txt"));
  EXPECT_EQ(got.at("zero.dat"), "file ");
}

// Two entries that come to one output name: the second ends the run, the first stays. Names that
// differ only in case are one name, and so are those that only their folders told apart once the
// paths are dropped.
TEST_F(RkZipExtractTest, SameNameTwiceEndsTheRunAndKeepsTheFirst) {
  const struct {
    const char* archive;
    bool junkPaths;
    const char* name;
    const char* first;
  } cases[] = {{"dup", false, "dup.txt", "first"}, {"samelast", true, "x.txt", "a"}};
  bool firstLost = false;
  for (const auto& c : cases) {
    const std::string archive = Case(c.archive);
    if (archive.empty()) GTEST_SKIP() << "python3 is needed";
    ZipRun run(archive);
    ScratchFolder out;
    EXPECT_FALSE(run.Run(out.path(), [&](RkArcSelection& s) { s.SetJunkPaths(c.junkPaths); }));
    EXPECT_EQ(run.state.code, kZipErrSameName) << c.archive;
    EXPECT_EQ(run.state.severity, RkLib::kSeverityFatal) << c.archive;
    const Tree got = TreeOf(out.path());
    if (!got.count(c.name)) {
      firstLost = true;
    } else {
      EXPECT_EQ(got.at(c.name), std::string("file ") + c.first) << c.archive;
    }
    // A test writes nothing, so the names cannot clash.
    ZipRun test(archive);
    EXPECT_TRUE(test.Run("")) << c.archive << ": " << test.state.code;
  }
  EXPECT_FALSE(firstLost) << "the entries before a clash of names keep their files";
}

TEST_F(RkZipExtractTest, ArchiveWithoutEntriesSelectsNothing) {
  const std::string archive = Case("empty");
  if (archive.empty()) GTEST_SKIP() << "python3 is needed";
  ZipRun run(archive);
  ScratchFolder out;
  EXPECT_FALSE(run.Run(out.path()));
  EXPECT_EQ(run.state.code, kArcNoFilesSelected);
  EXPECT_TRUE(TreeOf(out.path()).empty());
}

TEST_F(RkZipExtractTest, CancelEndsALargeRunPromptlyAndLeavesNothing) {
  if (!Have("zip")) GTEST_SKIP() << "zip is needed";
  ScratchFolder in;
  ASSERT_TRUE(Shell("cd " + Quote(in.path()) +
                    " && truncate -s 200M zeros.dat && zip -q -1 big.zip zeros.dat && rm zeros.dat"));
  const int threads = ThreadCount();
  ZipRun run(in.path() + "/big.zip");
  ASSERT_TRUE(run.loaded);
  run.host.cancelAfter = 1;
  ScratchFolder out;
  EXPECT_FALSE(run.Run(out.path()));
  EXPECT_EQ(run.state.code, kArcCancelled);
  EXPECT_EQ(run.state.severity, RkLib::kSeverityFatal);
  EXPECT_LT(run.seconds, 3.0);
  EXPECT_GE(run.host.cancelPolls, 2);
  EXPECT_TRUE(TreeOf(out.path()).empty());
  // A thread that was joined may linger in /proc for a moment.
  for (int i = 0; i < 100 && ThreadCount() != threads; ++i) std::this_thread::sleep_for(std::chrono::milliseconds(10));
  EXPECT_EQ(ThreadCount(), threads);
}

// Zip64 sizes and offsets past 4 GiB. The archive is holes on disk; extracting it needs the room.
TEST_F(RkZipExtractTest, Zip64EntryPastFourGiB) {
  const std::string archive = Case("zip64");
  if (archive.empty()) GTEST_SKIP() << "python3 is needed";
  ZipRun run(archive);
  ASSERT_TRUE(run.loaded);
  EXPECT_TRUE(run.Run("", {}, std::chrono::seconds(300))) << run.state.code << "\n" << run.host.All();
  struct statvfs fs;
  ScratchFolder out;
  // Writing 4 GiB takes a quarter of a minute, more under the sanitizers: only when asked for.
  if (!std::getenv("RK_SLOW_TESTS")) GTEST_SKIP() << "tested; set RK_SLOW_TESTS=1 to extract it too";
  if (::statvfs(out.path().c_str(), &fs) != 0 || uint64_t{fs.f_bavail} * fs.f_frsize < (uint64_t{10} << 30)) {
    GTEST_SKIP() << "less than 10 GiB free: the entry was tested, not extracted";
  }
  EXPECT_TRUE(run.Run(out.path(), {}, std::chrono::seconds(300))) << run.state.code;
  struct stat st;
  ASSERT_EQ(::stat((out.path() + "/big").c_str(), &st), 0);
  EXPECT_EQ(static_cast<uint64_t>(st.st_size), (uint64_t{1} << 32) + 1);
  EXPECT_EQ(ReadFile(out.path() + "/after.txt"), "tail");
  std::filesystem::remove(out.path() + "/big");
}

TEST_F(RkZipExtractTest, Zip64EntryFromInfoZip) {
  if (!Have("zip")) GTEST_SKIP() << "zip is needed";
  // Making the 4.3 GB archive takes half a minute: only when asked for.
  if (!std::getenv("RK_SLOW_TESTS")) GTEST_SKIP() << "set RK_SLOW_TESTS=1 to test a zip64 entry made by zip";
  ScratchFolder in;
  ASSERT_TRUE(Shell("cd " + Quote(in.path()) + " && truncate -s 4300M big && zip -q -1 big.zip big && rm big"));
  ZipRun run(in.path() + "/big.zip");
  ASSERT_TRUE(run.loaded);
  EXPECT_TRUE(run.Run("", {}, std::chrono::seconds(300))) << run.state.code << "\n" << run.host.All();
}

}  // namespace
