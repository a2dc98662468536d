// Zip loading on archives made at test time: python3's zipfile, Info-ZIP zip and 7zz write them,
// and where a fault is wanted the bytes are patched afterwards. The large archives stay small on
// disk: the 4 GiB entry is a hole in a sparse file.
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <memory>
#include <set>
#include <stdexcept>
#include <string>
#include <vector>

#include "RkArcCallback.h"
#include "RkArcItem.h"
#include "RkArcMethod.h"
#include "RkArcTestUtil.h"
#include "RkState.h"
#include "RkZipCharset.h"
#include "RkZipDirReader.h"
#include "RkZipEntry.h"
#include "RkZipFile.h"

using namespace RkArcLib;
using RkArcTest::ScratchFolder;
using RkLib::FidString;
using RkLib::RkString;

namespace {

// Writes the python-made archives named on its command line into the folder given first, and
// prints "key value" lines of what it knows about them that the loader must find.
constexpr std::string_view kMaker = R"PY(
import os, sys, struct, warnings, zipfile, zlib
out = sys.argv[1]
want = set(sys.argv[2:])
def path(name): return os.path.join(out, name)
def info(name, system=3, method=zipfile.ZIP_STORED):
    i = zipfile.ZipInfo(name, (2020, 5, 17, 12, 30, 0))
    i.create_system = system
    i.compress_type = method
    i.external_attr = 0o100644 << 16 if system == 3 else 0x20
    return i

# One stored entry of 4 GiB + 1 byte and one behind it: sizes and the second offset need zip64.
# The zeros become a hole, so the file takes a few blocks on disk.
if "zip64_size" in want:
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
    with open(path("zip64_size.zip"), "wb") as f:
        with zipfile.ZipFile(Holes(f), "w") as z:
            crc = 0
            with z.open(info("big"), "w", force_zip64=True) as w:
                for _ in range(64):
                    w.write(ZERO)
                    crc = zlib.crc32(ZERO, crc)
                w.write(b"\0")
                crc = zlib.crc32(b"\0", crc)
            z.writestr(info("after"), b"tail")
    print("zip64_size.crc", crc)
    with zipfile.ZipFile(path("zip64_size.zip")) as z:
        print("zip64_size.after", z.getinfo("after").header_offset)

# More entries than the end record can count.
if "zip64_count" in want:
    with zipfile.ZipFile(path("zip64_count.zip"), "w") as z:
        for n in range(65546):
            z.writestr("f%05d" % n, b"")

# Written to a stream that cannot seek back: every entry gets a data descriptor.
if "descriptor" in want:
    class Pipe:
        def __init__(self, f): self.f = f
        def write(self, b): return self.f.write(b)
        def flush(self): self.f.flush()
    with open(path("descriptor.zip"), "wb") as f:
        with zipfile.ZipFile(Pipe(f), "w") as z:
            z.writestr(info("one.txt", method=zipfile.ZIP_DEFLATED), b"hello " * 100)
            z.writestr(info("two.bin"), bytes(range(256)))
    for n, data in (("one", b"hello " * 100), ("two", bytes(range(256)))):
        print("descriptor.%s.crc" % n, zlib.crc32(data))

# Small archives of the loader's plain paths and end-record checks.
if "small" in want:
    with zipfile.ZipFile(path("comments.zip"), "w") as z:
        z.comment = b"archive comment"
        i = info("noted.txt")
        i.comment = b"entry comment"
        z.writestr(i, b"x")
        z.writestr(info("plain.txt"), b"y")

if "names" in want:
    # Names as a DOS host writes them: code page 437 bytes and no UTF-8 flag. zipfile writes only
    # ASCII or UTF-8 names, so same-length placeholders are replaced in the finished file.
    with zipfile.ZipFile(path("cp437.zip"), "w") as z:
        z.writestr(info("cafQQ.txt", 0), b"1")
        z.writestr(info("QQrger/", 0), b"")
    data = open(path("cp437.zip"), "rb").read()
    data = data.replace(b"cafQQ.txt", b"caf\x82_.txt").replace(b"QQrger/", b"\x8e_rger/")
    open(path("cp437.zip"), "wb").write(data)

