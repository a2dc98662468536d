// Hostile archives, written byte by byte by python3 at test time: names that climb out of the
// base, links in the archive and planted in the target, entries that share or overlap their data,
// sizes that lie, and local headers that contradict the central directory. Whatever the archive
// says, the run ends (a watchdog sees to that), writes nothing outside the base, never more than an
// entry declares, and every entry either extracts correctly or fails with its code.
#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "RkArcTestUtil.h"
#include "RkDStream.h"
#include "RkExtractPoolGroup.h"
#include "RkMultiPipeOut.h"
#include "RkZipFile.h"
#include "RkZipRunUtil.h"

using namespace RkArcLib;
using namespace RkArcTest;

namespace {

// OUT CASE ARG OUTSIDE: writes OUT/CASE.zip, and for the overlap cases OUT/CASE.want/ with what
// each entry holds. ARG comes in hex; OUTSIDE is the folder beside the base where links point.
constexpr std::string_view kMaker = R"PY(
import os, struct, sys, zlib
out, case = sys.argv[1], sys.argv[2]
arg, outside = bytes.fromhex(sys.argv[3]), sys.argv[4].encode()

def deflate(b):
    c = zlib.compressobj(9, zlib.DEFLATED, -15)
    return c.compress(b) + c.flush()
def local(name, method, crc, packed, size, flags=0, sig=0x04034B50):
    return struct.pack("<IHHHHHIIIHH", sig, 20, flags, method, 0, 0x5021, crc, packed, size, len(name), 0) + name
def central(name, method, crc, packed, size, offset, mode):
    return struct.pack("<IHHHHHHIIIHHHHHII", 0x02014B50, 0x0314, 20, 0, method, 0, 0x5021, crc, packed, size,
                       len(name), 0, 0, 0, 0, mode << 16, offset) + name
def end(count, cdir, at):
    return struct.pack("<IHHHHIIH", 0x06054B50, 0, 0, count, count, len(cdir), at, 0)

# Entries: name, data; method (8 unless said), size and crc as declared, mode, "local" (fields of
# the local header that differ), "at" (an earlier entry whose local header is shared), "offset".
def write(entries, body=b""):
    cdir, offsets = b"", []
    for e in entries:
        name = e["name"] if isinstance(e["name"], bytes) else e["name"].encode()
        data, method = e.get("data", b""), e.get("method", 8)
        packed = deflate(data) if method == 8 else data
        crc, size = e.get("crc", zlib.crc32(data)), e.get("size", len(data))
        if "at" in e:
            offsets.append(offsets[e["at"]])
        else:
            offsets.append(len(body))
            l = dict(name=name, method=method, crc=crc, packed=len(packed), size=size)
            l.update(e.get("local", {}))
            body += local(**l) + packed
        cdir += central(name, method, crc, len(packed), size, e.get("offset", offsets[-1]), e.get("mode", 0o100644))
    open(os.path.join(out, case + ".zip"), "wb").write(body + cdir + end(len(entries), cdir, len(body)))

# Entry i's deflate data is a stored block that quotes the local header of entry i+1, then that
# entry's data: every entry ends in the one compressed kernel, and each holds all headers after it.
def overlapped(count, kernel, declared):
    data, content, parts = deflate(kernel), kernel, []
    for i in reversed(range(count)):
        name = b"bomb%02d" % i
        head = local(name, 8, zlib.crc32(content), len(data), declared or len(content))
        parts.insert(0, (name, head, content, len(data)))
        if i:
            data = struct.pack("<BHH", 0, len(head), len(head) ^ 0xFFFF) + head + data
            content = head + content
    body, cdir = parts[0][1] + data, b""
    os.makedirs(os.path.join(out, case + ".want"), exist_ok=True)
    for name, head, content, packed in parts:
        cdir += central(name, 8, zlib.crc32(content), packed, declared or len(content), body.find(head), 0o100644)
        open(os.path.join(out, case + ".want", name.decode()), "wb").write(content)
    open(os.path.join(out, case + ".zip"), "wb").write(body + cdir + end(count, cdir, len(body)))

good = {"name": "good.txt", "data": b"good " * 100}
if case == "name":
    write([{"name": arg, "data": b"climbed " + arg}])
elif case == "link":
    link = {"name": "link", "data": outside, "method": 0, "mode": 0o120777}
    write([link, {"name": "after.txt" if arg == b"alone" else "link/evil.txt", "data": b"evil"}])
elif case == "relative_link":
    write([{"name": "up", "data": b"../../../..", "method": 0, "mode": 0o120777}, {"name": "up/evil.txt", "data": b"evil"}])
elif case == "planted":
    write([{"name": arg, "data": b"evil"}])
elif case == "overlap":
    overlapped(12, bytes(1 << 20), 0)
elif case == "overlap_lying":
    overlapped(12, bytes(1 << 20), 1000)
elif case == "inflates_past_size":
    write([{"name": "small.bin", "data": bytes(8 << 20), "size": int(arg)}, good])
elif case == "one_local":
    write([{"name": "e000", "data": b"hello world\n"}] + [{"name": "e%03d" % i, "data": b"hello world\n", "at": 0} for i in range(1, 200)])
elif case == "local":
    field, value = arg.decode().split("=")
    fields = {"crc": 1, "method": 0, "packed": 7, "size": 9999, "flags": 0x0800, "sig": 0x06054B50,
              "name": b"a much longer local name.txt"}
    bad = {"name": "bad.txt", "data": b"bad " * 100, "local": {field: fields[field] if not value else int(value)}}
    if field == "offset": bad = {"name": "bad.txt", "data": b"bad " * 100, "offset": int(value)}
    write([bad, good])
)PY";


