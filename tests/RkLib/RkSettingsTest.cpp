#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <climits>
#include <cstdlib>
#include <filesystem>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "RkSettings.h"
#include "RkSettingsImage.h"
#include "RkTestUtil.h"

using namespace RkLib;
namespace fs = std::filesystem;

namespace {

RkString U(const std::string& utf8) { return RkString::FromUtf8(utf8); }

constexpr RkHive kUser = RkHive::CurrentUser;

// Points both hives and the user's configuration folder into a fresh folder, and puts the
// environment back afterwards.
class RkSettingsTest : public testing::Test {
 protected:
  void SetUp() override {
    ASSERT_FALSE(scratch_.path().empty());
    Override("RK_REGISTRY_USER", user_.string());
    Override("RK_REGISTRY_MACHINE", machine_.string());
    Override("XDG_CONFIG_HOME", config_.string());
  }

  void TearDown() override {
    // Backwards, so that a variable overridden twice ends with its first saved value.
    for (auto it = saved_.rbegin(); it != saved_.rend(); ++it) {
      if (it->second) {
        setenv(it->first.c_str(), it->second->c_str(), 1);
      } else {
        unsetenv(it->first.c_str());
      }
    }
  }

  void Override(const std::string& name, const std::string& value) {
    const char* old = std::getenv(name.c_str());
    saved_.emplace_back(name, old ? std::optional<std::string>(old) : std::nullopt);
    setenv(name.c_str(), value.c_str(), 1);
  }

  static std::optional<RkRegValue> ReadUser(const char* key, const char* name) {
    return RkSettingsStore::Read(kUser, U(key), U(name));
  }

  RkScratchDir scratch_{"rksettings"};
  const fs::path dir_ = scratch_.path(), user_ = dir_ / "user/registry.ini", machine_ = dir_ / "machine/registry.ini",
                 config_ = dir_ / "config";
  std::vector<std::pair<std::string, std::optional<std::string>>> saved_;
};

TEST(RkSettingsImage, ValueSyntax) {
  const struct {
    const char* line;
    const char* name;
    std::optional<RkRegValue> expected;
  } cases[] = {
      {"S=\"text\"", "S", RkRegValue::String(U("text"))},
      {"S = plain text with = sign  ", "S", RkRegValue::String(U("plain text with = sign"))},
      {"S=", "S", RkRegValue::String(U(""))},
      {"S=\"a\\\"b\\\\c\\tdone\"", "S", RkRegValue::String(U("a\"b\\c\tdone"))},
      {"S=\"C:\\dir\\x4g\"", "S", RkRegValue::String(U("C:\\dir\\x4g"))},
      {"S=\"\\x01\\x7f\"", "S", RkRegValue::String(U("\x01\x7f"))},
      {"S=\"Gr\xC3\xBC\xC3\x9F" "e\"", "S", RkRegValue::String(U("Gr\xC3\xBC\xC3\x9F" "e"))},
      {"S=\"unterminated", "S", std::nullopt},
      {"S=\"ends in backslash\\", "S", std::nullopt},
      {"S=\"x\" junk", "S", std::nullopt},
      {"D=dword:0000000a", "D", RkRegValue::Dword(10)},
      {"D=DWORD:FFFFFFFF", "D", RkRegValue::Dword(0xFFFFFFFF)},
      {"D=dword:7", "D", RkRegValue::Dword(7)},
      {"D=dword:123456789", "D", std::nullopt},
      {"D=dword:", "D", std::nullopt},
      {"D=dword:12g", "D", std::nullopt},
      {"D=dword: 1", "D", std::nullopt},
      {"Q=qword:00000000deadbeef", "Q", RkRegValue::Qword(0xDEADBEEF)},
      {"Q=qword:ffffffffffffffff", "Q", RkRegValue::Qword(~uint64_t{0})},
      {"Q=qword:1ffffffffffffffff", "Q", std::nullopt},
      {"B=hex:01,02,ff", "B", RkRegValue::Binary({1, 2, 0xFF})},
      {"B=hex: 1 , a0", "B", RkRegValue::Binary({1, 0xA0})},
      {"B=hex:", "B", RkRegValue::Binary({})},
      {"B=hex:01,,02", "B", std::nullopt},
      {"B=hex:01,", "B", std::nullopt},
      {"B=hex:100", "B", std::nullopt},
      {"X=hex(2):41,00", "X", RkRegValue::String(U("hex(2):41,00"))},
      {"@=\"unnamed\"", "", RkRegValue::String(U("unnamed"))},
      {"\"@\"=\"at sign\"", "@", RkRegValue::String(U("at sign"))},
      {"\"a=b\"=\"quoted name\"", "a=b", RkRegValue::String(U("quoted name"))},
      {"\"a=b\" junk=\"x\"", "a=b", std::nullopt},
      {"=nameless", "", std::nullopt},
      {"no equals sign", "no equals sign", std::nullopt},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.line);
    std::optional<RkRegValue> got = RkSettingsImage(std::string("[Key]\n") + c.line + "\n").Find(U("Key"), U(c.name));
    ASSERT_EQ(got.has_value(), c.expected.has_value());
    if (got) {
      EXPECT_TRUE(*got == *c.expected) << "type " << got->type << " text " << got->text.toUtf8();
    }
  }
}