    # Non-ASCII names get the UTF-8 flag; the DOS host shows that the flag alone decides.
    with zipfile.ZipFile(path("utf8.zip"), "w") as z:
        z.writestr(info("na\u00efve/\u65e5\u672c.txt", 0), b"1")

    # A unicode path record over an ASCII name, and one whose CRC no longer matches the name.
    def unicode_path(raw, text):
        body = text.encode("utf-8")
        return struct.pack("<HHBI", 0x7075, 5 + len(body), 1, zlib.crc32(raw)) + body
    with zipfile.ZipFile(path("unicode_path.zip"), "w") as z:
        i = info("plain-name.txt")
        i.extra = unicode_path(b"plain-name.txt", "\u00fcnic\u00f6de.txt")
        z.writestr(i, b"1")
        i = info("renamed.txt")
        i.extra = unicode_path(b"original.txt", "stale \u00fc.txt")
        z.writestr(i, b"2")

# Names that the loader has to change, one per archive, and all of them in one.
if "odd_names" in want:
    odd = {"long": "a" * 300, "drive": "C:\\dir\\file", "climb": "../../etc/passwd", "root": "/abs/root.txt"}
    for key, name in odd.items():
        with zipfile.ZipFile(path("name_%s.zip" % key), "w") as z:
            z.writestr(info(name), b"1")
    with zipfile.ZipFile(path("names.zip"), "w") as z:
        z.writestr(info("fine.txt"), b"0")
        for name in odd.values():
            z.writestr(info(name), b"1")

if "small" in want:
    with warnings.catch_warnings():
        warnings.simplefilter("ignore")
        with zipfile.ZipFile(path("duplicate.zip"), "w") as z:
            z.writestr(info("dup.txt"), b"first")
            z.writestr(info("other.txt"), b"between")
            z.writestr(info("dup.txt"), b"second one")
    with zipfile.ZipFile(path("five.zip"), "w") as z:
        for n in range(5):
            z.writestr(info("e%d.txt" % n), b"%d" % n)
    with zipfile.ZipFile(path("comment_abc.zip"), "w") as z:
        z.comment = b"abc"
        z.writestr(info("a.txt"), b"a")
print("done 1")
)PY";

class Collector : public RkArcCallback {
 public:
  bool ReportMessage(uint32_t level, const RkString& text) override {
    messages.push_back({level, text.toUtf8()});
    return true;
  }
  // The levels of the messages whose text holds `part`.
  std::vector<uint32_t> LevelsOf(const std::string& part) const {
    std::vector<uint32_t> levels;
    for (const auto& [level, text] : messages) {
      if (text.find(part) != std::string::npos) levels.push_back(level);
    }
    return levels;
  }
  std::string All() const {
    std::string s;
    for (const auto& [level, text] : messages) s += "[" + std::to_string(level) + "] " + text + "\n";
    return s;
  }
  std::vector<std::pair<uint32_t, std::string>> messages;
};

// A zip file loaded with its messages collected.
struct Loaded {
  Loaded(const std::string& path, int64_t first = 0, int64_t last = -1)
      : zip(std::make_unique<RkZipFile>(FidString::FromPosix(path))) {
    zip->SetCallback(&callback);
    ok = zip->Load(first, last, nullptr, state);
  }
  const RkZipEntry& At(int64_t i) const {
    const RkZipEntry* e = zip->Entry(i);
    if (!e) throw std::runtime_error("slot " + std::to_string(i) + " is empty");
    return *e;
  }
  std::string Name(int64_t i) const { return At(i).name.toUtf8(); }
  RkArcItem Item(int64_t i) const {
    RkArcItem item;
    RkState itemState;
    EXPECT_TRUE(zip->GetItem(i, item, itemState)) << "item " << i << " code " << itemState.code;
    return item;
  }

  Collector callback;
  std::unique_ptr<RkZipFile> zip;
  RkState state;
  bool ok = false;
};

