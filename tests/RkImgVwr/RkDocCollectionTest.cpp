// The document collection: construction's path checks, adding, the plain walks and the walks with
// extraction, saveAs, and what destruction leaves on disk.
//
// Extraction is driven through a collection whose engine follows a script: per archive path it
// writes the file, refuses the password, or produces nothing. A document whose file lies in the
// temporary folder before the walk counts as ready without any extraction.
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "../RkLib/RkTestUtil.h"
#include "RkDocCollection.h"
#include "RkError.h"
#include "RkLangModule.h"
#include "RkSystemError.h"
#include "RkViewerException.h"
#include "RkViewerState.h"

using namespace RkImgVwr;
namespace fs = std::filesystem;

namespace {

// What `f` throws; a failure when it throws nothing.
std::optional<RkViewerException> Thrown(const std::function<void()>& f) {
  try {
    f();
  } catch (const RkViewerException& e) {
    return e;
  }
  ADD_FAILURE() << "no exception";
  return std::nullopt;
}

// A collection whose engine extracts by script instead of from an archive.
class RkScriptedCollection final : public RkDocCollection {
 public:
  enum class Act { kNothing, kWrite, kRefuse, kClaimOnly };
  struct Call {
    std::u16string path;
    bool usePassword;
    uint64_t itemKey;
  };

  using RkDocCollection::RkDocCollection;

  bool ExtractOne(const FidString& path, bool usePassword, uint64_t itemKey, bool& passwordRefused) override {
    calls.push_back({path.str(), usePassword, itemKey});
    passwordRefused = false;
    auto it = script.find(path.str());
    switch (it == script.end() ? Act::kNothing : it->second) {
      case Act::kWrite:
        RkWriteFile(fs::path(FidString(tempFolder()).ToPosix()) / path.ToPosix(), "bytes of " + path.toUtf8());
        return true;
      case Act::kRefuse:
        passwordRefused = true;
        return false;
      case Act::kClaimOnly:
        return true;
      case Act::kNothing:
        break;
    }
    return false;
  }

  bool GetItemInfo(uint32_t index, RkString& name, bool& encrypted, uint64_t& size) override {
    if (index != 0 || firstEntries.empty()) return false;
    name =
        std::u16string_view(firstEntries[std::min(static_cast<size_t>(infoCalls), firstEntries.size() - 1)]);
    ++infoCalls;
    encrypted = false;
    size = 0;
    return true;
  }

  std::map<std::u16string, Act> script;
  // The archive's first entry as each GetItemInfo call sees it; the last one repeats.
  std::vector<std::u16string> firstEntries;
  std::vector<Call> calls;
  int infoCalls = 0;
};

using Act = RkScriptedCollection::Act;

class RkCollectionTest : public testing::Test {
 protected:
  void SetUp() override {
    ASSERT_FALSE(root_.empty());
    fs::create_directory(temp_);
    RkWriteFile(archive_, "PK");
  }

  static FidString Fid(const std::string& posix) { return FidString::FromPosix(posix); }
  // Destruction may have removed an empty temporary folder: each new collection gets it back.
  std::unique_ptr<RkScriptedCollection> Make(bool correctNames = false) {
    fs::create_directories(temp_);
    return std::make_unique<RkScriptedCollection>(Fid(archive_), Fid(temp_), correctNames, false);
  }
  void Touch(const std::string& relative, const std::string& text = "x") { RkWriteFile(InTemp(relative), text); }
  std::string InTemp(const std::string& relative) const { return temp_ + "/" + relative; }

