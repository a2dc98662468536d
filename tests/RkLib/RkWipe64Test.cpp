// RkWipe64 run the way the viewer runs it: a separate program, found beside this test executable.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <ostream>
#include <string>
#include <thread>
#include <vector>

#include "RkTestUtil.h"

extern char** environ;

namespace fs = std::filesystem;

namespace {

const std::string kBom = "\xEF\xBB\xBF";

std::string WiperPath() { return (fs::read_symlink("/proc/self/exe").parent_path() / "RkWipe64").string(); }

// Any bytes at all, NUL and line ends included; or with `never` set to 1, bytes that are never
// zero, so that an overwrite shows.
std::string Noise(size_t size, uint32_t seed, char never = 0) {
  std::string out(size, '\0');
  for (char& c : out) {
    seed = seed * 1103515245u + 12345u;
    c = static_cast<char>((seed >> 16) | never);
  }
  return out;
}
std::string Pattern(size_t size) { return Noise(size, 1, 1); }

class RkWipe64Test : public testing::Test {
 protected:
  struct Run {
    int status = -1;  // the exit status; -1 for a crash or a hang
    std::string messages;
  };

  void SetUp() override {
    ASSERT_TRUE(fs::exists(WiperPath())) << "build the RkWipe64 target: " << WiperPath();
    ASSERT_FALSE(root_.empty());
    fs::create_directory(work_);
  }

  std::string Work(const std::string& name) const { return work_ + "/" + name; }
  // The list as the viewer writes it: a byte order mark, then a line per path.
  std::string WriteList(const std::vector<std::string>& lines) const {
    std::string text = kBom;
    for (const std::string& line : lines) text += line + "\r\n";
    RkWriteFile(root_ + "/RKW1234.tmp", text);
    return root_ + "/RKW1234.tmp";
  }