std::string Repeat(const std::string& part, int times) {
  std::string s;
  while (times-- > 0) s += part;
  return s;
}

class RkZipHostileTest : public testing::Test {
 protected:
  // The base lies four levels down, so that a climb of up to four parts lands inside the
  // scratch folder, where the snapshots see it; a longer one must still end inside the base.
  void SetUp() override {
    if (!Have("python3")) GTEST_SKIP() << "python3 is needed to write the archives";
    namespace fs = std::filesystem;
    fs::create_directories(Base());
    fs::create_directories(Outside());
    root_.Write("outside/victim.txt", "victim");
    archives_.Write("maker.py", kMaker);
    before_ = Around();
  }
  void TearDown() override {
    if (!IsSkipped()) {
      EXPECT_EQ(TreeDiff(before_, Around()), "") << "something was written outside the base";
    }
  }
  std::string Base() const { return root_.path() + "/l1/l2/l3/base"; }
  std::string Outside() const { return root_.path() + "/outside"; }
  // The scratch folder but the base.
  Tree Around() const {
    Tree tree = TreeOf(root_.path());
    std::erase_if(tree, [](const auto& node) { return node.first.rfind("l1/l2/l3/base", 0) == 0; });
    return tree;
  }
  std::string Make(const std::string& kind, const std::string& arg = {}) {
    std::string hex;
    for (unsigned char c : arg) hex += "0123456789abcdef"[c >> 4], hex += "0123456789abcdef"[c & 15];
    EXPECT_TRUE(Shell("python3 " + Quote(archives_.path() + "/maker.py") + " " + Quote(archives_.path()) + " " + kind +
                      " " + Quote(hex) + " " + Quote(Outside())));
    return archives_.path() + "/" + kind + ".zip";
  }
  std::string Want(const std::string& kind) const { return archives_.path() + "/" + kind + ".want"; }

  ScratchFolder root_, archives_;
  Tree before_;
};