TEST(RkSettingsImage, SectionsAndDamage) {
  const std::string text =
      "\xEF\xBB\xBF"
      "orphan=\"before any section\"\r\n"
      "; comment=\"no\"\r\n"
      "[software\\RAKONA computing\\\xC3\x84pfel]   trailing\r\n"
      "\xFF\xFE garbage \x01\r\n"
      "Dup=dword:zz\r\n"
      "Dup=dword:2\r\n"
      "Mixed=\"first\"\r\n"
      "Mixed=\"second\"\r\n"
      "[broken\r\n"
      "Stray=\"belongs to no key\"\r\n"
      "[Software\\Rakona Computing\\\xC3\xA4pfel\\Sub]\r\n"
      "Deep=dword:1\r\n"
      "[Software\\Rakona Computing\\\xC3\x84pfelbaum]\r\n"
      "Other=dword:3";
  RkSettingsImage image(text);
  const RkString key = U("\\SOFTWARE\\Rakona Computing\\\xC3\xA4PFEL\\");
  EXPECT_TRUE(*image.Find(key, U("dup")) == RkRegValue::Dword(2));
  EXPECT_TRUE(*image.Find(key, U("MIXED")) == RkRegValue::String(U("first")));
  for (const char* absent : {"Stray", "Deep", "Other"}) EXPECT_FALSE(image.Find(key, U(absent))) << absent;
  EXPECT_FALSE(image.Find(U("orphan"), U("orphan")));
  EXPECT_TRUE(*image.Find(U("Software\\Rakona Computing\\\xC3\x84pfelbaum"), U("Other")) ==
              RkRegValue::Dword(3));

  EXPECT_TRUE(image.HasKey(key));
  EXPECT_TRUE(image.HasKey(U("software")));
  EXPECT_TRUE(image.HasKey(U("Software\\Rakona Computing\\\xC3\xA4pfel\\sub")));
  for (const char* absent : {"Software\\Rakona Computing\\\xC3\xA4pfel\\Sub\\Deeper", "Software\\Rakona", "broken",
                             "\\"}) {
    EXPECT_FALSE(image.HasKey(U(absent))) << absent;
  }
}