bool Shell(const std::string& command) { return std::system(command.c_str()) == 0; }
bool Have(const std::string& tool) { return Shell("command -v " + tool + " >/dev/null 2>&1"); }

std::string ReadAll(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), {});
}
void WriteAll(const std::string& path, const std::string& bytes) {
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
}
void Put16At(std::string& s, size_t at, uint16_t v) {
  s[at] = static_cast<char>(v & 0xFF);
  s[at + 1] = static_cast<char>(v >> 8);
}

// The python-made archives are made on first need and shared by the tests of one run; a run of a
// single test makes only its own.
class RkZipFixtureTest : public testing::Test {
 protected:
  static void SetUpTestSuite() { python_ = Have("python3"); }
  static void TearDownTestSuite() {
    folder_.reset();
    facts_.clear();
    made_.clear();
  }
  // Makes the named groups of archives unless made already; false when python3 failed.
  static bool Make(std::initializer_list<std::string> groups) {
    if (!folder_) folder_ = std::make_unique<ScratchFolder>();
    std::string wanted;
    for (const std::string& g : groups) wanted += made_.count(g) ? "" : " " + g;
    if (wanted.empty()) return true;
    folder_->Write("maker.py", kMaker);
    facts_.erase("done");
    if (!Shell("python3 '" + File("maker.py") + "' '" + folder_->path() + "'" + wanted + " >'" + File("facts") + "'"))
      return false;
    std::ifstream lines(File("facts"));
    std::string key, value;
    while (lines >> key >> value) facts_[key] = value;
    if (facts_.count("done")) made_.insert(groups.begin(), groups.end());
    return facts_.count("done") != 0;
  }
  static std::string File(const std::string& name) { return folder_->path() + "/" + name; }
  static uint64_t Fact(const std::string& key) { return std::stoull(facts_.at(key)); }
  // A copy of a made archive, changed by `patch`.
  static std::string Patched(const std::string& name, void (*patch)(std::string&)) {
    std::string bytes = ReadAll(File(name));
    patch(bytes);
    WriteAll(File("patched-" + name), bytes);
    return File("patched-" + name);
  }

  static inline bool python_ = false;
  static inline std::unique_ptr<ScratchFolder> folder_;
  static inline std::map<std::string, std::string> facts_;
  static inline std::set<std::string> made_;
};

// Python-made archives need python3; the tests of the other tools run without it.
#define MAKE_OR_SKIP(...)                                                                    \
  do {                                                                                       \
    if (!python_) GTEST_SKIP() << "python3 with zipfile is needed to make the archives";     \
    ASSERT_TRUE(Make({__VA_ARGS__})) << "python3 could not make the archives";               \
  } while (0)

constexpr uint64_t kBig = (uint64_t{1} << 32) + 1;

TEST_F(RkZipFixtureTest, Zip64SizesAndOffsetsComeFromTheExtra) {
  MAKE_OR_SKIP("zip64_size");
  Loaded z(File("zip64_size.zip"));
  ASSERT_TRUE(z.ok) << z.state.code << "\n" << z.callback.All();
  ASSERT_EQ(z.zip->GetItemCount(), 2);
  EXPECT_TRUE(z.zip->EndRecord().isZip64);
  EXPECT_GT(z.zip->EndRecord().cdirOffset, 0xFFFFFFFFu);
  const RkZipEntry& big = z.At(0);
  EXPECT_EQ(z.Name(0), "big");
  EXPECT_EQ(big.originalSize, 0xFFFFFFFFu);
  EXPECT_EQ(big.originalSize64, kBig);
  EXPECT_EQ(big.compressedSize64, kBig);
  EXPECT_EQ(big.crc, Fact("zip64_size.crc"));
  EXPECT_TRUE(big.hasZip64);
  const RkZipEntry& after = z.At(1);
  EXPECT_EQ(after.localOffset, 0xFFFFFFFFu);
  EXPECT_EQ(after.localOffset64, Fact("zip64_size.after"));
  EXPECT_GT(after.localOffset64, kBig);
  EXPECT_EQ(after.originalSize64, 4u);
  EXPECT_EQ(z.Item(0).originalSize, kBig);
  EXPECT_EQ(z.Item(1).offset, Fact("zip64_size.after"));
}

