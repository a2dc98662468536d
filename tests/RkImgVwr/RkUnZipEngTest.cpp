// The engine's questions to its archive and the forwarding of progress to the running extraction.
// A stand-in archive answers as a container of a chosen type, part count and write state would.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdint>
#include <string>

#include "../RkLib/RkTestUtil.h"
#include "RkArcResources.h"
#include "RkArcTypeSupportInfo.h"
#include "RkArchive.h"
#include "RkArchiveType.h"
#include "RkError.h"
#include "RkExtractProgress.h"
#include "RkState.h"
#include "RkUnZipEng.h"

using namespace RkImgVwr;
using RkArcLib::RkState;

namespace {

struct ArchiveShape {
  int type = RkArcLib::kArcTypeZip;
  uint32_t parts = 1;
  bool readOnly = false;
};

class RkStandInArchive final : public RkArcLib::RkArchive {
 public:
  RkStandInArchive(const ArchiveShape& shape, bool* destroyed)
      : RkArchive(FidString(u"stand-in.zip")), shape_(shape), destroyed_(destroyed) {}
  ~RkStandInArchive() override {
    if (destroyed_) *destroyed_ = true;
  }

  bool IsLoaded() const override { return true; }
  bool IsComplete() const override { return true; }
  bool IsEmpty() const override { return true; }
  int64_t GetItemCount() const override { return 0; }
  uint32_t GetPartCount() const override { return shape_.parts; }
  bool FileExists() const override { return true; }
  bool IsReadOnly() const override { return shape_.readOnly; }
  int GetType() const override { return shape_.type; }
  bool Load(int64_t, int64_t, const RkString*, RkState&) override { return true; }
  bool Unload() override { return true; }
  bool IsEncrypted() const override { return false; }
  int64_t FindItem(const RkString&, RkState& state) const override {
    state.Set(RkArcLib::kArcNameNotFound, 1);
    return -1;
  }
  bool GetItem(int64_t, RkArcLib::RkArcItem&, RkState& state) const override {
    state.Set(RkArcLib::kArcIndexOutOfRange, 1);
    return false;
  }
  std::shared_ptr<const RkArcLib::RkArcSupportInfo> GetSupportInfo() const override {
    return RkArcLib::RkArcTypeSupportInfo::ForType(shape_.type);
  }