  // Waits for the launched process with a deadline far beyond any real run, so that a wiper that
  // hangs fails its test instead of stopping the suite.
  Run RunWiper(const std::vector<std::string>& args) const {
    std::string wiper = WiperPath(), log = root_ + "/stderr.txt";
    std::vector<char*> argv{wiper.data()};
    std::vector<std::string> copies(args);
    for (std::string& a : copies) argv.push_back(a.data());
    argv.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 2, log.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    pid_t pid = 0;
    Run run;
    int spawned = posix_spawn(&pid, wiper.c_str(), &actions, nullptr, argv.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    if (spawned != 0) return run;
    int status = 0;
    auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(60);
    while (waitpid(pid, &status, WNOHANG) == 0) {
      if (std::chrono::steady_clock::now() > deadline) {
        kill(pid, SIGKILL);
        waitpid(pid, &status, 0);
        return run;
      }
      std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    if (WIFEXITED(status)) run.status = WEXITSTATUS(status);
    run.messages = RkReadFile(log);
    return run;
  }
  Run Wipe(const std::vector<std::string>& args) const {
    std::vector<std::string> all{"--no-detach"};
    all.insert(all.end(), args.begin(), args.end());
    return RunWiper(all);
  }

  RkScratchDir scratch_{"rkwipe"};
  const std::string root_ = scratch_.path(), work_ = root_ + "/files";
};

TEST_F(RkWipe64Test, OverwritesAFileBeforeUnlinkingIt) {
  // Over three blocks of the wiper, and not a whole number of them.
  const std::string content = Pattern((3 << 20) + 17);
  RkWriteFile(Work("secret.bin"), content);
  // The descriptor keeps the unlinked file readable, so the bytes the wiper left can be seen.
  int fd = open(Work("secret.bin").c_str(), O_RDONLY | O_CLOEXEC);
  ASSERT_GE(fd, 0);
  Run run = Wipe({Work("secret.bin"), "/nViewer"});
  EXPECT_EQ(run.status, 0) << run.messages;
  EXPECT_FALSE(RkPathPresent(Work("secret.bin")));
  std::string left(content.size() + 1, 'x');
  EXPECT_EQ(pread(fd, left.data(), left.size(), 0), static_cast<ssize_t>(content.size()));
  left.resize(content.size());
  EXPECT_EQ(left.find_first_not_of('\0'), std::string::npos);
  close(fd);
}

TEST_F(RkWipe64Test, AFileWithAnotherNameLosesOnlyTheListedName) {
  const std::string content = Pattern(5000);
  RkWriteFile(Work("listed"), content);
  ASSERT_EQ(link(Work("listed").c_str(), (root_ + "/other").c_str()), 0);
  Run run = Wipe({Work("listed")});
  EXPECT_EQ(run.status, 0) << run.messages;
  EXPECT_FALSE(RkPathPresent(Work("listed")));
  EXPECT_EQ(RkReadFile(root_ + "/other"), content);
}

struct ListForm {
  std::string name;
  std::string head;  // what precedes the first line
  std::string eol;
  bool lastLineEnded;
  bool backslashes;  // paths in the libraries' form
  bool blankLines;
};
void PrintTo(const ListForm& row, std::ostream* os) { *os << row.name; }

class RkWipe64ListTest : public RkWipe64Test, public testing::WithParamInterface<ListForm> {};

TEST_P(RkWipe64ListTest, WipesEveryListedFileAndDeletesTheList) {
  const ListForm& form = GetParam();
  RkWriteFile(Work("big"), Pattern((1 << 20) + 1));
  RkWriteFile(Work("empty"), "");
  RkWriteFile(Work("readonly"), "r");
  chmod(Work("readonly").c_str(), 0444);
  ASSERT_EQ(mkfifo(Work("pipe").c_str(), 0600), 0);  // opening it for writing could wait forever
  std::string text = form.head;
  for (const char* name : {"missing", "big", "empty", "readonly", "pipe"}) {  // a real file comes last
    std::string path = Work(name);
    if (form.backslashes) std::replace(path.begin(), path.end(), '/', '\\');
    if (form.blankLines) text += form.eol + " \t" + form.eol;
    text += path + form.eol;
  }
  if (!form.lastLineEnded) text.resize(text.size() - form.eol.size());
  std::string list = WriteList({});
  RkWriteFile(list, text);
  Run run = Wipe({"@" + list, "/nViewer"});
  EXPECT_EQ(run.status, 0) << run.messages;
  EXPECT_TRUE(fs::is_empty(work_));
  EXPECT_FALSE(RkPathPresent(list));
}

INSTANTIATE_TEST_SUITE_P(Forms, RkWipe64ListTest,
                         testing::Values(ListForm{"BomCrLf", kBom, "\r\n", true, false, false},
                                         ListForm{"NoBomBareLf", "", "\n", true, false, false},
                                         ListForm{"BlankLines", kBom, "\r\n", true, false, true},
                                         ListForm{"LibraryForm", kBom, "\r\n", true, true, false},
                                         ListForm{"LastLineWithoutEnd", kBom, "\r\n", false, false, false}),
                         RkCaseName());

struct FolderCase {
  std::string name;
  std::vector<std::string> listed;    // files inside the folder that the list names
  std::vector<std::string> unlisted;  // files inside it that it does not
  std::vector<std::string> subfolders;
  bool folderFirst;  // the folder's entry comes before its files
  int status;
  std::vector<std::string> remaining;  // what is left of the folder afterwards
};
void PrintTo(const FolderCase& row, std::ostream* os) { *os << row.name; }

class RkWipe64FolderTest : public RkWipe64Test, public testing::WithParamInterface<FolderCase> {};

TEST_P(RkWipe64FolderTest, RemovesTheFolderOnlyOnceEmpty) {
  const FolderCase& c = GetParam();
  fs::create_directory(Work("tmp"));
  for (const std::string& sub : c.subfolders) fs::create_directories(Work("tmp/" + sub));
  std::vector<std::string> lines;
  for (const std::string& f : c.listed) {
    RkWriteFile(Work("tmp/" + f), Pattern(100));
    lines.push_back(Work("tmp/" + f));
  }
  for (const std::string& f : c.unlisted) RkWriteFile(Work("tmp/" + f), "unlisted");
  lines.insert(c.folderFirst ? lines.begin() : lines.end(), Work("tmp/"));
  Run run = Wipe({"@" + WriteList(lines), "/nViewer"});
  EXPECT_EQ(run.status, c.status) << run.messages;
  std::vector<std::string> remaining;
  if (fs::exists(Work("tmp")))
    for (const auto& e : fs::recursive_directory_iterator(Work("tmp")))
      remaining.push_back(fs::relative(e.path(), Work("tmp")).string());
  std::sort(remaining.begin(), remaining.end());
  EXPECT_EQ(remaining, c.remaining);
  EXPECT_EQ(fs::exists(Work("tmp")), !c.remaining.empty());
  for (const std::string& f : c.unlisted) EXPECT_EQ(RkReadFile(Work("tmp/" + f)), "unlisted");
}

INSTANTIATE_TEST_SUITE_P(
    Cases, RkWipe64FolderTest,
    testing::Values(
        FolderCase{"Emptied", {"a", "b"}, {}, {}, false, 0, {}},
        FolderCase{"ListedBeforeItsFiles", {"a", "b"}, {}, {}, true, 0, {}},
        FolderCase{"EmptySubfolders", {"a"}, {}, {"s/t", "u"}, false, 0, {}},
        FolderCase{"UnlistedFileKeepsIt", {"a"}, {"keep"}, {}, false, 1, {"keep"}},
        FolderCase{
            "DeepUnlistedFile", {"a"}, {"s/t/keep"}, {"s/t", "u"}, false, 1, {"s", "s/t", "s/t/keep"}}),
    RkCaseName());

// A tree outside the wiper's folder that links lead to; it must come through untouched.
struct LinkCase {
  std::string name;
  std::string linkTarget;  // what work/link points at
  std::string entry;       // below work
  int status;
  bool linkRemains;
  bool libraryForm;  // the entry with `\\` separators
};
void PrintTo(const LinkCase& row, std::ostream* os) { *os << row.name; }

class RkWipe64LinkTest : public RkWipe64Test, public testing::WithParamInterface<LinkCase> {};

TEST_P(RkWipe64LinkTest, NeverFollowsALink) {
  const LinkCase& c = GetParam();
  const std::string secret = Pattern(3000);
  fs::create_directories(root_ + "/outside/sub");
  RkWriteFile(root_ + "/outside/secret", secret);
  fs::create_symlink(c.linkTarget, Work("link"));
  std::string entry = Work(c.entry);
  if (c.libraryForm) std::replace(entry.begin(), entry.end(), '/', '\\');
  Run run = Wipe({"@" + WriteList({entry})});
  EXPECT_EQ(run.status, c.status) << run.messages;
  EXPECT_EQ(RkPathPresent(Work("link")), c.linkRemains);
  EXPECT_EQ(RkReadFile(root_ + "/outside/secret"), secret);
  EXPECT_TRUE(fs::is_directory(root_ + "/outside/sub"));
}

INSTANTIATE_TEST_SUITE_P(
    Cases, RkWipe64LinkTest,
    testing::Values(LinkCase{"LinkToFile", "../outside/secret", "link", 0, false, false},
                    LinkCase{"DanglingLink", "../nowhere", "link", 0, false, false},
                    LinkCase{"LinkToFolderListedAsFolder", "../outside/sub", "link/", 1, true, false},
                    LinkCase{"FileBehindLinkedFolder", "../outside", "link/secret", 1, true, false},
                    LinkCase{"FolderBehindLinkedFolder", "../outside", "link/sub/", 1, true, false},
                    LinkCase{"LinkedFolderInLibraryForm", "../outside", "link/secret", 1, true, true}),
    RkCaseName());

struct ArgumentCase {
  std::string name;
  std::vector<std::string> args;  // "{file}" and "{list}" stand for the real paths
  int status;
  bool fileGone;
};
void PrintTo(const ArgumentCase& row, std::ostream* os) { *os << row.name; }

class RkWipe64ArgumentTest : public RkWipe64Test, public testing::WithParamInterface<ArgumentCase> {};

TEST_P(RkWipe64ArgumentTest, AcceptsTheLaunchersForms) {
  const ArgumentCase& c = GetParam();
  RkWriteFile(Work("file"), "content");
  std::string list = WriteList({Work("file")});
  std::vector<std::string> args;
  for (std::string a : c.args) {
    if (size_t at = a.find("{file}"); at != std::string::npos) a.replace(at, 6, Work("file"));
    if (size_t at = a.find("{list}"); at != std::string::npos) a.replace(at, 6, list);
    args.push_back(a);
  }
  Run run = RunWiper(args);
  EXPECT_EQ(run.status, c.status) << run.messages;
  EXPECT_EQ(!RkPathPresent(Work("file")), c.fileGone);
  if (c.status == 2) {
    EXPECT_NE(run.messages.find("usage"), std::string::npos);
  }
}

// Bad arguments are refused before detaching, so rows without --no-detach still see the 2.
INSTANTIATE_TEST_SUITE_P(
    Cases, RkWipe64ArgumentTest,
    testing::Values(
        ArgumentCase{"QuotedPathAndTitle", {"\"--no-detach\"", "\"{file}\"", "\"/nViewer\""}, 0, true},
        ArgumentCase{"QuotedList", {"--no-detach", "\"@{list}\"", "\"/nViewer\""}, 0, true},
        ArgumentCase{"QuotesAfterAt", {"--no-detach", "@\"{list}\"", "/nViewer"}, 0, true},
        ArgumentCase{"NoTitle", {"--no-detach", "{file}"}, 0, true},
        ArgumentCase{"UpperCaseSwitch", {"--no-detach", "{file}", "/NViewer"}, 0, true},
        ArgumentCase{"SwitchAndTitleApart", {"--no-detach", "{file}", "/n", "Viewer"}, 0, true},
        ArgumentCase{"QuotedSwitchAndTitleApart", {"--no-detach", "\"@{list}\"", "\"/n\"", "\"Viewer\""}, 0, true},
        ArgumentCase{"FourArguments", {"{file}", "/n", "Viewer", "more"}, 2, false},
        ArgumentCase{"NoArguments", {}, 2, false}, ArgumentCase{"OnlyNoDetach", {"--no-detach"}, 2, false},
        ArgumentCase{"TitleWithoutSwitch", {"{file}", "Viewer"}, 2, false},
        ArgumentCase{"ThreeArguments", {"{file}", "/nViewer", "more"}, 2, false},
        ArgumentCase{"EmptyQuotedPath", {"\"\"", "/nViewer"}, 2, false},
        ArgumentCase{"AtAlone", {"@", "/nViewer"}, 2, false},
        ArgumentCase{"RelativePath", {"files/file", "/nViewer"}, 2, false},
        ArgumentCase{"Root", {"/", "/nViewer"}, 2, false},
        ArgumentCase{"DotDot", {"{file}/../file", "/nViewer"}, 2, false}),
    RkCaseName());

// A missing list file is a failure, not a crash; the title reaches the message whichever form
// carried it.
TEST_F(RkWipe64Test, AMissingListFileFailsUnderTheTitle) {
  struct {
    std::vector<std::string> title;
    std::string prefix;
  } const rows[] = {
      {{"/nViewer"}, "RkWipe64 (Viewer): "},
      {{"/n", "Viewer"}, "RkWipe64 (Viewer): "},
      {{"\"/n\"", "\"Two Words\""}, "RkWipe64 (Two Words): "},
      {{"/n"}, "RkWipe64: "},
      {{}, "RkWipe64: "},
  };
  for (const auto& row : rows) {
    std::vector<std::string> args{"@" + root_ + "/RKWnone.tmp"};
    args.insert(args.end(), row.title.begin(), row.title.end());
    Run run = Wipe(args);
    EXPECT_EQ(run.status, 1) << row.prefix;
    EXPECT_EQ(run.messages.rfind(row.prefix, 0), 0u) << run.messages;
    EXPECT_NE(run.messages.find("cannot open the list file"), std::string::npos) << run.messages;
  }
}

TEST_F(RkWipe64Test, AFolderListedWithoutSeparatorIsKept) {
  fs::create_directory(Work("dir"));
  EXPECT_EQ(Wipe({Work("dir")}).status, 1);
  EXPECT_TRUE(fs::is_directory(Work("dir")));
}

// Lists the wiper must not obey in full, or at all.
struct GarbageCase {
  std::string name;
  std::function<std::string(const std::string& file)> content;  // the list, given a real file to list
  bool fileGone;
  std::string message;
  mode_t mode = 0600;  // the list file's
};
void PrintTo(const GarbageCase& row, std::ostream* os) { *os << row.name; }

class RkWipe64GarbageTest : public RkWipe64Test, public testing::WithParamInterface<GarbageCase> {};

TEST_P(RkWipe64GarbageTest, SurvivesAndDeletesTheList) {
  const GarbageCase& c = GetParam();
  RkWriteFile(Work("file"), "content");
  std::string list = WriteList({});
  RkWriteFile(list, c.content(Work("file")));
  chmod(list.c_str(), c.mode);
  Run run = Wipe({"@" + list, "/nViewer"});
  EXPECT_EQ(run.status, 1) << run.messages;
  EXPECT_EQ(RkReadFile(Work("file")), c.fileGone ? "" : "content");
  EXPECT_EQ(!RkPathPresent(Work("file")), c.fileGone);
  EXPECT_FALSE(RkPathPresent(list));
  EXPECT_NE(run.messages.find(c.message), std::string::npos) << run.messages;
}

std::string Utf16(const std::string& ascii) {
  std::string out = "\xFF\xFE";
  for (char ch : ascii) out += std::string{ch, '\0'};
  return out;
}

using S = const std::string&;
INSTANTIATE_TEST_SUITE_P(
    Cases, RkWipe64GarbageTest,
    testing::Values(
        GarbageCase{"RandomBytes", [](S f) { return Noise(200000, 7) + "\n" + f + "\n"; }, true, "skipped"},
        GarbageCase{"EndlessLastLine", [](S f) { return f + "\r\n" + std::string(1 << 20, '/'); }, true,
                    "longer than 64 KiB"},
        GarbageCase{"LongLineBeforeEntry",
                    [](S f) { return kBom + "/" + std::string(200000, 'a') + "\r\n" + f + "\r\n"; }, true,
                    "line 1 of the list, longer than 64 KiB"},
        GarbageCase{"Utf16List", [](S f) { return Utf16(f + "\r\n"); }, false, "NUL byte"},
        GarbageCase{"InvalidUtf8InLibraryForm", [](S f) { return f + "\n\\tmp\\\xFF\n"; }, true, "not valid UTF-8"},
        GarbageCase{"WritableByOthers", [](S f) { return kBom + f + "\r\n"; }, false, "not obeyed", 0666}),
    RkCaseName());

TEST_F(RkWipe64Test, DetachedWorkOutlivesTheLaunch) {
  RkWriteFile(Work("a"), Pattern(1000));
  RkWriteFile(Work("b"), Pattern(1000));
  std::string list = WriteList({Work("a"), Work("b"), work_ + "/"});
  // The launcher reaps the first process at once; the work goes on in a process of its own.
  EXPECT_EQ(RunWiper({"\"@" + list + "\"", "\"/nViewer\""}).status, 0);
  auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
  while ((RkPathPresent(work_) || RkPathPresent(list)) && std::chrono::steady_clock::now() < deadline)
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  EXPECT_FALSE(RkPathPresent(work_));
  EXPECT_FALSE(RkPathPresent(list));
}

}  // namespace