// Every way out of the base: the parts that climb are dropped and the entry lands inside it.
TEST_F(RkZipHostileTest, NamesThatClimbOutLandInsideTheBase) {
  const std::string absolute = root_.path() + "/abs-target.txt";
  const std::string names[] = {
      "../t01",
      "a/../../t02",
      "../../../../../../../t03",
      absolute,
      "C:\\t05",
      "C:/t06",
      "..\\t07",
      "a\\..\\..\\t08",
      "./t09",
      "a/./../t10",
      "\\\\srv\\share\\t11",
      "/../t12",
      std::string("t13\0/../../x", 12),  // a NUL that a C string would cut the name at
      "//t14",
      ".../t15",
  };
  for (const std::string& name : names) {
    const std::string archive = Make("name", name);
    std::filesystem::remove_all(Base());
    ZipRun run(archive);
    ASSERT_TRUE(run.loaded) << name;
    EXPECT_TRUE(run.Run(Base())) << name << ": " << run.state.code << "\n" << run.host.All();
    int found = 0;
    for (const auto& [path, what] : TreeOf(Base())) found += what == "file climbed " + name;
    EXPECT_EQ(found, 1) << name << " is not once inside the base";
    EXPECT_EQ(TreeDiff(before_, Around()), "") << name;
  }
}

// A link entry is written as a file holding its target. An entry below the link's name must
// not go through it: it fails, or lands in a real folder, and the link's file stays.
TEST_F(RkZipHostileTest, LinkEntriesNeverBecomeLinks) {
  const struct {
    const char* kind;
    const char* arg;
    const char* link;
    bool ok;
  } cases[] = {{"link", "alone", "link", true}, {"link", "", "link", false}, {"relative_link", "", "up", false}};
  bool becameFolder = false;
  for (const auto& c : cases) {
    const std::string archive = Make(c.kind, c.arg);
    std::filesystem::remove_all(Base());
    ZipRun run(archive);
    ASSERT_TRUE(run.loaded);
    const bool ok = run.Run(Base());
    if (c.ok) {
      EXPECT_TRUE(ok) << c.kind << " " << c.arg << ": " << run.state.code;
    }
    const Tree got = TreeOf(Base());
    for (const auto& [path, what] : got) EXPECT_NE(what.rfind("link ->", 0), 0u) << c.kind << ": " << path;
    ASSERT_TRUE(got.count(c.link)) << c.kind << " " << c.arg;
    if (got.at(c.link) == "dir") {
      becameFolder = true;
    } else {
      EXPECT_EQ(got.at(c.link), "file " + (c.link == std::string("up") ? std::string("../../../..") : Outside()))
          << c.kind << " " << c.arg;
    }
  }
  EXPECT_FALSE(becameFolder) << "a link entry is written as a file, whatever comes below it";
}

// Links planted in the target before the run: none is followed, whatever the host answers.
TEST_F(RkZipHostileTest, PlantedLinksAreNeverFollowed) {
  const struct {
    const char* entry;
    const char* link;  // below the base
    const char* to;    // below the outside folder
    int answer;
    bool ok;
  } cases[] = {
      {"out/evil.txt", "out", "", kArcExistsReplace, false},
      {"sub/deeper/x/evil.txt", "sub/deeper", "", kArcExistsReplace, false},
      {"f.txt", "f.txt", "/victim.txt", kArcExistsReplace, false},
      {"f.txt", "f.txt", "/victim.txt", kArcExistsSkip, true},
      {"dangling.txt", "dangling.txt", "/not-there.txt", kArcExistsReplace, false},
  };
  bool linkRemoved = false;
  for (const auto& c : cases) {
    std::filesystem::remove_all(Base());
    const std::string link = Base() + "/" + c.link;
    std::filesystem::create_directories(std::filesystem::path(link).parent_path());
    std::filesystem::create_symlink(Outside() + c.to, link);
    ZipRun run(Make("planted", c.entry));
    run.host.existsAnswer = c.answer;
    EXPECT_EQ(run.Run(Base()), c.ok) << c.entry;
    if (!c.ok) {
      EXPECT_EQ(run.state.code, kZipErrOutput) << c.entry << "\n" << run.host.All();
    }
    linkRemoved = linkRemoved || !std::filesystem::is_symlink(link);
    EXPECT_EQ(TreeDiff(before_, Around()), "") << c.entry;
  }
  EXPECT_FALSE(linkRemoved) << "a planted link that the run refuses stays";
}

