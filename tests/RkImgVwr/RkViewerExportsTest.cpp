// The exported functions' handling of the record: stored errors, the error reset, null
// arguments, the getters' copies, and the image utility calls that refuse until the codecs come.
#include <gtest/gtest.h>

#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "../RkLib/RkTestUtil.h"
#include "RkLangModule.h"
#include "RkViewerException.h"
#include "RkViewerRecord.h"
#include "RkViewerState.h"
#include "rkimgv64.h"

using namespace RkImgVwr;
namespace fs = std::filesystem;

namespace {

std::u16string U16(const std::string& utf8) { return RkString::FromUtf8(utf8).str(); }
RkString Text(uint32_t id) { return RkLangModule::Get().Text(id); }
RkString SystemText(uint32_t code) { return RkLangModule::Get().SystemText(code); }

const std::u16string_view kExportsFile = u"RKIMGVWR.cpp";
const std::u16string_view kCollectionFile = u"RkDocCollection.cpp";

class RkExportsTest : public testing::Test {
 protected:
  void SetUp() override {
    ASSERT_FALSE(root_.empty());
    fs::create_directory(root_ + "/extract");
    RkWriteFile(root_ + "/items.zip", "PK");
  }
  void TearDown() override {
    for (RkViewerRecord* r : utilities_) close_image_utility(r);
  }

  // A viewer record on the fixture's archive, closed by the test.
  RkViewerRecord* OpenViewer() {
    RkViewerRecord* record = nullptr;
    EXPECT_TRUE(open_viewer(archive_.c_str(), temp_.c_str(), 0, 0, 0, 0, &record));
    return record;
  }
  // An image utility record, freed after the test.
  RkViewerRecord* OpenUtility() {
    RkViewerRecord* record = nullptr;
    EXPECT_TRUE(open_image_utility(&record));
    if (record) utilities_.push_back(record);
    return record;
  }

  // `text` as the language module gives it; the host sees it without a trailing line end.
  static void ExpectStored(RkViewerRecord* record, uint32_t code, uint32_t severity, const RkString& text,
                           std::u16string_view moduleEnd) {
    EXPECT_EQ(get_error_code(record), code);
    EXPECT_EQ(get_severity_code(record), severity);
    EXPECT_NE(get_line_number(record), 0u);
    std::u16string_view expected = text.view();
    while (expected.ends_with(u'\n') || expected.ends_with(u'\r')) expected.remove_suffix(1);
    char16_t buffer[1024];
    EXPECT_TRUE(get_error_description(record, buffer, 1024));
    EXPECT_EQ(std::u16string_view(buffer), expected);
    EXPECT_TRUE(get_error_module(record, buffer, 1024));
    EXPECT_TRUE(std::u16string_view(buffer).ends_with(moduleEnd)) << RkString(buffer).toUtf8();
  }

  static void ExpectClear(RkViewerRecord* record) {
    EXPECT_EQ(get_error_code(record), 0u);
    EXPECT_EQ(get_severity_code(record), 0u);
    EXPECT_EQ(get_line_number(record), 0u);
    char16_t buffer[8] = {u'Z', u'Z'};
    EXPECT_TRUE(get_error_description(record, buffer, 8));
    EXPECT_EQ(buffer[0], 0);
    buffer[0] = u'Z';
    EXPECT_TRUE(get_error_module(record, buffer, 8));
    EXPECT_EQ(buffer[0], 0);
  }

  static void StoreOldError(RkViewerRecord* record) {
    record->errorCode = 4242;
    record->severity = 9;
    record->lineNumber = 77;
    *record->description = u"old failure";
    *record->module = u"old module";
  }

