// Every zip of the corpus tested and extracted through the library, held against 7zz run on the
// same file: the verdict of Test against `7zz t`, and the extracted tree against the one `7zz x`
// makes, byte for byte, for every entry that both sides extracted. Our run goes in a child process
// with a watchdog, so that a crash or a hang is one file's failure and not the suite's end, and
// into a folder four levels down a jail that must hold nothing else afterwards. Where the two may
// rightly disagree the file is listed below with the reason and the kinds of difference; a listed
// file that differs otherwise, or not at all, fails too, so that the list stays true.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <map>
#include <set>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "RkArcCallback.h"
#include "RkArcSelection.h"
#include "RkArcTestUtil.h"
#include "RkState.h"
#include "RkZipFile.h"

using namespace RkArcLib;
using RkArcTest::ScratchFolder;
using RkLib::FidString;
using RkLib::RkString;
namespace fs = std::filesystem;

namespace {

constexpr int kWatchdogSeconds = 60;

// Kinds of disagreement, so that a listed file states which ones it is allowed.
enum Kind : unsigned {
  kVerdict = 1,   // Test and `7zz t` disagree on whether the archive is sound
  kBytes = 2,     // one path, both extracted, other bytes or another type
  kPeerOnly = 4,  // 7zz extracted it; we have nothing there
  kOursOnly = 8,  // we extracted it; 7zz has nothing there, or other bytes and an error
  kRenamed = 16,  // the same bytes under another name on each side
  kOrNone = 32,   // in a table row: the outcome depends on thread timing, and may agree
};

// Files on which the two may rightly disagree: the kinds of difference that follow, and why.
struct Known {
  unsigned kinds;
  std::vector<std::string> files;
  const char* reason;
};

const std::vector<Known>& KnownDifferences() {
  // clang-format off
  static const std::vector<Known> known = {
      {kRenamed, {"commons-compress/zip/utf8-7zip-test.zip", "cpython/zip_cp437_header.zip",
                  "libarchive/zip/test_read_format_zip_filename_cp866.zip",
                  "libarchive/zip/test_read_format_zip_filename_cp932.zip",
                  "libarchive/zip/test_read_format_zip_filename_utf8_ru2.zip"},
       "a name without the UTF-8 flag is decoded by its host (DOS: page 437, Windows: 437 or 1252, Unix: UTF-8 "
       "with U+FFFD for bad bytes) and written as UTF-8; 7zz writes the stored bytes"},
      {kRenamed | kPeerOnly, {"libarchive/zip/test_read_format_zip_filename_koi8r.zip"},
       "two KOI8-R names from a Unix host both decode to six U+FFFD: one output name, and the second entry "
       "ends our run (267)"},
      {kRenamed, {"libarchive/zip/test_read_format_zip_7075_utf8_paths.zip"},
       "we take the name from the Unicode path record; 7zz writes the stored bytes"},
      {kRenamed, {"libarchive/zip/test_compat_zip_8.zip"},
       "'\\' between the parts is a separator to us; 7zz keeps it in the name"},
      {kRenamed | kPeerOnly, {"commons-compress/zip/test-winzip.zip"},
       "as above, and 7zz makes a folder whose name ends in '\\'"},
      {kOursOnly | kOrNone, {"go-zip/dupdir.zip"},
       "a/b is a file and a folder: 7zz keeps the file; we make the folder (the file's item has not yet made "
       "its file when the folder's is prepared) and end the run (13) at the file"},
      {kOursOnly, {"commons-compress/zip/synthetic_long-name.zip"},
       "a name of 32767 characters: 7zz cannot make it, our loader shortens it"},
      {kBytes, {"commons-compress/zip/COMPRESS-379.jar", "libarchive/zip/test_read_format_zip_nofiletype.zip"},
       "Unix host with a mode that is no folder's: the mode decides, not the trailing '/', so we write a file "
       "where 7zz makes a folder"},
      {kPeerOnly, {"commons-compress/zip/COMPRESS-647_test.zip",
                   "libarchive/zip/test_read_format_zip_extra_padding.zip"},
       "no intact end record (cut short, or its signature damaged): we refuse the file (200), 7zz salvages "
       "entries from the local headers"},
      {kPeerOnly, {"commons-compress/zip/bla-stored-dd.zip"},
       "the end record's directory offset is 16 short: we refuse the file (200), 7zz finds the directory"},
      {kVerdict, {"go-zip/test-badbase.zip", "go-zip/test-baddirsz.zip"},
       "the end record's directory size is short: 7zz calls it an error, we walk by count"},
      {kVerdict, {"go-zip/comment-truncated.zip"},
       "the end record's comment runs past the end of the file: 7zz calls that an error, we do not"},
      {kVerdict, {"commons-compress/zip/archive_with_bytes_after_data.zip"},
       "junk after each entry's data: 7zz calls that an error and writes the same bytes"},
      {kVerdict | kOursOnly, {"defacto2-archive/HWREDUCE.ZIP", "defacto2-archive/expand_example-r.zip"},
       "7zz does not decode Reduce (method 5); our output passes its CRC"},
      {kVerdict | kPeerOnly, {"commons-compress/zip/split/split_zip_created_by_zip/split_zip_created_by_zip.zip",
                              "commons-compress/zip/split/split_zip_created_by_zip/split_zip_created_by_zip_zip64.zip",
                              "commons-compress/zip/split/split_zip_created_by_winrar/split_zip_created_by_winrar.zip"},
       "spanned sets: only the named last part is open until the parts are read together, so the "
       "entries stored in .z01/.z02 fail with 11 (their local header cannot be reached)"},
  };
  // clang-format on
  return known;
}

int Sh(const std::string& command) { return std::system(command.c_str()); }
std::string Quote(const fs::path& p) { return "'" + p.string() + "'"; }
std::string Timed(const std::string& command) {
  return "timeout " + std::to_string(kWatchdogSeconds) + " " + command + " </dev/null";
}

std::string ReadAll(const fs::path& path) {
  std::ifstream in(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), {});
}