TEST_F(RkZipFixtureTest, Zip64CountBeyondTheEndRecordsField) {
  MAKE_OR_SKIP("zip64_count");
  Loaded z(File("zip64_count.zip"));
  ASSERT_TRUE(z.ok) << z.state.code << "\n" << z.callback.All();
  EXPECT_TRUE(z.zip->EndRecord().isZip64);
  EXPECT_EQ(z.zip->EndRecord().entriesTotalRead, 0xFFFF);
  ASSERT_EQ(z.zip->GetItemCount(), 65546);
  EXPECT_EQ(z.Name(0), "f00000");
  EXPECT_EQ(z.Name(65535), "f65535");
  EXPECT_EQ(z.Name(65545), "f65545");
  RkState state;
  EXPECT_EQ(z.zip->FindItem(RkString(u"f65540"), state), 65540);
  EXPECT_EQ(z.zip->FindItem(RkString(u"f40000"), state), 40000);

  // A range past the 16-bit count reads only its own records.
  Loaded part(File("zip64_count.zip"), 65530, 65540);
  ASSERT_TRUE(part.ok) << part.state.code;
  EXPECT_EQ(part.zip->GetItemCount(), 65546);
  EXPECT_TRUE(part.zip->IsPartial());
  EXPECT_EQ(part.zip->Entry(65529), nullptr);
  EXPECT_EQ(part.zip->Entry(65541), nullptr);
  EXPECT_EQ(part.Name(65536), "f65536");
}

TEST_F(RkZipFixtureTest, DataDescriptorsFromPythonStream) {
  MAKE_OR_SKIP("descriptor");
  Loaded z(File("descriptor.zip"));
  ASSERT_TRUE(z.ok) << z.state.code << "\n" << z.callback.All();
  ASSERT_EQ(z.zip->GetItemCount(), 2);
  const struct {
    const char* name;
    uint32_t method;
    uint64_t size;
    const char* crcFact;
  } expected[] = {{"one.txt", 8, 600, "descriptor.one.crc"}, {"two.bin", 0, 256, "descriptor.two.crc"}};
  for (int i = 0; i < 2; ++i) {
    const RkZipEntry& e = z.At(i);
    EXPECT_EQ(z.Name(i), expected[i].name);
    EXPECT_TRUE(e.flags & kZipFlagDescriptor) << expected[i].name;
    EXPECT_FALSE(e.hasZip64) << expected[i].name;
    EXPECT_EQ(e.method, expected[i].method) << expected[i].name;
    EXPECT_EQ(e.originalSize64, expected[i].size) << expected[i].name;
    EXPECT_EQ(e.crc, Fact(expected[i].crcFact)) << expected[i].name;
    EXPECT_EQ(z.Item(i).headerSize, 30u + e.nameLength + e.extraLength + 16) << expected[i].name;
  }
  EXPECT_LT(z.At(0).compressedSize64, 600u);
}