 private:
  ArchiveShape shape_;
  bool* destroyed_;
};

// The engine with the hooks that opening an archive and running an extraction use.
class RkTestEngine : public RkUnZipEng {
 public:
  explicit RkTestEngine(bool readOnly = false) : RkUnZipEng(nullptr, FidString(u"a.zip"), FidString(u"t"), readOnly) {}
  using RkUnZipEng::AdoptArchive;
  using RkUnZipEng::AttachProgress;
  using RkUnZipEng::DetachProgress;
};

// ---- questions to the archive -----------------------------------------------------------------

struct QuestionCase {
  std::string name;
  bool hasArchive;
  ArchiveShape shape;
  bool engineReadOnly;
  bool readOnly, multiPart, canCreate;
};
void PrintTo(const QuestionCase& row, std::ostream* os) { *os << row.name; }

class RkEngineQuestions : public testing::TestWithParam<QuestionCase> {};

TEST_P(RkEngineQuestions, AnswerFromTheArchive) {
  const QuestionCase& c = GetParam();
  RkTestEngine engine(c.engineReadOnly);
  if (c.hasArchive) engine.AdoptArchive(new RkStandInArchive(c.shape, nullptr));
  EXPECT_EQ(engine.IsReadOnly(), c.readOnly);
  EXPECT_EQ(engine.IsMultiPart(), c.multiPart);
  EXPECT_EQ(engine.CanCreateType(), c.canCreate);
}

using RkArcLib::kArcTypeTar;
using RkArcLib::kArcTypeUU;
using RkArcLib::kArcTypeZip;

INSTANTIATE_TEST_SUITE_P(
    Shapes, RkEngineQuestions,
    testing::Values(QuestionCase{"NoArchive", false, {}, false, false, false, false},
                    QuestionCase{"NoArchiveButToldReadOnly", false, {}, true, true, false, false},
                    QuestionCase{"PlainZip", true, {kArcTypeZip, 1, false}, false, false, false, true},
                    QuestionCase{"ZipThatSaysReadOnly", true, {kArcTypeZip, 1, true}, false, true, false, true},
                    QuestionCase{"ToldReadOnlyOverAWritableZip", true, {kArcTypeZip, 1, false}, true, true, false,
                                 true},
                    QuestionCase{"TarCannotBeCreated", true, {kArcTypeTar, 1, false}, false, false, false, false},
                    // Creatable though hardly anything else about it can be changed.
                    QuestionCase{"UuCanBeCreated", true, {kArcTypeUU, 1, false}, false, false, false, true},
                    QuestionCase{"NoPartsYet", true, {kArcTypeZip, 0, false}, false, false, false, true},
                    QuestionCase{"TwoParts", true, {kArcTypeZip, 2, false}, false, false, true, true},
                    QuestionCase{"PartsNotYetCounted", true, {kArcTypeZip, UINT32_MAX, false}, false, false, true,
                                 true}),
    RkCaseName());

struct ErrorTextCase {
  std::string name;
  bool hasArchive;
  uint32_t code;
  uint32_t resource;  // the archive's shared message for the code; 0 when the number stands in
};
void PrintTo(const ErrorTextCase& row, std::ostream* os) { *os << row.name; }

class RkEngineArchiveError : public testing::TestWithParam<ErrorTextCase> {};

TEST_P(RkEngineArchiveError, PutsTheArchivesMessageIntoTheText) {
  const ErrorTextCase& c = GetParam();
  RkTestEngine engine;
  if (c.hasArchive) engine.AdoptArchive(new RkStandInArchive({}, nullptr));
  RkState state;
  state.Set(c.code, 11);
  RkString text = u"left over from before";
  const RkString& result = engine.ArchiveError(state, text);
  EXPECT_EQ(&result, &text);
  if (c.resource != 0) {
    ASSERT_EQ(RkArcLib::RkArchive::CommonMessageResource(c.code), c.resource);
    EXPECT_EQ(text, RkArcLib::RkArcResourceText(c.resource)) << text.toUtf8();
  } else {
    EXPECT_EQ(text.toUtf8(), std::to_string(c.code));
  }
}

INSTANTIATE_TEST_SUITE_P(Codes, RkEngineArchiveError,
                         testing::Values(ErrorTextCase{"Cancelled", true, RkArcLib::kArcCancelled, 50108},
                                         ErrorTextCase{"PasswordRequired", true, RkArcLib::kArcPasswordRequired,
                                                       50133},
                                         ErrorTextCase{"CodeWithoutText", true, 251, 0},
                                         ErrorTextCase{"NoArchive", false, RkArcLib::kArcCancelled, 0}),
                         RkCaseName());

TEST(RkEngine, ClosingDeletesTheArchiveOnce) {
  bool first = false, second = false;
  {
    RkTestEngine engine;
    engine.AdoptArchive(new RkStandInArchive({}, &first));
    engine.AdoptArchive(new RkStandInArchive({}, &second));
    EXPECT_TRUE(first) << "a new archive replaces the old one";
    EXPECT_FALSE(second);
    EXPECT_TRUE(engine.CloseArchive());
    EXPECT_TRUE(second);
    EXPECT_TRUE(engine.CloseArchive());
    EXPECT_FALSE(engine.CanCreateType());
  }
}

// ---- progress ---------------------------------------------------------------------------------

struct ProgressCase {
  std::string name;
  uint32_t mode;
  bool forwarded;
};
void PrintTo(const ProgressCase& row, std::ostream* os) { *os << row.name; }

class RkEngineProgress : public testing::TestWithParam<ProgressCase> {};

TEST_P(RkEngineProgress, ReachesTheRunningExtractionOnlyWhenItShowsProgress) {
  const ProgressCase& c = GetParam();
  RkTestEngine engine;
  engine.SetProgressMode(c.mode);
  RkExtractProgress progress(c.mode, 2000, true);
  engine.AttachProgress(&progress);
  engine.SetProgressPercent(42);
  engine.SetProgressText(u"photos/beach.jpg");
  EXPECT_EQ(progress.pendingPercent(), c.forwarded ? 42u : 0u);
  EXPECT_EQ(progress.pendingText().view(), c.forwarded ? u"photos/beach.jpg" : u"");
  EXPECT_FALSE(engine.IsCancelled());
  engine.DetachProgress();
  // Between runs there is nothing to forward to; a late report is dropped.
  engine.SetProgressPercent(99);
  engine.SetProgressText(u"late");
  EXPECT_EQ(progress.pendingPercent(), c.forwarded ? 42u : 0u);
  EXPECT_FALSE(engine.IsCancelled());
}

INSTANTIATE_TEST_SUITE_P(Modes, RkEngineProgress,
                         testing::Values(ProgressCase{"NoWindow", 0, false}, ProgressCase{"FullWindow", 1, true},
                                         ProgressCase{"SmallBar", 2, true}, ProgressCase{"EscapeOnly", 3, true}),
                         RkCaseName());

TEST(RkEngine, NestedProgressIsAnAssertion) {
  EXPECT_EXIT(
      {
        dup2(2, 1);
        RkTestEngine engine;
        RkExtractProgress outer(1, 2000, true);
        RkExtractProgress inner(1, 2000, true);
        engine.AttachProgress(&outer);
        engine.AttachProgress(&inner);
        std::fputs("survived\n", stderr);
      },
      testing::ExitedWithCode(RkLib::kFatalExitStatus & 0xFF), "assert failure.*RkUnZipEng\\.cpp");
}

}  // namespace