  RkScratchDir scratch_{"rkexports"};
  const std::string root_ = scratch_.path();
  const std::u16string temp_ = U16(root_ + "/extract"), archive_ = U16(root_ + "/items.zip");
  std::vector<RkViewerRecord*> utilities_;
};

// ---- the getters -------------------------------------------------------------------------------
// What every export does with a null record is the C host's first check (host/rkhost.c).

struct DescriptionCase {
  const char* name;
  std::u16string_view stored;
  uint32_t bufferChars;
  bool result;
  std::u16string_view copied;  // what the buffer holds up to its first zero
  std::u16string_view kept;    // the record's description afterwards
};

class RkErrorDescription : public RkExportsTest, public testing::WithParamInterface<DescriptionCase> {};

TEST_P(RkErrorDescription, TrimsLineEndsAndCopiesWithinBounds) {
  const DescriptionCase& c = GetParam();
  RkViewerRecord* record = OpenUtility();
  ASSERT_NE(record, nullptr);
  *record->description = c.stored;
  std::vector<char16_t> buffer(c.bufferChars + 1, u'Z');
  EXPECT_EQ(get_error_description(record, buffer.data(), c.bufferChars), c.result ? 1 : 0);
  EXPECT_EQ(std::u16string_view(buffer.data()).substr(0, c.bufferChars), c.copied);
  // The whole buffer is zeroed first, and nothing is written past it.
  for (uint32_t i = static_cast<uint32_t>(c.copied.size()); i < c.bufferChars; ++i) {
    EXPECT_EQ(buffer[i], 0) << "at " << i;
  }
  EXPECT_EQ(buffer[c.bufferChars], u'Z');
  EXPECT_EQ(record->description->view(), c.kept);
}

using DC = DescriptionCase;
INSTANTIATE_TEST_SUITE_P(
    Texts, RkErrorDescription,
    testing::Values(DC{"plain", u"Broken.", 16, true, u"Broken.", u"Broken."},
                    DC{"crlf", u"Broken.\r\n", 16, true, u"Broken.", u"Broken."},
                    DC{"lone_lf", u"\n", 16, true, u"", u""}, DC{"lone_cr", u"\r", 16, true, u"", u""},
                    DC{"lf_cr", u"x\n\r", 16, true, u"x", u"x"},
                    DC{"at_most_two_go", u"x\r\n\r\n", 16, true, u"x\r\n", u"x\r\n"},
                    DC{"inner_line_end_stays", u"a\r\nb", 16, true, u"a\r\nb", u"a\r\nb"},
                    DC{"empty", u"", 4, true, u"", u""}, DC{"exact_fit", u"abc", 4, true, u"abc", u"abc"},
                    DC{"no_room_for_terminator", u"abcd", 4, false, u"", u"abcd"},
                    DC{"far_too_small", u"a long description", 3, false, u"", u"a long description"},
                    DC{"fits_after_trim", u"abc\r\n", 4, true, u"abc", u"abc"},
                    DC{"one_char_buffer", u"a", 1, false, u"", u"a"}),
    RkCaseName());

TEST_F(RkExportsTest, ModuleIsCopiedUntrimmedAndNoGetterResets) {
  RkViewerRecord* record = OpenUtility();
  StoreOldError(record);
  *record->module = u"src\\x.cpp\r\n";
  char16_t buffer[32];
  EXPECT_TRUE(get_error_module(record, buffer, 32));
  EXPECT_EQ(std::u16string_view(buffer), u"src\\x.cpp\r\n");
  EXPECT_TRUE(get_error_description(record, buffer, 32));
  char16_t small[4] = {u'Z', u'Z', u'Z', u'Z'};
  EXPECT_FALSE(get_error_module(record, small, 4));
  for (char16_t ch : small) EXPECT_EQ(ch, 0);
  EXPECT_EQ(get_error_code(record), 4242u);
  EXPECT_EQ(get_severity_code(record), 9u);
  EXPECT_EQ(get_line_number(record), 77u);
  // No record, no buffer, or one of no size: refused, and nothing written.
  small[0] = u'Z';
  EXPECT_FALSE(get_error_description(nullptr, small, 4));
  EXPECT_FALSE(get_error_module(nullptr, small, 4));
  EXPECT_FALSE(get_error_description(record, nullptr, 4));
  EXPECT_FALSE(get_error_description(record, small, 0));
  EXPECT_FALSE(get_error_module(record, nullptr, 4));
  EXPECT_FALSE(get_error_module(record, small, 0));
  EXPECT_EQ(small[0], u'Z');
}

// ---- open_viewer -------------------------------------------------------------------------------

struct OpenFailCase {
  const char* name;
  const char *archive, *temp;  // under the fixture's root; null passes a null pointer
  uint32_t code, severity;
  std::u16string_view module;
};

class RkOpenViewerFails : public RkExportsTest, public testing::WithParamInterface<OpenFailCase> {};

TEST_P(RkOpenViewerFails, StoresTheError) {
  const OpenFailCase& c = GetParam();
  fs::create_directory(root_ + "/folder");
  std::u16string archive = c.archive ? U16(root_ + c.archive) : u"";
  std::u16string temp = c.temp ? U16(root_ + c.temp) : u"";
  RkViewerRecord* record = nullptr;
  EXPECT_FALSE(open_viewer(c.archive ? archive.c_str() : nullptr, c.temp ? temp.c_str() : nullptr, 1, 1, 1, 2,
                           &record));
  // A failed open leaves a record without collection that close_viewer must not see; its strings
  // and the record itself go the way of an image utility record.
  ASSERT_NE(record, nullptr);
  ASSERT_EQ(record->collection, nullptr);
  utilities_.push_back(record);
  EXPECT_EQ(record->resizeDisabled, 1);
  if (c.code < 16000) {
    EXPECT_TRUE(record->description->view().ends_with(u"\r\n")) << "a system text ends as system messages do";
  }
  ExpectStored(record, c.code, c.severity, c.code > 16000 ? Text(kMsgBadPaths) : SystemText(c.code), c.module);
}

using OF = OpenFailCase;
INSTANTIATE_TEST_SUITE_P(
    Paths, RkOpenViewerFails,
    testing::Values(OF{"archive_is_folder", "/folder", "/extract", kCodeBadPaths, 2, kCollectionFile},
                    OF{"archive_missing", "/absent.zip", "/extract", 2, 5, kCollectionFile},
                    OF{"archive_null", nullptr, "/extract", kCodeBadPaths, 2, kCollectionFile},
                    OF{"temp_missing", "/items.zip", "/absent", 2, 5, kCollectionFile},
                    OF{"temp_is_file", "/items.zip", "/items.zip", kCodeBadPaths, 2, kCollectionFile},
                    OF{"temp_null", "/items.zip", nullptr, kCodeInvalidParameter, 2, kExportsFile}),
    RkCaseName());

struct CryptoCase {
  const char* name;
  uint32_t given, engine;
};

class RkOpenViewerCrypto : public RkExportsTest, public testing::WithParamInterface<CryptoCase> {};

TEST_P(RkOpenViewerCrypto, MapsTheModeOntoTheEngine) {
  RkViewerRecord* record = nullptr;
  ASSERT_TRUE(open_viewer(archive_.c_str(), temp_.c_str(), 1, 1, 1, GetParam().given, &record));
  ASSERT_NE(record->collection, nullptr);
  EXPECT_EQ(record->collection->GetCryptoMode(), GetParam().engine);
  EXPECT_EQ(record->resizeDisabled, 1);
  EXPECT_EQ(record->collection->count(), 0u);
  ExpectClear(record);
  EXPECT_TRUE(close_viewer(record));
}

INSTANTIATE_TEST_SUITE_P(Modes, RkOpenViewerCrypto,
                         testing::Values(CryptoCase{"zero_keeps_default", 0, 0}, CryptoCase{"one", 1, 1},
                                         CryptoCase{"two", 2, 2}, CryptoCase{"seven_acts_like_two", 7, 2},
                                         CryptoCase{"largest", 0xFFFFFFFFu, 2}),
                         RkCaseName());

// ---- add_item, show_viewer, close_viewer, callback_init ----------------------------------------

TEST_F(RkExportsTest, AddItemWithNullFolderAddsAtTheRoot) {
  RkViewerRecord* record = OpenViewer();
  ASSERT_NE(record, nullptr);
  EXPECT_TRUE(add_item(record, nullptr, u"PIC.JPG", 99, 1, 1));
  ASSERT_EQ(record->collection->count(), 1u);
  RkSourceDocument* d = record->collection->at(0);
  EXPECT_TRUE(d->getFolder().empty());
  EXPECT_EQ(d->getName().view(), u"PIC.JPG");
  EXPECT_EQ(d->getArchiveName().view(), u"PIC.JPG");
  EXPECT_EQ(d->getItemKey(), 99u);
  EXPECT_TRUE(d->getEncrypted());
  EXPECT_TRUE(d->getStartHere());
  EXPECT_EQ(d->getDocumentType(), uint32_t{kDocumentImage});
  EXPECT_TRUE(add_item(record, u"docs", u"readme", 0, 0, 0));
  EXPECT_EQ(record->collection->at(1)->getFolder().view(), u"docs");
  EXPECT_EQ(record->collection->at(1)->getDocumentType(), uint32_t{kDocumentText});
  ExpectClear(record);
  EXPECT_TRUE(close_viewer(record));
}

// A null name is refused in the export, an empty one in the collection; the next good call
// clears the stored error.
TEST_F(RkExportsTest, AddItemRefusesNoNameAndTheNextCallResets) {
  RkViewerRecord* record = OpenViewer();
  EXPECT_FALSE(add_item(record, u"", nullptr, 0, 0, 0));
  ExpectStored(record, kCodeInvalidParameter, 2, SystemText(kCodeInvalidParameter), kExportsFile);
  EXPECT_FALSE(add_item(record, nullptr, u"", 0, 0, 0));
  ExpectStored(record, kCodeInvalidParameter, 2, SystemText(kCodeInvalidParameter), kCollectionFile);
  EXPECT_EQ(record->collection->count(), 0u);
  EXPECT_TRUE(add_item(record, nullptr, u"a.jpg", 0, 0, 0));
  ExpectClear(record);
  EXPECT_TRUE(record->description->empty());
  EXPECT_TRUE(record->module->empty());
  EXPECT_TRUE(close_viewer(record));
}

TEST_F(RkExportsTest, CallsWithoutCollection) {
  RkViewerRecord* record = OpenUtility();
  ASSERT_NE(record, nullptr);
  EXPECT_EQ(record->collection, nullptr);
  ASSERT_NE(record->description, nullptr);
  ASSERT_NE(record->module, nullptr);
  ExpectClear(record);
  EXPECT_FALSE(add_item(record, nullptr, u"a.jpg", 0, 0, 0));
  ExpectStored(record, kCodeNoCollection, 1, Text(kMsgNoCollection), kExportsFile);
  StoreOldError(record);
  EXPECT_FALSE(show_viewer(record, 0, 0, 0, 0, nullptr, 0));
  ExpectStored(record, kCodeNoCollection, 1, Text(kMsgNoCollection), kExportsFile);
}

TEST_F(RkExportsTest, ShowViewerFailsHonestlyWithoutAWindow) {
  RkViewerRecord* record = OpenViewer();
  ASSERT_TRUE(add_item(record, nullptr, u"a.jpg", 0, 0, 1));
  StoreOldError(record);
  char16_t password[8] = u"secret";
  EXPECT_FALSE(show_viewer(record, 0, 0, 1, 1, password, 8));
  ExpectStored(record, kCodeNoWindow, 5, Text(kMsgNoWindow), kExportsFile);
  EXPECT_EQ(std::u16string_view(password), u"secret");
  // The record stays usable: more items, then an ordinary close that removes the empty
  // temporary folder and nothing else.
  EXPECT_TRUE(add_item(record, nullptr, u"b.jpg", 0, 0, 0));
  EXPECT_EQ(record->collection->count(), 2u);
  EXPECT_TRUE(close_viewer(record));
  EXPECT_FALSE(fs::exists(root_ + "/extract"));
  EXPECT_TRUE(fs::exists(root_ + "/items.zip"));
}

TEST_F(RkExportsTest, CallbackInitStoresTheHostsObject) {
  class Host final : public RkDefaultViewerCallback {
  } host;
  ASSERT_EQ(RkCallbackSlot(), RkDefaultCallback());
  EXPECT_FALSE(callback_init(nullptr));
  EXPECT_EQ(RkCallbackSlot(), RkDefaultCallback());
  EXPECT_TRUE(callback_init(&host));
  EXPECT_EQ(RkCallbackSlot(), &host);
  EXPECT_FALSE(callback_init(nullptr));
  EXPECT_EQ(RkCallbackSlot(), &host);
  RkSetCallbackSlot(RkDefaultCallback());
}

// ---- image utility -------------------------------------------------------------------------------

struct ImageCallCase {
  const char* name;
  std::function<rk_bool8(RkViewerRecord*, rk_bool8*)> call;
};

class RkImageUtilityRefuses : public RkExportsTest, public testing::WithParamInterface<ImageCallCase> {};

TEST_P(RkImageUtilityRefuses, Stores16205AndClearsTheFlag) {
  RkViewerRecord* record = OpenUtility();
  StoreOldError(record);
  rk_bool8 flag = 1;
  EXPECT_FALSE(GetParam().call(record, &flag));
  EXPECT_EQ(flag, 0);
  ExpectStored(record, kCodeResizeRefused, 8, Text(kMsgResizeRefused), kExportsFile);
  // No record: false, and the flag is still cleared.
  flag = 1;
  EXPECT_FALSE(GetParam().call(nullptr, &flag));
  EXPECT_EQ(flag, 0);
  // No flag: the error is stored all the same.
  StoreOldError(record);
  EXPECT_FALSE(GetParam().call(record, nullptr));
  EXPECT_EQ(get_error_code(record), uint32_t{kCodeResizeRefused});
}

const char16_t kSource[] = u"in.png";
const char16_t kDestination[] = u"out.png";
using R = RkViewerRecord*;
using F = rk_bool8*;

INSTANTIATE_TEST_SUITE_P(
    Calls, RkImageUtilityRefuses,
    testing::Values(
        ImageCallCase{"resize_image", [](R r, F f) { return resize_image(r, kSource, kDestination, 10, 10, f); }},
        ImageCallCase{"resize_imageex",
                      [](R r, F f) { return resize_imageex(r, kSource, kDestination, 10, 10, f, u"wipe"); }},
        ImageCallCase{"resize_imageex2",
                      [](R r, F f) { return resize_imageex2(r, kSource, kDestination, 10, 10, 1, 0, f, nullptr); }},
        ImageCallCase{"resize_with_null_paths", [](R r, F f) { return resize_image(r, nullptr, nullptr, 0, 0, f); }},
        // rotate_image has no flag: the flag stays as the test clears it.
        ImageCallCase{"rotate_image",
                      [](R r, F f) {
                        if (f) *f = 0;
                        return rotate_image(r, kSource, kDestination, 1, 90);
                      }}),
    RkCaseName());

TEST_F(RkExportsTest, ResizeWithoutRecordFillsCodeAndText) {
  rk_bool8 flag = 1;
  uint32_t code = 0;
  std::vector<char16_t> text(1024, u'Z');
  EXPECT_FALSE(resize_imageex3(kSource, kDestination, 10, 10, &flag, &code, text.data()));
  EXPECT_EQ(flag, 0);
  EXPECT_EQ(code, uint32_t{kCodeResizeRefused});
  EXPECT_EQ(std::u16string_view(text.data()), Text(kMsgResizeRefused).view());
  // Null outputs are not written.
  EXPECT_FALSE(resize_imageex3(nullptr, nullptr, 0, 0, nullptr, nullptr, nullptr));
}

}  // namespace