TEST(RkSettingsImage, RewritesKeepTheRest) {
  const std::string text = "; settings\n[A]\nKeep=\"1\"\nName=\"old\"\n\n[B]\nKeep=\"2\"\n[a]\nNAME=\"duplicate\"\n";
  RkSettingsImage image(text);
  std::string replaced = *image.WithValue(U("a"), U("name"), RkRegValue::Dword(5));
  EXPECT_EQ(replaced, "; settings\n[A]\nKeep=\"1\"\nname=dword:00000005\n\n[B]\nKeep=\"2\"\n[a]\n");

  std::string added = *image.WithValue(U("A"), U("New"), RkRegValue::String(U("x")));
  EXPECT_EQ(added.substr(0, added.find("\n\n")), "; settings\n[A]\nKeep=\"1\"\nName=\"old\"\nNew=\"x\"");

  std::string newKey = *RkSettingsImage("[A]\nKeep=1").WithValue(U("\\C\\D\\"), U(""), RkRegValue::Qword(1));
  EXPECT_EQ(newKey, "[A]\nKeep=1\n\n[C\\D]\n@=qword:0000000000000001\n");

  EXPECT_EQ(*image.WithoutValue(U("A"), U("name")), "; settings\n[A]\nKeep=\"1\"\n\n[B]\nKeep=\"2\"\n[a]\n");
  EXPECT_FALSE(image.WithoutValue(U("A"), U("Absent")));
  EXPECT_FALSE(image.WithoutValue(U("Absent"), U("Keep")));

  EXPECT_EQ(*RkSettingsImage("\xEF\xBB\xBF" + text).WithoutKey(U("a")), "\xEF\xBB\xBF; settings\n[B]\nKeep=\"2\"\n");
  EXPECT_FALSE(image.WithoutKey(U("Absent")));

  for (const char* bad : {"", "\\\\", " ", "line\nbreak", "tab\there"}) {
    EXPECT_FALSE(image.WithValue(U(bad), U("x"), RkRegValue::Dword(1))) << bad;
  }
}

TEST(RkSettingsImage, AwkwardNamesRoundTrip) {
  for (const char* name : {"", "@", " lead", "trail ", "a=b", "\"q\"", "[x", ";c", "#h", "back\\slash",
                           "nl\nx", "tab\tx", "\xE2\x82\xAC"}) {
    SCOPED_TRACE(name);
    std::string text = *RkSettingsImage("").WithValue(U("K"), U(name), RkRegValue::String(U(name)));
    std::optional<RkRegValue> back = RkSettingsImage(text).Find(U("K"), U(name));
    ASSERT_TRUE(back);
    EXPECT_TRUE(*back == RkRegValue::String(U(name))) << text;
  }
}

TEST(RkSettingsImage, ProfileView) {
  RkSettingsImage image(
      "[Rakona]\nPlain = 12 \nQuoted=\"  spaced  \"\nSingle='x'\nLone=\"\n@=literal\nEscapes=\"a\\nb\"\n");
  const std::pair<const char*, const char*> found[] = {{"plain", "12"}, {"Quoted", "  spaced  "}, {"Single", "x"},
                                                       {"Lone", "\""}, {"@", "literal"}, {"Escapes", "a\\nb"}};
  for (const auto& [name, text] : found) {
    std::optional<RkString> got = image.FindText(U("RAKONA"), U(name));
    ASSERT_TRUE(got) << name;
    EXPECT_EQ(got->toUtf8(), text) << name;
  }
  EXPECT_FALSE(image.FindText(U("Rakona"), U("Missing")));
  EXPECT_FALSE(image.FindText(U("Other"), U("Plain")));
}

TEST_F(RkSettingsTest, WriteThenReadBackEveryType) {
  const std::vector<RkRegValue> values = {
      RkRegValue::String(U("text with \"quotes\", \\ and\nlines")), RkRegValue::String(U("")), RkRegValue::Dword(0),
      RkRegValue::Dword(0xFFFFFFFF), RkRegValue::Qword(0x0123456789ABCDEF), RkRegValue::Binary({}),
      RkRegValue::Binary({0, 0x7F, 0x80, 0xFF})};
  for (size_t i = 0; i < values.size(); ++i) {
    ASSERT_TRUE(RkSettingsStore::Write(kUser, U("Software\\Test"), U("Value" + std::to_string(i)), values[i]));
  }
  for (size_t i = 0; i < values.size(); ++i) {
    std::optional<RkRegValue> back = RkSettingsStore::Read(kUser, U("software\\test"), U("VALUE" + std::to_string(i)));
    ASSERT_TRUE(back) << i;
    EXPECT_TRUE(*back == values[i]) << i;
  }
  EXPECT_FALSE(RkSettingsStore::Read(RkHive::LocalMachine, U("Software\\Test"), U("Value0")));
  EXPECT_FALSE(fs::exists(machine_));
}