// Twelve entries whose data overlap, each ending in one shared megabyte of zeros. With true sizes
// each extracts in full; with sizes that lie each stops at its declared size and is removed.
TEST_F(RkZipHostileTest, OverlappingEntriesExtractOrStopAtTheirSize) {
  ZipRun honest(Make("overlap"));
  ASSERT_TRUE(honest.loaded) << honest.loadCode;
  ASSERT_EQ(honest.zip->GetItemCount(), 12);
  EXPECT_TRUE(honest.Run("")) << honest.state.code << "\n" << honest.host.All();
  EXPECT_TRUE(honest.Run(Base())) << honest.state.code << "\n" << honest.host.All();
  EXPECT_EQ(TreeDiff(TreeOf(Want("overlap")), TreeOf(Base())), "");

  std::filesystem::remove_all(Base());
  ZipRun lying(Make("overlap_lying"));
  ASSERT_TRUE(lying.loaded) << lying.loadCode;
  EXPECT_FALSE(lying.Run(Base()));
  EXPECT_EQ(lying.state.severity, RkLib::kSeveritySevere);
  EXPECT_EQ(lying.host.CountAt(RkLib::kSeveritySevere), 12u) << lying.host.All();
  EXPECT_EQ(TreeOf(Base()), Tree{});
  EXPECT_EQ(lying.state.code, kZipErrSizeMismatch);
}

TEST_F(RkZipHostileTest, EntryThatInflatesPastItsSizeIsStoppedAndRemoved) {
  // Eight megabytes of zeros that claim a hundred bytes, then a megabyte: the first fits one
  // buffer of the pipe and the second does not.
  for (const char* declared : {"100", "1048576"}) {
    const std::string archive = Make("inflates_past_size", declared);
    for (const bool test : {true, false}) {
      std::filesystem::remove_all(Base());
      ZipRun run(archive);
      EXPECT_FALSE(run.Run(test ? "" : Base())) << declared << " " << test;
      EXPECT_EQ(run.state.severity, RkLib::kSeveritySevere) << declared << " " << test;
      EXPECT_EQ(run.state.code, kZipErrSizeMismatch) << declared << " " << test;
      if (!test) {
        EXPECT_EQ(TreeOf(Base()), (Tree{{"good.txt", "file " + Repeat("good ", 100)}})) << declared;
      }
    }
  }
}

// Two hundred central records, one local header: each reads the same data, correctly.
TEST_F(RkZipHostileTest, CentralRecordsThatShareOneLocalHeader) {
  ZipRun run(Make("one_local"));
  ASSERT_TRUE(run.loaded) << run.loadCode;
  EXPECT_TRUE(run.Run("")) << run.state.code;
  EXPECT_TRUE(run.Run(Base())) << run.state.code << "\n" << run.host.All();
  const Tree got = TreeOf(Base());
  EXPECT_EQ(got.size(), 200u);
  for (const auto& [path, what] : got) EXPECT_EQ(what, "file hello world\n") << path;
}

// A local header that contradicts its central record ends that entry with the code of the
// difference; the entry behind it extracts. A name that differs is no fault: the central wins.
TEST_F(RkZipHostileTest, LocalHeaderAgainstCentralEndsThatEntry) {
  const struct {
    const char* change;
    uint32_t code;
  } cases[] = {
      {"crc=", kZipErrLocalCrc},
      {"method=", kZipErrLocalMethod},
      {"packed=", kZipErrLocalPacked},
      {"size=", kZipErrLocalSize},
      {"flags=", kZipErrLocalFlags},
      {"sig=", kZipErrLocalSignature},
      {"offset=200", kZipErrLocalSignature},
      {"offset=100000", kZipErrLocalShort},
      {"name=", 0},
  };
  for (const auto& c : cases) {
    std::filesystem::remove_all(Base());
    ZipRun run(Make("local", c.change));
    ASSERT_TRUE(run.loaded) << c.change;
    EXPECT_EQ(run.Run(Base()), c.code == 0) << c.change << "\n" << run.host.All();
    EXPECT_EQ(run.state.code, c.code) << c.change << "\n" << run.host.All();
    Tree want{{"good.txt", "file " + Repeat("good ", 100)}};
    if (c.code == 0) want["bad.txt"] = "file " + Repeat("bad ", 100);
    EXPECT_EQ(TreeDiff(want, TreeOf(Base())), "") << c.change;
  }
}

}  // namespace