// What a path below an extraction root holds: a folder (empty or not), a file's bytes or a link's
// text. Links are never followed. `failed`: 7zz named the entry in an error, so what it left
// there is no reference.
struct Node {
  char type = 'f';
  std::string data;
  bool empty = false;
  bool failed = false;
  bool operator==(const Node& o) const { return type == o.type && data == o.data; }
};
using Tree = std::map<std::string, Node>;

Tree ReadTree(const fs::path& root) {
  Tree tree;
  std::error_code ec;
  for (auto it = fs::recursive_directory_iterator(root, ec); !ec && it != fs::recursive_directory_iterator();
       it.increment(ec)) {
    Node node;
    const fs::file_status status = it->symlink_status();
    if (fs::is_symlink(status)) {
      node = {'l', fs::read_symlink(it->path(), ec).string()};
    } else if (fs::is_directory(status)) {
      node = {'d', {}, fs::is_empty(it->path(), ec)};
    } else {
      node.data = ReadAll(it->path());
    }
    tree[it->path().lexically_relative(root).generic_string()] = node;
  }
  return tree;
}

// Our side of one archive, as the child process wrote it.
struct Ours {
  std::string failure;  // crash, hang or a write outside the base; empty when none
  bool loaded = false, tested = false;
  uint32_t loadCode = 0, testCode = 0, extractCode = 0;
  std::string messages = {};
};

class Recorder : public RkArcCallback {
 public:
  bool ReportMessage(uint32_t level, const RkString& text) override {
    if (level > 0) messages += "[" + std::to_string(level) + "] " + text.toUtf8() + "\n";
    return true;
  }
  int AskFileExists(const FidString&, const RkArcItem&) override { return kArcExistsReplace; }
  std::string messages;
};

// Runs in the child: load, test everything, extract everything under `base`, write the outcome.
[[noreturn]] void LoadTestExtract(const fs::path& archive, const fs::path& base, const fs::path& result) {
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
  // A size read from the file that turns into an allocation shows as a failure, not a swap storm.
  const rlimit memory = {3ull << 30, 3ull << 30};
  ::setrlimit(RLIMIT_AS, &memory);
#endif
  Recorder callback;
  RkZipFile zip(FidString::FromPosix(archive.string()));
  zip.SetCallback(&callback);
  RkState load, test, extract;
  zip.Load(0, -1, nullptr, load);
  bool tested = false;
  if (zip.IsLoaded()) {
    RkArcSelection all(zip.GetSupportInfo());
    tested = zip.Test(all, test);
    RkArcSelection into(zip.GetSupportInfo());
    into.SetBaseFolder(FidString::FromPosix(base.string()));
    zip.Extract(into, extract);
  }
  std::ofstream(result, std::ios::binary)
      << zip.IsLoaded() << ' ' << load.code << ' ' << tested << ' ' << test.code << ' ' << extract.code << '\n'
      << callback.messages;
  std::_Exit(0);
}

