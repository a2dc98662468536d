// The cleanup of close_viewer end to end: the real RkWipe64 lies beside this test program in the
// build's bin folder, as it lies beside a host executable when installed.
#include <gtest/gtest.h>

#include <pthread.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <string>
#include <thread>

#include "RkDocCollection.h"
#include "RkViewerRecord.h"

using namespace RkImgVwr;
namespace fs = std::filesystem;

namespace {

bool Exists(const std::string& path) {
  struct stat st;
  return lstat(path.c_str(), &st) == 0;
}

// The wiper detaches and works on its own; wait for its result with a deadline, not a sleep.
bool GoneWithin(const std::string& path, std::chrono::seconds limit) {
  auto deadline = std::chrono::steady_clock::now() + limit;
  while (Exists(path)) {
    if (std::chrono::steady_clock::now() > deadline) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }
  return true;
}

bool EmptyWithin(const std::string& folder, std::chrono::seconds limit) {
  auto deadline = std::chrono::steady_clock::now() + limit;
  while (!fs::is_empty(folder)) {
    if (std::chrono::steady_clock::now() > deadline) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }
  return true;
}

// Runs one test of `host` (a copy of this program) in a process of its own with `variable` set,
// and gives its exit status, or -1 when it did not exit.
int RunChild(const std::string& host, const std::string& test, const char* variable, const std::string& value) {
  const std::string filter = "--gtest_filter=" + test;
  pid_t pid = fork();
  if (pid < 0) return -1;
  if (pid == 0) {
    setenv(variable, value.c_str(), 1);
    execl(host.c_str(), host.c_str(), filter.c_str(), "--gtest_brief=1", static_cast<char*>(nullptr));
    _exit(127);
  }
  int status = 0;
  if (waitpid(pid, &status, 0) != pid || !WIFEXITED(status)) return -1;
  return WEXITSTATUS(status);
}

class RkTempWipe : public testing::Test {
 protected:
  void SetUp() override {
    std::string wiper = fs::read_symlink("/proc/self/exe").parent_path() / "RkWipe64";
    if (!std::getenv("RK_WIPE_CHILD_FOLDER") && !std::getenv("RK_WIPE_REPORT")) {
      ASSERT_TRUE(Exists(wiper)) << "RkWipe64 must be built beside this test program";
    }
    std::string tmpl = testing::TempDir() + "rkwipe-test-XXXXXX";
    ASSERT_NE(mkdtemp(tmpl.data()), nullptr);
    root_ = tmpl;
    temp_ = root_ + "/extract";
    listDir_ = root_ + "/lists";
    fs::create_directories(temp_);
    fs::create_directories(listDir_);
    archive_ = root_ + "/archive.zip";
    std::ofstream(archive_) << "PK";
    // List files go to TMPDIR: a private one shows whether one was left behind.
    const char* old = std::getenv("TMPDIR");
    savedTmpdir_ = old ? old : "";
    hadTmpdir_ = old != nullptr;
    setenv("TMPDIR", listDir_.c_str(), 1);
  }
  void TearDown() override {
    if (hadTmpdir_) {
      setenv("TMPDIR", savedTmpdir_.c_str(), 1);
    } else {
      unsetenv("TMPDIR");
    }
    fs::remove_all(root_);
  }

  // A document as the engine leaves it after extraction.
  RkSourceDocument* Extracted(RkDocCollection& c, const char* folder, const char* name, bool encrypted) {
    RkSourceDocument* d =
        c.add(RkString::FromUtf8(folder), RkString::FromUtf8(name), RkString::FromUtf8(name), 0, encrypted, false);
    fs::create_directories(d->fullFolder().ToPosix());
    std::ofstream(d->fullPath().ToPosix()) << "secret bytes of " << name;
    d->setExtracted(true);
    return d;
  }