TEST_F(RkSettingsTest, RewriteIsAtomicAndKeepsOtherValues) {
  RkWriteFile(user_, "; hand-written\n[Software\\Keep]\nA=\"1\"\n\n[Software\\Edit]\nB=dword:00000001\nC=\"c\"\n");
  fs::permissions(user_, fs::perms::owner_read | fs::perms::owner_write);
  struct stat before, after;
  ASSERT_EQ(stat(user_.c_str(), &before), 0);

  ASSERT_TRUE(RkSettingsStore::Write(kUser, U("Software\\Edit"), U("B"), RkRegValue::Dword(2)));
  EXPECT_EQ(RkReadFile(user_),
            "; hand-written\n[Software\\Keep]\nA=\"1\"\n\n[Software\\Edit]\nB=dword:00000002\nC=\"c\"\n");
  EXPECT_EQ(fs::status(user_).permissions() & fs::perms::all, fs::perms::owner_read | fs::perms::owner_write);
  // A new file renamed over the old one, not the old one written in place.
  ASSERT_EQ(stat(user_.c_str(), &after), 0);
  EXPECT_NE(before.st_ino, after.st_ino);
  size_t files = 0;
  for ([[maybe_unused]] const auto& entry : fs::directory_iterator(user_.parent_path())) ++files;
  EXPECT_EQ(files, 1u) << "a temporary file was left behind";
}

TEST_F(RkSettingsTest, ChangedFileIsSeen) {
  RkWriteFile(user_, "[K]\nV=\"one\"\n");
  EXPECT_TRUE(*ReadUser("K", "V") == RkRegValue::String(U("one")));
  RkWriteFile(user_, "[K]\nV=\"two\"\n");
  EXPECT_TRUE(*ReadUser("K", "V") == RkRegValue::String(U("two")));
}

TEST_F(RkSettingsTest, DeleteValueAndKey) {
  // Deleting from no store creates none.
  EXPECT_FALSE(RkSettingsStore::DeleteValue(kUser, U("A"), U("X")));
  EXPECT_FALSE(RkSettingsStore::DeleteKey(kUser, U("A")));
  EXPECT_FALSE(RkSettingsStore::KeyExists(kUser, U("A")));
  EXPECT_FALSE(fs::exists(user_));

  RkWriteFile(user_, "[A]\nX=\"1\"\n[A\\B]\nY=\"2\"\n[A\\B\\C]\nZ=\"3\"\n[A\\BC]\nW=\"4\"\n");
  EXPECT_FALSE(RkSettingsStore::DeleteValue(kUser, U("A"), U("Y")));
  EXPECT_TRUE(RkSettingsStore::DeleteValue(kUser, U("A\\b"), U("y")));
  EXPECT_FALSE(ReadUser("A\\B", "Y"));
  EXPECT_TRUE(RkSettingsStore::KeyExists(kUser, U("A\\B")));

  EXPECT_TRUE(RkSettingsStore::DeleteKey(kUser, U("a\\b")));
  EXPECT_FALSE(RkSettingsStore::KeyExists(kUser, U("A\\B")));
  EXPECT_FALSE(ReadUser("A\\B\\C", "Z"));
  EXPECT_TRUE(ReadUser("A", "X"));
  EXPECT_TRUE(ReadUser("A\\BC", "W"));
  EXPECT_FALSE(RkSettingsStore::DeleteKey(kUser, U("A\\B")));
}

// A folder where the file should be: the unreadable store that stays unreadable for root.
TEST_F(RkSettingsTest, FolderInPlaceOfTheStore) {
  fs::create_directories(user_);
  EXPECT_FALSE(ReadUser("K", "V"));
  EXPECT_FALSE(RkSettingsStore::KeyExists(kUser, U("K")));
  EXPECT_FALSE(RkSettingsStore::Write(kUser, U("K"), U("V"), RkRegValue::Dword(1)));
  EXPECT_TRUE(fs::is_directory(user_));
  EXPECT_EQ(readSettingInt(U("Rakona"), U("V"), 5, U("rakona32.ini")), 5);
  fs::create_directories(config_ / "Rakona Computing" / "folder.ini");
  EXPECT_EQ(readSettingInt(U("Rakona"), U("V"), 5, U("folder.ini")), 5);
}