  RkScratchDir scratch_{"rkdoccol"};
  const std::string root_ = scratch_.path(), temp_ = root_ + "/extract", archive_ = root_ + "/items.zip";
};

// ---- construction ----------------------------------------------------------------------------

struct ConstructCase {
  const char* name;
  const char *archive, *temp;  // under the fixture's folder; "" passes an empty path
  uint32_t code, severity;     // 0, 0: accepted
};

class RkCollectionConstruct : public RkCollectionTest, public testing::WithParamInterface<ConstructCase> {};

TEST_P(RkCollectionConstruct, ChecksBothPaths) {
  const ConstructCase& c = GetParam();
  fs::create_directory(root_ + "/folder");
  fs::create_directory_symlink(root_ + "/folder", root_ + "/folder-link.zip");
  fs::create_directory_symlink(temp_, root_ + "/temp-link");
  const FidString archive = Fid(*c.archive ? root_ + "/" + c.archive : "");
  const FidString temp = Fid(*c.temp ? root_ + "/" + c.temp : "");
  if (c.code == 0) {
    RkDocCollection collection(archive, temp, false, false);
    EXPECT_EQ(collection.count(), 0u);
    EXPECT_EQ(collection.activeTypes(), 0u);
    return;
  }
  auto e = Thrown([&] { RkDocCollection collection(archive, temp, false, false); });
  ASSERT_TRUE(e);
  EXPECT_EQ(e->code(), c.code);
  EXPECT_EQ(e->severity(), c.severity);
  EXPECT_NE(e->line(), 0u);
  EXPECT_TRUE(e->module().endsWith(u"RkDocCollection.cpp")) << e->module().toUtf8();
  const RkLangModule& lang = RkLangModule::Get();
  EXPECT_EQ(e->description(), c.code > 16000 ? lang.Text(kMsgBadPaths) : lang.SystemText(c.code));
  // A refused construction leaves nothing behind and removes nothing.
  EXPECT_TRUE(fs::is_directory(temp_));
  EXPECT_TRUE(fs::is_regular_file(archive_));
}

constexpr uint32_t kNotFound = RkLib::kSysFileNotFound;

INSTANTIATE_TEST_SUITE_P(
    Paths, RkCollectionConstruct,
    testing::Values(ConstructCase{"accepted", "items.zip", "extract", 0, 0},
                    ConstructCase{"temp_with_trailing_slash", "items.zip", "extract/", 0, 0},
                    ConstructCase{"archive_missing", "absent.zip", "extract", kNotFound, 5},
                    ConstructCase{"archive_is_folder", "folder", "extract", kCodeBadPaths, 2},
                    ConstructCase{"archive_without_file_part", "folder/", "extract", kCodeBadPaths, 2},
                    ConstructCase{"archive_empty", "", "extract", kCodeBadPaths, 2},
                    ConstructCase{"temp_missing", "items.zip", "absent", kNotFound, 5},
                    ConstructCase{"temp_parent_missing", "items.zip", "absent/deeper", kNotFound, 5},
                    ConstructCase{"temp_under_a_file", "items.zip", "items.zip/deeper", RkLib::kSysPathNotFound, 5},
                    ConstructCase{"temp_is_file", "items.zip", "items.zip", kCodeBadPaths, 2},
                    ConstructCase{"temp_empty", "items.zip", "", kCodeBadPaths, 2},
                    // The archive is looked at first.
                    ConstructCase{"both_missing", "absent.zip", "absent", kNotFound, 5},
                    ConstructCase{"folder_archive_and_empty_temp", "folder", "", kCodeBadPaths, 2},
                    // The host's own paths may lie behind links: what they lead to counts.
                    ConstructCase{"temp_behind_a_link", "items.zip", "temp-link", 0, 0},
                    ConstructCase{"archive_link_to_folder", "folder-link.zip", "extract", kCodeBadPaths, 2}),
    RkCaseName());

// ---- add ---------------------------------------------------------------------------------------

TEST_F(RkCollectionTest, AddKeepsTheHostsOrderAndCollectsTypes) {
  auto c = Make();
  RkSourceDocument* text = c->add(u"", u"b.txt", u"b.txt", 11, false, false);
  EXPECT_EQ(c->activeTypes(), uint32_t{kDocumentText});
  EXPECT_FALSE(c->hasEncrypted());
  RkSourceDocument* image = c->add(u"sub", u"A.PNG", u"A.PNG", 22, true, true);
  EXPECT_EQ(c->activeTypes(), uint32_t{kDocumentImage | kDocumentText});
  ASSERT_EQ(c->count(), 2u);
  EXPECT_EQ(c->at(0), text);
  EXPECT_EQ(c->at(1), image);
  EXPECT_EQ(text->getIndex(), 0);
  EXPECT_EQ(image->getIndex(), 1);
  EXPECT_EQ(image->getDocumentType(), uint32_t{kDocumentImage});
  EXPECT_EQ(image->getItemKey(), 22u);
  EXPECT_TRUE(image->getEncrypted());
  EXPECT_TRUE(image->getStartHere());
  EXPECT_TRUE(c->hasEncrypted());
}

struct RefusedNameCase {
  const char* name;
  std::u16string_view folder, fileName;
};

class RkCollectionRefusedName : public RkCollectionTest,
                                public testing::WithParamInterface<RefusedNameCase> {};

TEST_P(RkCollectionRefusedName, Gives87AndAddsNothing) {
  const RefusedNameCase& c = GetParam();
  auto collection = Make();
  collection->add(u"", u"ok.txt", u"ok.txt", 0, false, false);
  auto e = Thrown([&] { collection->add(c.folder, c.fileName, c.fileName, 0, false, false); });
  ASSERT_TRUE(e);
  EXPECT_EQ(e->code(), uint32_t{kCodeInvalidParameter});
  EXPECT_EQ(e->severity(), 2u);
  EXPECT_EQ(e->description(), RkLangModule::Get().SystemText(kCodeInvalidParameter));
  EXPECT_EQ(collection->count(), 1u);
}

using RN = RefusedNameCase;
INSTANTIATE_TEST_SUITE_P(
    Names, RkCollectionRefusedName,
    testing::Values(RN{"empty_name", u"", u""}, RN{"empty_name_in_folder", u"sub", u""}, RN{"parent", u"", u".."},
                    RN{"parent_then_name", u"", u"../x.jpg"}, RN{"deep_climb", u"", u"a\\..\\..\\x.jpg"},
                    RN{"absolute_slash", u"", u"/abs/x.jpg"}, RN{"absolute_backslash", u"", u"\\abs\\x.jpg"},
                    RN{"drive_relative", u"", u"C:x.jpg"}, RN{"drive_absolute", u"", u"C:\\x.jpg"},
                    RN{"unc", u"", u"\\\\srv\\share\\x.jpg"}, RN{"folder_parent", u"..", u"x.jpg"},
                    RN{"folder_ends_in_parent", u"a/..", u"x.jpg"}, RN{"folder_climbs", u"a/../../b", u"x.jpg"},
                    RN{"folder_absolute", u"/abs", u"x.jpg"}, RN{"folder_drive", u"D:", u"x.jpg"}),
    RkCaseName());

TEST_F(RkCollectionTest, DotsInsideANameAreNoClimb) {
  auto c = Make();
  for (const char16_t* name : {u"a..b.jpg", u"...", u"..x.txt", u"x..", u".hidden"})
    EXPECT_NE(c->add(u"sub..dir", name, name, 0, false, false), nullptr) << RkString(name).toUtf8();
  EXPECT_EQ(c->count(), 5u);
}

TEST_F(RkCollectionTest, PopulateWithAnArchiveAddsNothing) {
  Touch("lying.png");
  auto c = Make();
  EXPECT_TRUE(c->populate());
  EXPECT_EQ(c->count(), 0u);
}

// ---- walks ---------------------------------------------------------------------------------------

// One letter per document: r ready (file present), m missing (extraction produces nothing),
// f failed, d deleted (file present); an upper-case letter marks startHere.
struct WalkCase {
  const char* name;
  const char* documents;
  bool hideDeleted;
  std::vector<int> plain;  // first/next, also last/previous reversed
  std::vector<int> ready;  // firstReady/nextReady, also lastReady/previousReady reversed
  int start;               // startDocument, -1 for null
  uint32_t visible;        // visibleCount before any extraction
};

class RkCollectionWalk : public RkCollectionTest, public testing::WithParamInterface<WalkCase> {
 protected:
  std::unique_ptr<RkScriptedCollection> Build() {
    auto c = Make();
    const std::string docs = GetParam().documents;
    for (size_t i = 0; i < docs.size(); ++i) {
      const char kind = static_cast<char>(std::tolower(static_cast<unsigned char>(docs[i])));
      const std::string name = "doc" + std::to_string(i) + ".jpg";
      if (kind == 'r' || kind == 'd') Touch(name);
      RkSourceDocument* d = c->add(u"", RkString::FromUtf8(name), RkString::FromUtf8(name), i, false,
                                   std::isupper(static_cast<unsigned char>(docs[i])) != 0);
      d->setFailed(kind == 'f');
      d->setDeleted(kind == 'd');
    }
    return c;
  }

