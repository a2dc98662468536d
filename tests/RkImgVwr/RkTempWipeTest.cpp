// The cleanup of close_viewer end to end: the real RkWipe64 lies beside this test program in the
// build's bin folder, as it lies beside a host executable when installed.
#include <gtest/gtest.h>

#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
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

class RkTempWipe : public testing::Test {
 protected:
  void SetUp() override {
    std::string wiper = fs::read_symlink("/proc/self/exe").parent_path() / "RkWipe64";
    if (!std::getenv("RK_WIPE_CHILD_FOLDER")) {
      ASSERT_TRUE(Exists(wiper)) << "RkWipe64 must be built beside this test program";
    }
    char tmpl[] = "/tmp/rkwipe-test-XXXXXX";
    ASSERT_NE(mkdtemp(tmpl), nullptr);
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
  pid_t pid = fork();
  ASSERT_GE(pid, 0);
  if (pid == 0) {
    setenv("RK_WIPE_CHILD_FOLDER", folder.c_str(), 1);
    execl(host.c_str(), host.c_str(), "--gtest_filter=RkTempWipe.ChildWithoutWiper", "--gtest_brief=1",
          static_cast<char*>(nullptr));
    _exit(127);
  }
  int status = 0;
  ASSERT_EQ(waitpid(pid, &status, 0), pid);
  ASSERT_TRUE(WIFEXITED(status));
  EXPECT_EQ(WEXITSTATUS(status), 0) << "the child's checks failed; run it by hand to see which";
}

}  // namespace