TEST_F(RkSettingsTest, UnreadableStoreIsNotOverwritten) {
  RkWriteFile(machine_, "[K]\nV=\"secret\"\n");
  fs::permissions(machine_, fs::perms::none);
  if (geteuid() == 0) GTEST_SKIP() << "root reads a file of mode 000";
  EXPECT_FALSE(RkSettingsStore::Read(RkHive::LocalMachine, U("K"), U("V")));
  EXPECT_FALSE(RkSettingsStore::Write(RkHive::LocalMachine, U("K"), U("W"), RkRegValue::Dword(1)));
  fs::permissions(machine_, fs::perms::owner_read);
  EXPECT_EQ(RkReadFile(machine_), "[K]\nV=\"secret\"\n");
}

TEST_F(RkSettingsTest, FileSizeCap) {
  const std::string head = "[K]\nV=\"found\"\n;";
  std::string atCap = head + std::string(RkSettingsStore::kMaxFileBytes - head.size(), 'x');
  RkWriteFile(user_, atCap);
  EXPECT_TRUE(ReadUser("K", "V"));

  RkWriteFile(user_, atCap + "x");
  EXPECT_FALSE(ReadUser("K", "V"));
  EXPECT_FALSE(RkSettingsStore::Write(kUser, U("K"), U("W"), RkRegValue::Dword(1)));
  EXPECT_EQ(fs::file_size(user_), RkSettingsStore::kMaxFileBytes + 1);
}