TEST_F(RkZipFixtureTest, InfoZipStreamAndStdinArchives) {
  if (!Have("zip")) GTEST_SKIP() << "Info-ZIP zip is not installed";
  ScratchFolder dir;
  dir.Write("a.txt", "hello world\n");
  std::filesystem::create_directory(dir.path() + "/sub");
  dir.Write("sub/b.txt", std::string(1000, 'x'));
  const std::string cd = "cd '" + dir.path() + "' && ";
  ASSERT_TRUE(Shell(cd + "zip -q - a.txt sub/b.txt | cat > stream.zip"));
  ASSERT_TRUE(Shell(cd + "printf 'from stdin\\n' | zip -q stdin.zip -"));

  // Written to a pipe: sizes follow the data, the central records have them.
  Loaded s(dir.path() + "/stream.zip");
  ASSERT_TRUE(s.ok) << s.state.code << "\n" << s.callback.All();
  ASSERT_EQ(s.zip->GetItemCount(), 2);
  EXPECT_EQ(s.Name(0), "a.txt");
  EXPECT_EQ(s.Name(1), "sub\\b.txt");
  EXPECT_TRUE(s.At(0).flags & kZipFlagDescriptor);
  EXPECT_EQ(s.At(0).crc, 0xAF083B2Du);
  EXPECT_EQ(s.At(0).originalSize64, 12u);
  EXPECT_EQ(s.At(1).crc, 0x3B41C9E6u);
  EXPECT_EQ(s.At(1).originalSize64, 1000u);
  EXPECT_EQ(s.At(1).EffectiveMethod(), 8u);
  EXPECT_EQ(s.At(1).HostSystem(), 3);
  EXPECT_FALSE(s.zip->IsDamaged());

  // Read from stdin: zip64 end records whose counts did not overflow, which the end record keeps.
  Loaded in(dir.path() + "/stdin.zip");
  ASSERT_TRUE(in.ok) << in.state.code << "\n" << in.callback.All();
  ASSERT_EQ(in.zip->GetItemCount(), 1);
  EXPECT_EQ(in.Name(0), "-");
  EXPECT_EQ(in.At(0).originalSize64, 11u);
}

TEST_F(RkZipFixtureTest, ArchiveAndEntryCommentsFromPythonAndInfoZip) {
  MAKE_OR_SKIP("small");
  Loaded z(File("comments.zip"));
  ASSERT_TRUE(z.ok) << z.state.code;
  EXPECT_EQ(z.zip->EndRecord().comment, RkString(u"archive comment"));
  RkString text;
  RkState state;
  ASSERT_TRUE(z.zip->GetComment(text, state));
  EXPECT_EQ(text, RkString(u"archive comment"));
  ASSERT_TRUE(z.zip->GetItemComment(0, text, state));
  EXPECT_EQ(text, RkString(u"entry comment"));
  EXPECT_EQ(z.At(0).Comment(), RkString(u"entry comment"));
  ASSERT_TRUE(z.zip->GetItemComment(1, text, state));
  EXPECT_TRUE(text.empty());
  EXPECT_TRUE(z.At(1).Comment().empty());

  // Info-ZIP's, given on standard input.
  if (!Have("zip")) GTEST_SKIP() << "Info-ZIP zip is not installed";
  ScratchFolder dir;
  dir.Write("a.txt", "a");
  dir.Write("b.txt", "b");
  const std::string cd = "cd '" + dir.path() + "' && ";
  ASSERT_TRUE(Shell(cd + "printf 'zip comment\\n' | zip -q -z z.zip a.txt"));
  ASSERT_TRUE(Shell(cd + "printf 'note for a\\nnote for b\\n' | zip -q -c c.zip a.txt b.txt"));
  Loaded zc(dir.path() + "/z.zip");
  ASSERT_TRUE(zc.ok);
  EXPECT_EQ(zc.zip->EndRecord().comment, RkString(u"zip comment"));
  Loaded c(dir.path() + "/c.zip");
  ASSERT_TRUE(c.ok);
  ASSERT_EQ(c.zip->GetItemCount(), 2);
  EXPECT_EQ(c.At(0).Comment(), RkString(u"note for a"));
  EXPECT_EQ(c.At(1).Comment(), RkString(u"note for b"));
}