Ours RunOurs(const fs::path& archive, const fs::path& scratch) {
  Ours ours;
  const fs::path jail = scratch / "jail", base = jail / "a/b/c/ours", result = scratch / "result";
  fs::create_directories(base);
  const pid_t child = ::fork();
  if (child == 0) LoadTestExtract(archive, base, result);
  if (child < 0) return {"fork failed"};
  int status = 0;
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(kWatchdogSeconds);
  while (::waitpid(child, &status, WNOHANG) == 0) {
    if (std::chrono::steady_clock::now() > deadline) {
      ::kill(child, SIGKILL);
      ::waitpid(child, &status, 0);
      return {"no end within " + std::to_string(kWatchdogSeconds) + " s"};
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }
  if (WIFSIGNALED(status)) return {"crashed with signal " + std::to_string(WTERMSIG(status))};
  std::istringstream in(ReadAll(result));
  if (!(in >> ours.loaded >> ours.loadCode >> ours.tested >> ours.testCode >> ours.extractCode))
    return {"the child left no result"};
  ours.messages = in.str().substr(std::min<size_t>(in.str().size(), static_cast<size_t>(in.tellg()) + 1));
  // The jail holds the chain down to the base and nothing else; the base holds no link.
  for (const auto& [path, node] : ReadTree(jail)) {
    const bool chain = path == "a" || path == "a/b" || path == "a/b/c" || path == "a/b/c/ours";
    if (!chain && !path.starts_with("a/b/c/ours/")) ours.failure += "written outside the base: " + path + "; ";
    if (node.type == 'l') ours.failure += "a symbolic link was made: " + path + "; ";
  }
  return ours;
}

// 7zz's extraction: its tree, with every entry it reported failed marked. A link it would not make
// because its target climbs becomes the file we write for it, holding the target.
Tree PeerTree(const fs::path& archive, const fs::path& dir) {
  // A wrong password makes 7zz name each encrypted entry it fails, instead of waiting for one.
  const fs::path log = dir.string() + ".log";
  Sh(Timed("7zz x -y -pX " + Quote("-o" + dir.string()) + " " + Quote(archive)) + " >" + Quote(log) + " 2>&1");
  Tree tree = ReadTree(dir);
  std::istringstream lines(ReadAll(log));
  for (std::string line; std::getline(lines, line);) {
    if (!line.starts_with("ERROR: ")) continue;
    std::vector<std::string> fields;
    for (size_t at = 0, end; at <= line.size(); at = end + 3) {
      end = std::min(line.find(" : ", at), line.size());
      fields.push_back(line.substr(at, end - at));
    }
    for (size_t i = 1; i < fields.size(); ++i) {
      std::string path = fields[i];
      if (path.starts_with(dir.string() + "/")) path = path.substr(dir.string().size() + 1);
      const auto found = tree.find(path);
      if (found == tree.end() || found->second.type == 'd') continue;
      if (fields[0] == "ERROR: Dangerous link path was ignored" && i == 1 && fields.size() == 3) {
        found->second.data = fields[2];
      } else {
        found->second.failed = true;
      }
    }
  }
  for (auto& [path, node] : tree) {
    if (node.type == 'l') node.type = 'f';  // our library writes a link as a file holding its text
  }
  return tree;
}

struct Comparison {
  unsigned kinds = 0;
  size_t compared = 0;  // files and links found equal at one path
  std::string text;
  std::map<Kind, int> shown;
};

// Records a difference; the first three of each kind are named.
void Note(Comparison& c, Kind kind, const std::string& what) {
  c.kinds |= kind;
  if (++c.shown[kind] <= 3) c.text += what + "; ";
}

Comparison CompareTrees(const Tree& peer, const Tree& ours) {
  Comparison c;
  std::vector<std::string> peerOnly, oursOnly;
  for (const auto& [path, node] : peer) {
    const auto found = ours.find(path);
    if (node.failed) {
      // Both failing it, or both writing the same bytes in spite of 7zz's error, is no difference.
      if (found != ours.end() && !(found->second == node)) Note(c, kOursOnly, "7zz failed '" + path + "'");
    } else if (found == ours.end()) {
      if (node.type != 'd' || node.empty) peerOnly.push_back(path);
    } else if (!(found->second == node)) {
      Note(c, kBytes,
           "'" + path + "' differs (" + node.type + " " + std::to_string(node.data.size()) + " / " +
               found->second.type + " " + std::to_string(found->second.data.size()) + ")");
    } else if (node.type != 'd') {
      ++c.compared;
    }
  }
  for (const auto& [path, node] : ours) {
    if (!peer.count(path) && (node.type != 'd' || node.empty)) oursOnly.push_back(path);
  }
  // Names in a legacy code page or with '\' come out differently; the bytes still have to agree.
  for (const std::string& p : peerOnly) {
    const Node& node = peer.at(p);
    const auto same = std::find_if(oursOnly.begin(), oursOnly.end(),
                                   [&](const std::string& o) { return node.type == 'f' && ours.at(o) == node; });
    if (same != oursOnly.end()) {
      Note(c, kRenamed, "'" + p + "' is '" + *same + "'");
      oursOnly.erase(same);
    } else {
      Note(c, kPeerOnly, "only 7zz made '" + p + "'");
    }
  }
  for (const std::string& o : oursOnly) Note(c, kOursOnly, "only we made '" + o + "'");
  return c;
}

std::string KindNames(unsigned kinds) {
  const char* names[] = {"verdict", "bytes", "7zz only", "ours only", "renamed", "or none"};
  std::string s;
  for (int i = 0; i < 6; ++i) s += (kinds >> i & 1) ? std::string(s.empty() ? "" : ", ") + names[i] : "";
  return "[" + (s.empty() ? "none" : s) + "]";
}

bool IsZipLike(const fs::path& p) {
  std::string ext = p.extension().string();
  std::transform(ext.begin(), ext.end(), ext.begin(), [](unsigned char c) { return std::tolower(c); });
  return ext == ".zip" || ext == ".jar" || ext == ".zipx";
}

TEST(RkZipExtractCorpusTest, TestAndExtractAgreeWith7zzOrTheDifferenceIsKnown) {
  const fs::path corpus = RK_CORPUS_DIR;
  if (!fs::is_directory(corpus)) GTEST_SKIP() << "no test corpus at " << corpus;
  if (Sh("command -v 7zz >/dev/null && command -v timeout >/dev/null") != 0)
    GTEST_SKIP() << "7zz and timeout are needed: 7zz is the reference extractor";
  std::vector<fs::path> files;
  for (const auto& item : fs::recursive_directory_iterator(corpus)) {
    if (item.is_regular_file() && IsZipLike(item.path())) files.push_back(item.path());
  }
  std::sort(files.begin(), files.end());
  ASSERT_FALSE(files.empty()) << "no zip in the corpus at " << corpus;

  std::map<std::string, const Known*> known;
  for (const Known& k : KnownDifferences()) {
    for (const std::string& f : k.files) known[f] = &k;
  }
  std::set<std::string> seen;
  size_t agreed = 0, listed = 0, compared = 0;
  for (const fs::path& file : files) {
    const std::string relative = file.lexically_relative(corpus).generic_string();
    ScratchFolder scratch;
    const Ours ours = RunOurs(file, scratch.path());
    if (!ours.failure.empty()) {
      ADD_FAILURE() << relative << ": " << ours.failure;
      continue;
    }
    const bool peerSound = Sh(Timed("7zz t -pX " + Quote(file)) + " >/dev/null 2>&1") == 0;
    Comparison c =
        CompareTrees(PeerTree(file, scratch.path() + "/peer"), ReadTree(scratch.path() + "/jail/a/b/c/ours"));
    compared += c.compared;
    if (ours.loaded && ours.tested && !peerSound) Note(c, kVerdict, "we find it sound, 7zz does not");
    if (!(ours.loaded && ours.tested) && peerSound) Note(c, kVerdict, "7zz finds it sound, we do not");
    const std::string found = KindNames(c.kinds) + " " + c.text + "(load " + std::to_string(ours.loadCode) + ", test " +
                              std::to_string(ours.testCode) + ", extract " + std::to_string(ours.extractCode) + ")";
    const auto entry = known.find(relative);
    if (entry == known.end()) {
      if (c.kinds != 0) ADD_FAILURE() << relative << " " << found << "\n" << ours.messages.substr(0, 600);
      agreed += c.kinds == 0;
      continue;
    }
    seen.insert(relative);
    const unsigned listedKinds = entry->second->kinds;
    if (c.kinds != (listedKinds & ~kOrNone) && !(c.kinds == 0 && (listedKinds & kOrNone))) {
      ADD_FAILURE() << relative << " is listed as " << KindNames(entry->second->kinds) << " (" << entry->second->reason
                    << ") but is " << found;
    } else {
      ++listed;
      std::cout << "[ differs  ] " << relative << ": " << entry->second->reason << "\n             " << found << "\n";
    }
  }
  for (const auto& [path, k] : known) {
    if (!seen.count(path)) ADD_FAILURE() << "listed file not in the corpus: " << path;
  }
  std::cout << "[ corpus   ] " << files.size() << " zips: " << agreed << " agree, " << listed << " differ as listed; "
            << compared << " files compared byte for byte\n";
  EXPECT_GT(compared, 1000u);
}

}  // namespace