  std::string root_, temp_, listDir_, archive_, savedTmpdir_;
  bool hadTmpdir_ = false;
};

TEST_F(RkTempWipe, EncryptedFilesGoToTheWiperAndTheFolderWithThem) {
  std::string a, b, plain;
  {
    RkDocCollection c(FidString::FromPosix(archive_), FidString::FromPosix(temp_), false, false);
    a = Extracted(c, "", "a.jpg", true)->fullPath().ToPosix();
    b = Extracted(c, "sub", "b.txt", true)->fullPath().ToPosix();
    RkSourceDocument* p = Extracted(c, "", "plain.png", false);
    plain = p->fullPath().ToPosix();
    wipeTemporaryFiles(&c);
    EXPECT_FALSE(Exists(plain)) << "an ordinary file is deleted at once";
    EXPECT_TRUE(p->getExtracted());
    EXPECT_TRUE(c.at(0)->getWiped());
    EXPECT_TRUE(c.at(1)->getWiped());
  }
  EXPECT_TRUE(GoneWithin(a, std::chrono::seconds(10)));
  EXPECT_TRUE(GoneWithin(b, std::chrono::seconds(10)));
  EXPECT_TRUE(GoneWithin(temp_, std::chrono::seconds(10))) << "no kept file, so the folder goes too";
  EXPECT_TRUE(EmptyWithin(listDir_, std::chrono::seconds(10))) << "the list file is removed after use";
}

TEST_F(RkTempWipe, KeptFileStaysAndSoDoesTheFolder) {
  std::string secret, kept;
  {
    RkDocCollection c(FidString::FromPosix(archive_), FidString::FromPosix(temp_), false, false);
    secret = Extracted(c, "", "one.jpg", true)->fullPath().ToPosix();
    RkSourceDocument* k = Extracted(c, "", "mine.jpg", false);
    k->setKeepFile(true);
    kept = k->fullPath().ToPosix();
    wipeTemporaryFiles(&c);  // one entry only: passed directly, no list file
    EXPECT_TRUE(c.at(0)->getWiped());
  }
  EXPECT_TRUE(GoneWithin(secret, std::chrono::seconds(10)));
  EXPECT_TRUE(Exists(kept));
  EXPECT_TRUE(Exists(temp_));
  EXPECT_TRUE(fs::is_empty(listDir_));
}

TEST_F(RkTempWipe, TemporaryFolderBehindALinkIsWipedThroughItsRealPath) {
  const std::string linked = root_ + "/linked";
  fs::create_directory_symlink(temp_, linked);
  std::string secret;
  {
    RkDocCollection c(FidString::FromPosix(archive_), FidString::FromPosix(linked), false, false);
    secret = Extracted(c, "", "behind.jpg", true)->fullPath().ToPosix();
    RkSourceDocument* k = Extracted(c, "", "kept.jpg", false);
    k->setKeepFile(true);
    wipeTemporaryFiles(&c);
    EXPECT_TRUE(c.at(0)->getWiped());
  }
  EXPECT_TRUE(GoneWithin(secret, std::chrono::seconds(10)));
  EXPECT_TRUE(Exists(temp_ + "/kept.jpg"));
}

TEST_F(RkTempWipe, NothingExtractedMeansNothingToDo) {
  std::string present = temp_ + "/earlier.jpg";
  std::ofstream(present) << "from an earlier run";
  {
    RkDocCollection c(FidString::FromPosix(archive_), FidString::FromPosix(temp_), false, false);
    c.add(u"", u"earlier.jpg", u"earlier.jpg", 0, true, false);  // on disk, but not extracted by us
    wipeTemporaryFiles(&c);
    EXPECT_FALSE(c.at(0)->getWiped());
  }
  EXPECT_TRUE(Exists(present));
}

// Run by the test below from a copy of this program that has no wiper beside it.
TEST_F(RkTempWipe, ChildWithoutWiper) {
  const char* folder = std::getenv("RK_WIPE_CHILD_FOLDER");
  if (!folder) GTEST_SKIP() << "runs only as the child of WithoutWiperTheCollectionDeletes";
  std::string temp = folder;
  std::string archive = temp + ".zip";
  std::string secret;
  {
    RkDocCollection c(FidString::FromPosix(archive), FidString::FromPosix(temp), false, false);
    secret = Extracted(c, "", "s.jpg", true)->fullPath().ToPosix();
    wipeTemporaryFiles(&c);
    EXPECT_FALSE(c.at(0)->getWiped());
    EXPECT_TRUE(Exists(secret)) << "without a wiper the cleanup leaves the file to the collection";
  }
  EXPECT_FALSE(Exists(secret));
  EXPECT_FALSE(Exists(temp));
}

TEST_F(RkTempWipe, WithoutWiperTheCollectionDeletes) {
  // A copy of this program in a folder of its own is a host without RkWipe64 beside it.
  std::string self = fs::read_symlink("/proc/self/exe");
  std::string host = root_ + "/host";
  fs::copy_file(self, host);
  std::string folder = root_ + "/child";
  fs::create_directories(folder);
  std::ofstream(folder + ".zip") << "PK";
  EXPECT_EQ(RunChild(host, "RkTempWipe.ChildWithoutWiper", "RK_WIPE_CHILD_FOLDER", folder), 0)
      << "the child's checks failed; run it by hand to see which";
}

// A descriptor number that no test framework opens by itself.
constexpr int kInheritedFd = 57;

// Run by the test below from a copy of this program that has a stand-in wiper beside it. The host
// holds a descriptor without close-on-exec, blocks one signal and ignores another, as a real host
// may; the stand-in reports what of that it inherited.
TEST_F(RkTempWipe, ChildLaunchingAStandIn) {
  if (!std::getenv("RK_WIPE_REPORT")) GTEST_SKIP() << "runs only as the child of WiperInheritsNothing";
  int fds[2];
  ASSERT_EQ(pipe(fds), 0);
  ASSERT_EQ(dup2(fds[1], kInheritedFd), kInheritedFd);  // dup2 clears close-on-exec
  signal(SIGUSR1, SIG_IGN);
  sigset_t blocked;
  sigemptyset(&blocked);
  sigaddset(&blocked, SIGUSR2);
  ASSERT_EQ(pthread_sigmask(SIG_BLOCK, &blocked, nullptr), 0);
  RkDocCollection c(FidString::FromPosix(archive_), FidString::FromPosix(temp_), false, false);
  Extracted(c, "", "s.jpg", true);
  wipeTemporaryFiles(&c);
  EXPECT_TRUE(c.at(0)->getWiped()) << "the stand-in was not launched";
}

TEST_F(RkTempWipe, WiperInheritsNothing) {
  const std::string bin = root_ + "/bin";
  fs::create_directories(bin);
  const std::string host = bin + "/host";
  fs::copy_file(fs::read_symlink("/proc/self/exe"), host);
  const std::string report = root_ + "/report.txt";
  {
    // Builtins only: while a shell waits for a child of its own it blocks every signal, and the
    // report would show that mask instead of the inherited one.
    std::ofstream script(bin + "/RkWipe64");
    script << "#!/bin/sh\n"
           << "{ [ -e /proc/$$/fd/" << kInheritedFd << " ] && echo fd open || echo fd closed\n"
           << "  while read -r key value; do\n"
           << "    case $key in SigBlk:|SigIgn:) echo \"$key $value\" ;; esac\n"
           << "  done < /proc/$$/status; } > \"$RK_WIPE_REPORT\"\n";
  }
  fs::permissions(bin + "/RkWipe64", fs::perms::owner_all);
  ASSERT_EQ(RunChild(host, "RkTempWipe.ChildLaunchingAStandIn", "RK_WIPE_REPORT", report), 0)
      << "the child's checks failed; run it by hand to see which";

  std::ifstream in(report);
  std::string line;
  std::map<std::string, std::string> seen;
  while (std::getline(in, line)) {
    size_t space = line.find_first_of(" \t");
    if (space != std::string::npos) seen[line.substr(0, space)] = line.substr(line.find_first_not_of(" \t", space));
  }
  EXPECT_EQ(seen["fd"], "closed") << "the host's descriptor reached the wiper";
  ASSERT_TRUE(seen.count("SigBlk:") && seen.count("SigIgn:")) << "no report from the stand-in";
  // Bit n-1 of the masks in /proc stands for signal n.
  const uint64_t blocked = std::stoull(seen["SigBlk:"], nullptr, 16);
  const uint64_t ignored = std::stoull(seen["SigIgn:"], nullptr, 16);
  EXPECT_EQ(blocked & (uint64_t{1} << (SIGUSR2 - 1)), 0u) << "the host's signal mask reached the wiper";
  EXPECT_EQ(ignored & (uint64_t{1} << (SIGUSR1 - 1)), 0u) << "an ignored signal stayed ignored in the wiper";
}

}  // namespace