TEST_F(RkZipFixtureTest, NamesByCodePageFlagAndUnicodeRecord) {
  MAKE_OR_SKIP("names");
  Loaded oem(File("cp437.zip"));
  ASSERT_TRUE(oem.ok) << oem.state.code;
  ASSERT_EQ(oem.zip->GetItemCount(), 2);
  EXPECT_EQ(oem.At(0).flags & kZipFlagUtf8, 0);
  EXPECT_EQ(oem.At(0).HostSystem(), 0);
  EXPECT_EQ(oem.At(0).name, RkString(u"caf\u00E9_.txt"));
  EXPECT_EQ(oem.At(1).name, RkString(u"\u00C4_rger\\"));
  EXPECT_TRUE(oem.At(1).IsDirectory());

  Loaded utf8(File("utf8.zip"));
  ASSERT_TRUE(utf8.ok) << utf8.state.code;
  EXPECT_NE(utf8.At(0).flags & kZipFlagUtf8, 0);
  EXPECT_EQ(utf8.At(0).HostSystem(), 0);
  EXPECT_EQ(utf8.At(0).name, RkString(u"na\u00EFve\\\u65E5\u672C.txt"));

  Loaded up(File("unicode_path.zip"));
  ASSERT_TRUE(up.ok) << up.state.code;
  ASSERT_EQ(up.zip->GetItemCount(), 2);
  EXPECT_TRUE(up.At(0).hasUnicodeName);
  EXPECT_EQ(up.At(0).name, RkString(u"\u00FCnic\u00F6de.txt"));
  RkState state;
  EXPECT_EQ(up.zip->FindItem(RkString(u"\u00FCnic\u00F6de.txt"), state), 0);
  EXPECT_FALSE(up.At(1).hasUnicodeName);  // its CRC is of another name: the record is stale
  EXPECT_EQ(up.Name(1), "renamed.txt");
}

TEST_F(RkZipFixtureTest, AesEntriesFrom7zz) {
  if (!Have("7zz")) GTEST_SKIP() << "7zz is not installed";
  ScratchFolder dir;
  dir.Write("a.txt", "hello world\n");
  dir.Write("b.txt", std::string(1000, 'x'));
  const std::string cd = "cd '" + dir.path() + "' && ";
  ASSERT_TRUE(Shell(cd + "7zz a -tzip -mem=AES256 -pSECRET aes256.zip b.txt a.txt >/dev/null"));
  ASSERT_TRUE(Shell(cd + "7zz a -tzip -mem=AES128 -mx0 -pSECRET aes128.zip a.txt >/dev/null"));
  ASSERT_TRUE(Shell(cd + "7zz a -tzip -mem=ZipCrypto -pSECRET zipcrypto.zip b.txt >/dev/null"));

  Loaded z(dir.path() + "/aes256.zip");
  ASSERT_TRUE(z.ok) << z.state.code << "\n" << z.callback.All();
  ASSERT_EQ(z.zip->GetItemCount(), 2);
  EXPECT_TRUE(z.zip->IsEncrypted());
  RkState state;
  const int64_t bAt = z.zip->FindItem(RkString(u"b.txt"), state);
  const int64_t aAt = z.zip->FindItem(RkString(u"a.txt"), state);
  ASSERT_TRUE(bAt >= 0 && aAt >= 0);
  const RkZipEntry& b = z.At(bAt);
  EXPECT_TRUE(b.IsEncrypted());
  EXPECT_EQ(b.method, kZipMethodAes);
  EXPECT_EQ(b.EffectiveMethod(), kZipMethodDeflate);
  ASSERT_NE(b.Aes(), nullptr);
  EXPECT_EQ(b.Aes()->keyBits, 256);
  EXPECT_TRUE(b.Aes()->version == 1 || b.Aes()->version == 2) << b.Aes()->version;
  EXPECT_EQ(b.originalSize64, 1000u);
  EXPECT_EQ(z.Item(bAt).encryption, kZipEncryptionAes256);
  EXPECT_EQ(z.Item(bAt).method, RkArcMethodFromZip(kZipMethodDeflate));
  // Twelve bytes do not shrink: 7zz stores them, and the AES record says so.
  ASSERT_NE(z.At(aAt).Aes(), nullptr);
  EXPECT_EQ(z.At(aAt).method, kZipMethodAes);
  EXPECT_EQ(z.At(aAt).EffectiveMethod(), kZipMethodStored);

  Loaded small(dir.path() + "/aes128.zip");
  ASSERT_TRUE(small.ok);
  ASSERT_NE(small.At(0).Aes(), nullptr);
  EXPECT_EQ(small.At(0).Aes()->keyBits, 128);
  EXPECT_EQ(small.Item(0).encryption, kZipEncryptionAes128);

  Loaded old(dir.path() + "/zipcrypto.zip");
  ASSERT_TRUE(old.ok);
  EXPECT_TRUE(old.At(0).IsEncrypted());
  EXPECT_EQ(old.At(0).Aes(), nullptr);
  EXPECT_EQ(old.At(0).method, kZipMethodDeflate);
  EXPECT_EQ(old.Item(0).encryption, kZipEncryptionTraditional);
}