  // Walks in one direction; checks on the way that isLast tells whether the returned document is
  // at the end of the array in that direction, and that the end comes with isLast set.
  template <typename Start, typename Step>
  static std::vector<int> Collect(RkDocCollection& c, int direction, Start start, Step step) {
    std::vector<int> order;
    bool isLast = false;
    RkSourceDocument* d = (c.*start)(isLast);
    while (d && order.size() <= c.count()) {
      order.push_back(d->getIndex());
      const int end = direction > 0 ? static_cast<int>(c.count()) - 1 : 0;
      EXPECT_EQ(isLast, d->getIndex() == end) << "at " << d->getIndex();
      d = (c.*step)(d, isLast);
    }
    EXPECT_EQ(d, nullptr) << "the walk does not end";
    EXPECT_TRUE(isLast);
    return order;
  }
};

std::vector<int> Reversed(std::vector<int> v) { return {v.rbegin(), v.rend()}; }

// Each ready walk and the start run on a collection of their own: a walk's extractions mark
// documents, and the next walk must not inherit those marks.
TEST_P(RkCollectionWalk, PlainAndReadyWalksAndTheStart) {
  const WalkCase& w = GetParam();
  RkHideDeletedScope hide(w.hideDeleted);
  using C = RkDocCollection;
  {
    auto c = Build();
    EXPECT_EQ(Collect(*c, +1, &C::first, &C::next), w.plain);
    EXPECT_EQ(Collect(*c, -1, &C::last, &C::previous), Reversed(w.plain));
    EXPECT_EQ(c->visibleCount(), w.visible);
    EXPECT_TRUE(c->calls.empty()) << "a plain walk extracted";
  }
  EXPECT_EQ(Collect(*Build(), +1, &C::firstReady, &C::nextReady), w.ready);
  EXPECT_EQ(Collect(*Build(), -1, &C::lastReady, &C::previousReady), Reversed(w.ready));
  auto c = Build();
  bool isLast = false;
  RkSourceDocument* d = c->startDocument(isLast);
  EXPECT_EQ(d ? d->getIndex() : -1, w.start);
  if (d) {
    EXPECT_TRUE(d->existsOnDisk());
    EXPECT_FALSE(d->getFailed());
    EXPECT_FALSE(d->getDeleted());
  }
}

using W = WalkCase;
INSTANTIATE_TEST_SUITE_P(
    Collections, RkCollectionWalk,
    testing::Values(W{"empty", "", true, {}, {}, -1, 0}, W{"one", "r", true, {0}, {0}, 0, 1},
                    W{"one_missing", "m", true, {0}, {}, -1, 1},
                    W{"failed_hidden", "frfrf", true, {1, 3}, {1, 3}, 1, 2},
                    W{"all_failed", "fff", true, {}, {}, -1, 0}, W{"all_missing", "mmm", true, {0, 1, 2}, {}, -1, 3},
                    W{"deleted_hidden", "rdrd", true, {0, 2}, {0, 2}, 0, 2},
                    W{"deleted_shown_while_switch_off", "rdrd", false, {0, 1, 2, 3}, {0, 2}, 0, 2},
                    W{"only_deleted_switch_off", "dd", false, {0, 1}, {}, -1, 0},
                    W{"missing_skipped", "mrmrm", true, {0, 1, 2, 3, 4}, {1, 3}, 1, 5},
                    W{"failed_and_deleted_mixed", "fdrmf", true, {2, 3}, {2}, 2, 2},
                    W{"start_marked", "rRr", true, {0, 1, 2}, {0, 1, 2}, 1, 3},
                    W{"start_marked_missing", "rMr", true, {0, 1, 2}, {0, 2}, 2, 3},
                    W{"start_wraps_round", "rrMm", true, {0, 1, 2, 3}, {0, 1}, 0, 4},
                    W{"start_wraps_over_missing", "mrMm", true, {0, 1, 2, 3}, {1}, 1, 4},
                    W{"start_on_failed_takes_first", "rFr", true, {0, 2}, {0, 2}, 0, 2},
                    W{"start_on_deleted_hidden", "rDr", true, {0, 2}, {0, 2}, 0, 2},
                    W{"start_on_deleted_shown", "rDr", false, {0, 1, 2}, {0, 2}, 2, 2},
                    W{"second_start_ignored", "rRR", true, {0, 1, 2}, {0, 1, 2}, 1, 3}),
    RkCaseName());

TEST_F(RkCollectionTest, StepsFromNullOrTheEndGiveNullAndIsLast) {
  auto c = Make();
  Touch("a.jpg");
  const RkSourceDocument* a = c->add(u"", u"a.jpg", u"a.jpg", 0, false, false);
  const std::function<RkSourceDocument*(const RkSourceDocument*, bool&)> steps[] = {
      [&](auto d, bool& l) { return c->next(d, l); }, [&](auto d, bool& l) { return c->previous(d, l); },
      [&](auto d, bool& l) { return c->nextReady(d, l); }, [&](auto d, bool& l) { return c->previousReady(d, l); }};
  for (size_t i = 0; i < std::size(steps); ++i) {
    for (const RkSourceDocument* from : {static_cast<const RkSourceDocument*>(nullptr), a}) {
      bool isLast = false;
      EXPECT_EQ(steps[i](from, isLast), nullptr) << "step " << i << (from ? " from the end" : " from null");
      EXPECT_TRUE(isLast) << "step " << i;
    }
  }
}

TEST_F(RkCollectionTest, AMissingFileMarksTheDocumentFailedNotExtracted) {
  auto c = Make();
  Touch("earlier.jpg");
  RkSourceDocument* earlier = c->add(u"", u"earlier.jpg", u"earlier.jpg", 0, false, false);
  EXPECT_FALSE(c->hasMissingFile());
  RkSourceDocument* missing = c->add(u"", u"missing.jpg", u"missing.jpg", 0, false, false);
  EXPECT_TRUE(c->hasMissingFile());
  bool isLast = false;
  EXPECT_EQ(c->nextReady(earlier, isLast), nullptr);
  EXPECT_TRUE(missing->getFailed());
  EXPECT_FALSE(c->hasMissingFile()) << "a failed document is no longer visible";
  EXPECT_FALSE(missing->getExtracted());
  // A file from an earlier run is ready but not ours: the flag that allows deleting it stays clear.
  EXPECT_FALSE(earlier->getExtracted());
  EXPECT_EQ(c->visibleCount(), 1u);
  EXPECT_EQ(c->calls.size(), 1u);
  // The failed document stays hidden: no second attempt.
  EXPECT_EQ(c->firstReady(isLast), earlier);
  EXPECT_EQ(c->calls.size(), 1u);
}

// The walk rows run under this scope; their visible counts show that the count ignores the switch.
TEST_F(RkCollectionTest, HideDeletedScopeRestoresTheSwitch) {
  ASSERT_TRUE(RkHideDeleted());
  {
    RkHideDeletedScope show(false);
    EXPECT_FALSE(RkHideDeleted());
  }
  EXPECT_TRUE(RkHideDeleted());
}

// ---- extraction ----------------------------------------------------------------------------------

struct ExtractCase {
  const char* name;
  bool correctNames;
  std::u16string_view folder, fileName;
  std::map<std::u16string, Act> script;
  std::vector<std::u16string> firstEntries;
  bool ready;
  size_t extractCalls;
  const char* leftBehind;  // a file under the temporary folder that must not exist afterwards, or null
};

class RkCollectionExtract : public RkCollectionTest, public testing::WithParamInterface<ExtractCase> {};

TEST_P(RkCollectionExtract, ProducesTheFileUnderTheHostsName) {
  const ExtractCase& x = GetParam();
  auto c = Make(x.correctNames);
  c->script = x.script;
  c->firstEntries = x.firstEntries;
  RkSourceDocument* d = c->add(x.folder, x.fileName, x.fileName, 0, false, false);
  bool isLast = false;
  EXPECT_EQ(c->firstReady(isLast), x.ready ? d : nullptr);
  EXPECT_EQ(d->getExtracted(), x.ready);
  EXPECT_EQ(d->getFailed(), !x.ready);
  EXPECT_EQ(d->existsOnDisk(), x.ready);
  // Whatever name the archive had, a ready document lies under the host's name.
  if (x.ready) {
    EXPECT_EQ(d->getName().view(), x.fileName);
  }
  EXPECT_EQ(c->calls.size(), x.extractCalls);
  ASSERT_FALSE(c->calls.empty());
  EXPECT_EQ(c->calls[0].path, RkJoinPath(x.folder, x.fileName).str());
  if (x.leftBehind) {
    EXPECT_FALSE(RkPathPresent(InTemp(x.leftBehind)));
  }
  if (!x.correctNames) {
    EXPECT_EQ(c->infoCalls, 0);
  }
}

using EC = ExtractCase;
constexpr Act kWrite = Act::kWrite, kClaim = Act::kClaimOnly;

INSTANTIATE_TEST_SUITE_P(
    Outcomes, RkCollectionExtract,
    testing::Values(
        EC{"written", false, u"", u"a.txt", {{u"a.txt", kWrite}}, {}, true, 1, nullptr},
        EC{"written_in_folder", false, u"sub/deeper", u"b.png", {{u"sub/deeper\\b.png", kWrite}}, {}, true, 1,
           nullptr},
        EC{"engine_fails", true, u"", u"a.txt", {}, {u"a"}, false, 1, nullptr},
        EC{"no_file_names_not_corrected", false, u"", u"a.txt", {{u"a.txt", kClaim}, {u"a", kWrite}}, {u"a"}, false,
           1, "a"},
        EC{"name_corrected", true, u"", u"a.txt", {{u"a.txt", kClaim}, {u"a", kWrite}}, {u"a"}, true, 2, "a"},
        EC{"name_corrected_in_folder", true, u"sub", u"b.txt", {{u"sub\\b.txt", kClaim}, {u"sub\\b", kWrite}},
           {u"b"}, true, 2, "sub/b"},
        EC{"no_first_entry", true, u"", u"a.txt", {{u"a.txt", kClaim}}, {}, false, 1, nullptr},
        EC{"first_entry_has_folder", true, u"", u"a.txt", {{u"a.txt", kClaim}, {u"d\\a", kWrite}}, {u"d\\a"}, false,
           1, "d"},
        EC{"first_entry_same_name", true, u"", u"a.txt", {{u"a.txt", kClaim}}, {u"a.txt"}, false, 1, nullptr},
        EC{"first_entry_climbs", true, u"sub", u"a.txt", {{u"sub\\a.txt", kClaim}}, {u".."}, false, 1, nullptr},
        EC{"at_most_two_attempts", true, u"", u"a.txt", {{u"a.txt", kClaim}, {u"a", kClaim}, {u"b", kWrite}},
           {u"a", u"b"}, false, 2, "b"}),
    RkCaseName());

TEST_F(RkCollectionTest, AFileThatVanishedIsExtractedAgainWithFlagAndKey) {
  auto c = Make();
  c->script = {{u"s\\e.jpg", kWrite}};
  RkSourceDocument* d = c->add(u"s", u"e.jpg", u"e.jpg", 0xFEEDull, true, false);
  bool isLast = false;
  ASSERT_EQ(c->firstReady(isLast), d);
  ASSERT_EQ(c->firstReady(isLast), d);
  EXPECT_EQ(c->calls.size(), 1u) << "a file on disk is not extracted twice";
  fs::remove(InTemp("s/e.jpg"));
  ASSERT_EQ(c->firstReady(isLast), d);
  ASSERT_EQ(c->calls.size(), 2u);
  for (const RkScriptedCollection::Call& call : c->calls) {
    EXPECT_TRUE(call.usePassword);
    EXPECT_EQ(call.itemKey, 0xFEEDull);
  }
}

struct RefusalCase {
  const char* name;
  uint32_t context;
  bool markedFailed;
};

class RkCollectionRefusal : public RkCollectionTest, public testing::WithParamInterface<RefusalCase> {
 protected:
  static void ExpectRefused(const std::function<void()>& walk) {
    auto e = Thrown(walk);
    ASSERT_TRUE(e);
    EXPECT_EQ(e->code(), uint32_t{kCodePasswordRefused});
    EXPECT_EQ(e->severity(), 7u);
    EXPECT_EQ(e->description(), RkLangModule::Get().Text(kMsgPasswordRefused));
  }
  // "open.jpg" on disk, then "locked.jpg" whose password the engine refuses.
  std::unique_ptr<RkScriptedCollection> Build(bool lockedIsStart) {
    auto c = Make();
    c->setNavigationContext(GetParam().context);
    c->script = {{u"locked.jpg", Act::kRefuse}};
    Touch("open.jpg");
    c->add(u"", u"open.jpg", u"open.jpg", 0, false, false);
    c->add(u"", u"locked.jpg", u"locked.jpg", 0, true, lockedIsStart);
    return c;
  }
};

TEST_P(RkCollectionRefusal, StopsTheWalkAndMarksOutsideASlideShow) {
  const RefusalCase& r = GetParam();
  auto c = Build(false);
  RkSourceDocument *open = c->at(0), *locked = c->at(1);
  bool isLast = false;
  ExpectRefused([&] { c->nextReady(open, isLast); });
  EXPECT_EQ(locked->getFailed(), r.markedFailed);
  EXPECT_FALSE(locked->getExtracted());
  if (r.markedFailed) {
    // The window moves on: the refused document is hidden now.
    EXPECT_EQ(c->nextReady(open, isLast), nullptr);
    EXPECT_EQ(c->calls.size(), 1u);
  } else {
    // A later round of the slide show asks again.
    ExpectRefused([&] { c->nextReady(open, isLast); });
    EXPECT_EQ(c->calls.size(), 2u);
  }
  c.reset();
  // The start document passes the refusal on, and marks as the walk does.
  auto s = Build(true);
  ExpectRefused([&] { s->startDocument(isLast); });
  EXPECT_EQ(s->at(1)->getFailed(), r.markedFailed);
}

INSTANTIATE_TEST_SUITE_P(Contexts, RkCollectionRefusal,
                         testing::Values(RefusalCase{"unset", 0, true},
                                         RefusalCase{"normal_window", kNavigateNormal, true},
                                         RefusalCase{"slide_show", kNavigateSlideShow, false}),
                         RkCaseName());

// ---- saveAs ------------------------------------------------------------------------------------

class RkRecordingCallback final : public RkDefaultViewerCallback {
 public:
  struct Change {
    std::u16string fullPath;
    rk_bool8 hasFolder, removed, encrypted;
    std::u16string folderAndArchiveName, folderAndName;
  };
  rk_bool8 onItemChanged(const char16_t* fullPath, rk_bool8 hasFolder, rk_bool8 removed, rk_bool8 encrypted,
                         const char16_t* folderAndArchiveName, const char16_t* folderAndName) override {
    changes.push_back({fullPath, hasFolder, removed, encrypted, folderAndArchiveName, folderAndName});
    return answer;
  }