TEST_F(RkSettingsTest, ConcurrentWritersLoseNothing) {
  constexpr int kThreads = 4, kEach = 10;
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([t] {
      for (int i = t * 100; i < t * 100 + kEach; ++i) {
        RkSettingsStore::Write(kUser, U("K"), U("T" + std::to_string(i)), RkRegValue::Dword(static_cast<uint32_t>(i)));
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  for (int t = 0; t < kThreads; ++t) {
    for (int i = t * 100; i < t * 100 + kEach; ++i) {
      std::optional<RkRegValue> v = RkSettingsStore::Read(kUser, U("K"), U("T" + std::to_string(i)));
      ASSERT_TRUE(v) << i;
      EXPECT_EQ(v->number, static_cast<uint64_t>(i));
    }
  }
}

TEST_F(RkSettingsTest, HivePaths) {
  EXPECT_EQ(RkSettingsStore::HivePath(kUser), user_.string());
  unsetenv("RK_REGISTRY_USER");
  unsetenv("RK_REGISTRY_MACHINE");
  EXPECT_EQ(RkSettingsStore::HivePath(kUser), (config_ / "Rakona Computing/registry.ini").string());
  EXPECT_EQ(RkSettingsStore::HivePath(RkHive::LocalMachine), "/etc/xdg/Rakona Computing/registry.ini");
  Override("XDG_CONFIG_HOME", "relative/ignored");
  Override("HOME", dir_.string());
  EXPECT_EQ(RkSettingsStore::HivePath(kUser), (dir_ / ".config/Rakona Computing/registry.ini").string());
}

struct IntCase {
  const char* stored;  // a line under the key, or null for none
  int32_t expected;
};

TEST_F(RkSettingsTest, ReadSettingIntFromTheStore) {
  const IntCase cases[] = {
      {"Count=\"4\"", 4},      {"Count=  12abc", 12},    {"Count=\" \t+8\"", 8},
      {"Count=\"-5\"", -5},    {"Count=\"abc\"", 0},     {"Count=\"\"", 0},
      {"Count=\"0x10\"", 0},   {"Count=\"99999999999\"", INT32_MAX}, {"Count=\"-99999999999\"", INT32_MIN},
      {"Count=dword:00000005", 77}, {"Count=hex:05", 77}, {"Count=dword:bad", 77},
      {"Other=\"5\"", 77},     {nullptr, 77},
  };
  for (const IntCase& c : cases) {
    SCOPED_TRACE(c.stored ? c.stored : "(none)");
    RkWriteFile(user_, c.stored ? "[Software\\Rakona Computing\\Rakona\\Rakona]\n" + std::string(c.stored) : "");
    EXPECT_EQ(readSettingInt(U("Rakona"), U("Count"), 77, U("rakona32.ini")), c.expected);
    EXPECT_EQ(readSettingInt(U("RAKONA"), U("count"), 77, U("RAKONA")), c.expected);
  }
  fs::remove(user_);
  EXPECT_EQ(readSettingInt(U("Rakona"), U("Count"), -3, U("rakona32.ini")), -3);
}

TEST_F(RkSettingsTest, ReadSettingIntFromAProfileFile) {
  const IntCase cases[] = {
      {"Count=7", 7},   {"Count = 12abc", 12}, {"Count=\"42\"", 42}, {"Count=-3", 0},
      {"Count=abc", 0}, {"Count=dword:5", 0},  {"Count=", 77},       {"Count=99999999999", INT32_MAX},
      {"Other=5", 77},  {nullptr, 77},
  };
  const fs::path profile = config_ / "Rakona Computing" / "tuning.ini";
  for (const IntCase& c : cases) {
    SCOPED_TRACE(c.stored ? c.stored : "(none)");
    RkWriteFile(profile, c.stored ? "[rakona]\n" + std::string(c.stored) + "\n" : "");
    EXPECT_EQ(readSettingInt(U("Rakona"), U("count"), 77, U("tuning.ini")), c.expected);
  }
  // Backslashes in a name are path separators, and a leading one makes it absolute.
  std::string windowsStyle = profile.string();
  for (char& ch : windowsStyle) ch = ch == '/' ? '\\' : ch;
  RkWriteFile(profile, "[Rakona]\nCount=9\n");
  EXPECT_EQ(readSettingInt(U("Rakona"), U("Count"), 77, U(windowsStyle)), 9);
  EXPECT_EQ(readSettingInt(U("Rakona"), U("Count"), 77, U("missing.ini")), 77);
}

TEST_F(RkSettingsTest, TheNamePrefixChoosesTheStore) {
  RkWriteFile(user_, "[Software\\Rakona Computing\\Rakona\\Rakona]\nCount=\"1\"\n");
  for (const char* name : {"Rakon.ini", "xRakona.ini", "rakona"}) {
    RkWriteFile(config_ / "Rakona Computing" / name, "[Rakona]\nCount=2\n");
  }
  const std::pair<const char*, int> names[] = {
      {"rakona", 1}, {"RaKoNa32.ini", 1}, {"Rakon.ini", 2}, {"xRakona.ini", 2}};
  for (const auto& [name, from] : names) EXPECT_EQ(readSettingInt(U("Rakona"), U("Count"), 0, U(name)), from) << name;
}

TEST_F(RkSettingsTest, ReadSettingString) {
  RkWriteFile(user_, "[Software\\Rakona Computing\\Rakona\\caution]\nImageQualityWarning=\"1\"\nN=dword:1\n");
  RkWriteFile(config_ / "Rakona Computing" / "app.ini", "[caution]\nImageQualityWarning = \"0\" \n");
  RkString out = U("stale");
  EXPECT_TRUE(readSettingString(U("caution"), U("ImageQualityWarning"), U("d"), out, U("rakona32.ini")));
  EXPECT_EQ(out.toUtf8(), "1");
  EXPECT_FALSE(readSettingString(U("caution"), U("N"), U("d"), out, U("rakona32.ini")));
  EXPECT_EQ(out.toUtf8(), "d");
  EXPECT_TRUE(readSettingString(U("CAUTION"), U("imagequalitywarning"), U("d"), out, U("app.ini")));
  EXPECT_EQ(out.toUtf8(), "0");
  EXPECT_FALSE(readSettingString(U("caution"), U("Missing"), U("d"), out, U("app.ini")));
  EXPECT_EQ(out.toUtf8(), "d");
  fs::create_directories(user_.string() + ".d");
  setenv("RK_REGISTRY_USER", (user_.string() + ".d").c_str(), 1);
  EXPECT_FALSE(readSettingString(U("caution"), U("ImageQualityWarning"), U("d"), out, U("rakona32.ini")));
  EXPECT_EQ(out.toUtf8(), "d");
}

}  // namespace