// ---- Damage and names that must be changed.

// Damage at the end: whether the load goes through and how far a failure reaches, and the message.
TEST_F(RkZipFixtureTest, DamagedEndRecordsLoadOrFailAsFarAsTheyReach) {
  MAKE_OR_SKIP("small");
  const std::string five = ReadAll(File("five.zip")), abc = ReadAll(File("comment_abc.zip"));
  std::string tooLow = five, longComment = abc;
  Put16At(tooLow, five.size() - 22 + 8, 4);  // both counts
  Put16At(tooLow, five.size() - 22 + 10, 4);
  Put16At(longComment, abc.size() - 3 - 2, 5);  // the comment's length, before its 3 bytes
  const struct {
    const char* name;
    std::string bytes;
    uint32_t code;  // 0: loaded
    bool fatal;
    int64_t items;
    const char* message;  // held by the text of one message, of `level`
    uint32_t level;
  } cases[] = {
      {"EndRecordLessItsLastByte", five.substr(five.size() - 22, 21), kZipErrNotZip, true, 0, "is not a zip archive",
       RkLib::kSeverityFatal},
      {"EmptyFileIsANewArchive", "", 19, false, 0, nullptr, 0},
      {"CountOneTooLowIsTooManyRecords", tooLow, kZipErrTooManyRecords, true, 0,
       "more entries than the end record says", RkLib::kSeverityFatal},
      {"CommentLongerThanTheFileIsCut", longComment, 0, false, 1, "comment is longer", RkLib::kSeverityNone},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    WriteAll(File("damaged.zip"), c.bytes);
    Loaded z(File("damaged.zip"));
    EXPECT_EQ(z.ok, c.code == 0);
    EXPECT_EQ(z.state.code, c.code);
    EXPECT_EQ(z.state.IsFatalToLoad(), c.fatal);
    EXPECT_EQ(z.zip->IsLoaded(), !c.fatal);
    EXPECT_EQ(z.zip->GetItemCount(), c.items);
    if (c.message) {
      EXPECT_EQ(z.callback.LevelsOf(c.message), std::vector<uint32_t>{c.level}) << z.callback.All();
    }
    if (c.code == 0) {
      EXPECT_EQ(z.zip->EndRecord().comment, RkString(u"abc"));
      EXPECT_EQ(z.zip->EndRecord().commentLength, 3);
    }
  }
}

TEST_F(RkZipFixtureTest, SameNameTwiceKeepsBothAndFindsTheFirst) {
  MAKE_OR_SKIP("small");
  Loaded z(File("duplicate.zip"));
  ASSERT_TRUE(z.ok) << z.state.code;
  ASSERT_EQ(z.zip->GetItemCount(), 3);
  EXPECT_EQ(z.Name(0), "dup.txt");
  EXPECT_EQ(z.Name(2), "dup.txt");
  EXPECT_EQ(z.At(0).originalSize64, 5u);
  EXPECT_EQ(z.At(2).originalSize64, 10u);
  RkState state;
  EXPECT_EQ(z.zip->FindItem(RkString(u"dup.txt"), state), 0);
  EXPECT_EQ(z.zip->FindItem(RkString(u"other.txt"), state), 1);
  EXPECT_EQ(z.zip->FindItem(RkString(u"missing.txt"), state), -1);
  EXPECT_EQ(state.code, 32u);
  EXPECT_FALSE(z.zip->IsDamaged());
}