  std::vector<Change> changes;
  rk_bool8 answer = 1;
};

// Installs a callback for one test and puts the library's default back.
class RkCallbackScope {
 public:
  explicit RkCallbackScope(RkImageViewerCallback* callback) { RkSetCallbackSlot(callback); }
  ~RkCallbackScope() { RkSetCallbackSlot(RkDefaultCallback()); }
  RkCallbackScope(const RkCallbackScope&) = delete;
  RkCallbackScope& operator=(const RkCallbackScope&) = delete;
};

struct SaveAsCase {
  const char* name;
  std::u16string_view folder;
  bool extracted, keepFile;
  std::u16string_view newName;
  bool addsDocument, reported;
};

class RkCollectionSaveAs : public RkCollectionTest, public testing::WithParamInterface<SaveAsCase> {};

TEST_P(RkCollectionSaveAs, CopiesReportsAndKeeps) {
  const SaveAsCase& s = GetParam();
  RkRecordingCallback host;
  RkCallbackScope scope(&host);
  auto c = Make();
  RkSourceDocument* d = c->add(s.folder, u"a.jpg", u"a.jpg", 5, true, false);
  RkWriteFile(d->fullPath().ToPosix(), "rotated image");
  d->setExtracted(s.extracted);
  d->setKeepFile(s.keepFile);
  d->setModification(kModificationRotated);

  RkTextRtfSourceDocument sentinel(u"", u"s", u"s", u"", 0, false, false);
  RkSourceDocument* added = &sentinel;  // saveAs must overwrite it
  EXPECT_TRUE(c->saveAs(d, &added, s.newName));
  EXPECT_EQ(d->getModification(), kModificationNone);
  RkSourceDocument* target = d;
  if (s.addsDocument) {
    ASSERT_NE(added, nullptr);
    ASSERT_EQ(c->count(), 2u);
    EXPECT_EQ(added, c->at(1));
    target = added;
    EXPECT_EQ(added->getName().view(), s.newName);
    EXPECT_EQ(added->getArchiveName().view(), u"a.jpg");
    EXPECT_EQ(added->getFolder().view(), s.folder);
    EXPECT_EQ(added->getExtracted(), s.extracted);
    EXPECT_FALSE(added->getEncrypted());
    EXPECT_EQ(added->getItemKey(), 0u);
    EXPECT_EQ(RkReadFile(added->fullPath().ToPosix()), "rotated image");
    EXPECT_EQ(RkReadFile(d->fullPath().ToPosix()), "rotated image");
    EXPECT_EQ(d->getKeepFile(), s.keepFile);
  } else {
    EXPECT_EQ(added, nullptr);
    EXPECT_EQ(c->count(), 1u);
  }
  EXPECT_EQ(target->getKeepFile(), s.reported || (target == d && s.keepFile));
  ASSERT_EQ(host.changes.size(), s.reported ? 1u : 0u);
  if (s.reported) {
    const RkRecordingCallback::Change& ch = host.changes[0];
    EXPECT_EQ(ch.fullPath, target->fullPath().str());
    EXPECT_EQ(ch.hasFolder, s.folder.empty() ? 0 : 1);
    EXPECT_EQ(ch.removed, 0);
    EXPECT_EQ(ch.encrypted, 0);
    EXPECT_EQ(ch.folderAndArchiveName, target->folderAndArchiveName().str());
    EXPECT_EQ(ch.folderAndName, target->folderAndName().str());
  }
}

using SA = SaveAsCase;
INSTANTIATE_TEST_SUITE_P(
    Cases, RkCollectionSaveAs,
    testing::Values(SA{"new_name", u"sub", true, false, u"b.jpg", true, true},
                    SA{"new_name_at_root", u"", true, false, u"b.jpg", true, true},
                    SA{"new_name_other_type", u"", true, false, u"b.txt", true, true},
                    SA{"new_name_not_extracted", u"sub", false, false, u"b.jpg", true, false},
                    SA{"same_name", u"sub", true, false, u"a.jpg", false, true},
                    SA{"empty_name", u"", true, false, u"", false, true},
                    SA{"same_name_not_extracted", u"", false, false, u"a.jpg", false, false},
                    SA{"same_name_already_kept", u"", true, true, u"a.jpg", false, false},
                    SA{"new_name_from_kept", u"", true, true, u"b.jpg", true, true}),
    RkCaseName());

TEST_F(RkCollectionTest, SaveAsNeedsTheSourceReplacesTheTargetAndNeverClimbs) {
  auto c = Make();
  RkSourceDocument* d = c->add(u"", u"a.jpg", u"a.jpg", 0, false, false);
  RkSourceDocument* added = nullptr;
  auto e = Thrown([&] { c->saveAs(d, &added, u"b.jpg"); });
  ASSERT_TRUE(e);
  EXPECT_EQ(e->code(), RkLib::kSysFileNotFound);
  EXPECT_EQ(e->severity(), 5u);
  EXPECT_EQ(added, nullptr);
  EXPECT_FALSE(RkPathPresent(InTemp("b.jpg")));

  Touch("a.jpg", "new content");
  Touch("b.jpg", "old content");
  EXPECT_TRUE(c->saveAs(d, &added, u"b.jpg"));
  EXPECT_EQ(RkReadFile(InTemp("b.jpg")), "new content");
  const size_t count = c->count();
  EXPECT_THROW(c->saveAs(d, &added, u"../escaped.jpg"), RkViewerException);
  EXPECT_FALSE(RkPathPresent(root_ + "/escaped.jpg"));
  EXPECT_EQ(c->count(), count);
}

TEST_F(RkCollectionTest, SaveAsOfAnExtractionKeepsTheCopyAndDeletesTheOriginal) {
  RkRecordingCallback host;
  RkCallbackScope scope(&host);
  {
    auto c = Make();
    c->script = {{u"a.jpg", kWrite}};
    RkSourceDocument* d = c->add(u"", u"a.jpg", u"a.jpg", 0, false, false);
    bool isLast = false;
    ASSERT_EQ(c->firstReady(isLast), d);
    RkSourceDocument* added = nullptr;
    ASSERT_TRUE(c->saveAs(d, &added, u"copy.jpg"));
    EXPECT_EQ(host.changes.size(), 1u);
  }
  EXPECT_FALSE(RkPathPresent(InTemp("a.jpg")));
  EXPECT_TRUE(fs::is_regular_file(InTemp("copy.jpg")));
}

TEST_F(RkCollectionTest, HostRefusingTheSavedItemIsAnAssertion) {
  EXPECT_EXIT(
      {
        dup2(2, 1);
        RkRecordingCallback host;
        host.answer = 0;
        RkSetCallbackSlot(&host);
        auto c = Make();
        Touch("a.jpg");
        RkSourceDocument* d = c->add(u"", u"a.jpg", u"a.jpg", 0, false, false);
        d->setExtracted(true);
        RkSourceDocument* added = nullptr;
        c->saveAs(d, &added, u"b.jpg");
        std::fputs("survived\n", stderr);
      },
      testing::ExitedWithCode(RkLib::kFatalExitStatus & 0xFF), "assert failure.*RkDocCollection\\.cpp");
}

// ---- destruction -------------------------------------------------------------------------------

struct DocSpec {
  std::u16string_view folder, fileName;
  const char* flags;  // x extracted, k keepFile, w wiped, d deleted, - no file on disk
};

struct DestroyCase {
  const char* name;
  std::vector<DocSpec> documents;
  std::vector<std::string> others;  // entries under the temporary folder, not documents; "x/" a folder
  bool trailingSeparator, folderSurvives;
  std::vector<std::string> gone, kept;  // under the temporary folder
};

class RkCollectionDestroy : public RkCollectionTest, public testing::WithParamInterface<DestroyCase> {};

TEST_P(RkCollectionDestroy, DeletesWhatItExtractedAndAnEmptyFolder) {
  const DestroyCase& x = GetParam();
  for (const std::string& f : x.others) {
    if (f.ends_with('/')) fs::create_directories(InTemp(f));
    else Touch(f);
  }
  {
    RkDocCollection c(Fid(archive_), Fid(x.trailingSeparator ? temp_ + "/" : temp_), false, false);
    for (const DocSpec& s : x.documents) {
      auto has = [&](char flag) { return std::strchr(s.flags, flag) != nullptr; };
      RkSourceDocument* d = c.add(s.folder, s.fileName, s.fileName, 0, false, false);
      if (!has('-')) RkWriteFile(d->fullPath().ToPosix(), "x");
      d->setExtracted(has('x'));
      d->setKeepFile(has('k'));
      d->setWiped(has('w'));
      d->setDeleted(has('d'));
    }
  }
  EXPECT_EQ(fs::is_directory(temp_), x.folderSurvives);
  for (const std::string& f : x.gone) EXPECT_FALSE(RkPathPresent(InTemp(f))) << f;
  for (const std::string& f : x.kept) EXPECT_TRUE(RkPathPresent(InTemp(f))) << f;
  EXPECT_TRUE(fs::is_regular_file(archive_));
}

using DC = DestroyCase;
INSTANTIATE_TEST_SUITE_P(
    Folders, RkCollectionDestroy,
    testing::Values(
        DC{"nothing_added", {}, {}, false, false, {}, {}},
        DC{"extracted_files_and_folder_go",
           {{u"", u"a.jpg", "x"}, {u"sub", u"b.txt", "x"}, {u"sub\\deeper", u"c.png", "x"}},
           {}, false, false, {"a.jpg", "sub/b.txt", "sub/deeper/c.png"}, {}},
        DC{"trailing_separator", {{u"", u"a.jpg", "x"}}, {}, true, false, {"a.jpg"}, {}},
        DC{"empty_sub_folders_only", {}, {"x/y/z/", "w/"}, false, false, {}, {}},
        DC{"kept_file_keeps_folder", {{u"", u"a.jpg", "x"}, {u"", u"mine.jpg", "xk"}}, {}, false, true, {"a.jpg"},
           {"mine.jpg"}},
        DC{"wiped_file_left_to_the_wiper", {{u"", u"s.jpg", "xw"}}, {}, false, true, {}, {"s.jpg"}},
        DC{"earlier_file_not_ours", {{u"", u"old.jpg", ""}}, {}, false, true, {}, {"old.jpg"}},
        DC{"stranger_file_deep_down", {{u"", u"a.jpg", "x"}}, {"x/y/other.dat"}, false, true, {"a.jpg"},
           {"x/y/other.dat"}},
        DC{"deleted_document_keeps_empty_folder", {{u"", u"a.jpg", "x"}, {u"", u"del.jpg", "xd"}}, {}, false, true,
           {"a.jpg", "del.jpg"}, {}},
        DC{"deleted_without_file_keeps_folder", {{u"", u"del.jpg", "d-"}}, {}, false, true, {}, {}},
        DC{"failed_document_without_file", {{u"", u"f.jpg", "-"}}, {}, false, false, {}, {}}),
    RkCaseName());

TEST_F(RkCollectionTest, DestructionFollowsNoLinkOutOfTheFolder) {
  const std::string outside = root_ + "/outside";
  fs::create_directories(outside + "/empty");
  fs::create_directory_symlink(outside, InTemp("link"));
  { RkDocCollection c(Fid(archive_), Fid(temp_), false, false); }
  EXPECT_TRUE(fs::is_directory(outside + "/empty"));
  // The link is content of the folder: the folder stays with it.
  EXPECT_TRUE(fs::is_symlink(InTemp("link")));
}

TEST_F(RkCollectionTest, DestructionAfterTheFolderVanished) {
  {
    RkDocCollection c(Fid(archive_), Fid(temp_), false, false);
    c.add(u"", u"a.jpg", u"a.jpg", 0, false, false)->setExtracted(true);
    fs::remove_all(temp_);
  }
  EXPECT_FALSE(RkPathPresent(temp_));
}

}  // namespace