TEST_F(RkZipFixtureTest, NamesAreShortenedOrStrippedWithAWarningTwiceThenACount) {
  MAKE_OR_SKIP("odd_names");
  const struct {
    const char* file;
    std::u16string name;
    const char* message;
  } cases[] = {
      {"name_long.zip", std::u16string(255, u'a'), "too long"},
      {"name_drive.zip", u"dir\\file", "held a drive"},
      {"name_climb.zip", u"etc\\passwd", "held a drive"},
      {"name_root.zip", u"abs\\root.txt", "held a drive"},
  };
  for (const auto& c : cases) {
    Loaded z(File(c.file));
    ASSERT_TRUE(z.ok) << c.file << " code " << z.state.code;
    ASSERT_EQ(z.zip->GetItemCount(), 1) << c.file;
    EXPECT_EQ(z.At(0).name, RkString(c.name)) << c.file;
    EXPECT_EQ(z.callback.LevelsOf(c.message), std::vector<uint32_t>{RkLib::kSeverityWarning})
        << c.file << "\n" << z.callback.All();
    EXPECT_TRUE(z.zip->IsDamaged()) << c.file;
  }
  // All in one archive: only two warnings are shown, then a count.
  Loaded z(File("names.zip"));
  ASSERT_TRUE(z.ok) << z.state.code;
  ASSERT_EQ(z.zip->GetItemCount(), 5);
  EXPECT_EQ(z.Name(0), "fine.txt");
  EXPECT_EQ(z.callback.LevelsOf("too long").size(), 1u) << z.callback.All();
  EXPECT_EQ(z.callback.LevelsOf("held a drive").size(), 1u) << z.callback.All();
  EXPECT_EQ(z.callback.LevelsOf("2 more entries").size(), 1u) << z.callback.All();
  EXPECT_EQ(z.callback.messages.size(), 3u) << z.callback.All();
}

TEST_F(RkZipFixtureTest, RangedLoadLeavesTheOtherSlotsEmptyAndAProbeReadsTheEndOnly) {
  MAKE_OR_SKIP("small");
  Loaded z(File("five.zip"), 1, 2);
  ASSERT_TRUE(z.ok) << z.state.code;
  EXPECT_TRUE(z.zip->IsLoaded());
  EXPECT_TRUE(z.zip->IsPartial());
  EXPECT_FALSE(z.zip->IsComplete());
  ASSERT_EQ(z.zip->GetItemCount(), 5);
  RkArcItem item;
  RkState state;
  for (int64_t i : {0, 3, 4}) {
    EXPECT_EQ(z.zip->Entry(i), nullptr) << i;
    EXPECT_FALSE(z.zip->GetItem(i, item, state)) << i;
    EXPECT_EQ(state.code, 29u) << i;
  }
  ASSERT_TRUE(z.zip->GetItem(2, item, state));
  EXPECT_EQ(item.name, RkString(u"e2.txt"));
  EXPECT_FALSE(z.zip->GetItem(5, item, state));
  EXPECT_EQ(state.code, 28u);
  EXPECT_EQ(z.zip->FindItem(RkString(u"e1.txt"), state), 1);
  EXPECT_EQ(z.zip->FindItem(RkString(u"e4.txt"), state), -1);

  Loaded full(File("five.zip"));
  ASSERT_TRUE(full.ok);
  EXPECT_FALSE(full.zip->IsPartial());
  EXPECT_TRUE(full.zip->IsComplete());

  // A probe reads the end only.
  Loaded end(File("five.zip"), -1, -1);
  ASSERT_TRUE(end.ok) << end.state.code;
  EXPECT_TRUE(end.zip->IsLoaded());
  EXPECT_EQ(end.zip->GetItemCount(), 0);
  EXPECT_EQ(end.zip->EndRecord().entriesTotal, 5u);
  // A probe of a directory that cannot be walked still goes through.
  const std::string path = Patched("five.zip", [](std::string& s) { s[s.size() - 22 + 16] ^= 0x01; });
  Loaded probe(path, -1, -1);
  EXPECT_TRUE(probe.ok) << probe.state.code;
  Loaded walked(path);
  EXPECT_FALSE(walked.ok);
  EXPECT_EQ(walked.state.code, kZipErrNotZip);
}

}  // namespace
