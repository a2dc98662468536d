// The exported functions. Nothing leaves them as an exception: each failure becomes the record's
// stored error and a false result. Only these names are visible outside the library.
#include <cstring>
#include <new>

#include "RkError.h"
#include "RkLangModule.h"
#include "RkViewerException.h"
#include "RkViewerRecord.h"
#include "RkViewerState.h"
#include "rkimgv64.h"

using RkImgVwr::RkDocCollection;
using RkImgVwr::RkViewerException;
using RkLib::FidString;
using RkLib::RkString;

namespace {

// The language module is chosen and read when the library is loaded.
__attribute__((constructor)) void RkProcessAttach() { (void)RkImgVwr::RkLangModule::Get(); }

void ResetError(RkViewerRecord* record) {
  record->errorCode = record->severity = record->lineNumber = 0;
  if (record->description) record->description->clear();
  if (record->module) record->module->clear();
}

void StoreError(RkViewerRecord* record, const RkViewerException& e) {
  if (!record) return;
  record->errorCode = e.code();
  record->severity = e.severity();
  record->lineNumber = e.line();
  if (record->description) *record->description = e.description();
  if (record->module) *record->module = e.module();
}

// The two catch clauses of every working export. `record` may be null: then nothing is stored.
template <typename Body>
rk_bool8 Guarded(RkViewerRecord* record, Body&& body) {
  try {
    return body() ? 1 : 0;
  } catch (const RkViewerException& e) {
    StoreError(record, e);
  } catch (const RkLib::RkFaultRequest&) {
    RkLib::RkFaultAtSite();
  } catch (...) {
    try {
      StoreError(record, RK_VIEWER_ERROR(RkImgVwr::kCodeUnexpected, 4, RkImgVwr::kMsgUnexpected));
    } catch (...) {
      // Even the text could not be made; the false result still tells the host.
    }
  }
  return 0;
}

RkViewerRecord* NewRecord() {
  auto* record = new (std::nothrow) RkViewerRecord();
  if (!record) return nullptr;
  record->description = new (std::nothrow) RkString();
  record->module = new (std::nothrow) RkString();
  return record;
}

void FreeRecord(RkViewerRecord* record) {
  if (record->description) record->description->wipe();
  delete record->description;
  delete record->module;
  delete record;
}

// A bounds-checked copy: the whole buffer is zeroed, and a text that does not fit with its
// terminator gives false.
rk_bool8 CopyOut(const RkString* text, char16_t* buffer, uint32_t bufferChars) {
  std::memset(buffer, 0, sizeof(char16_t) * bufferChars);
  if (!text || text->empty()) return 1;
  if (text->length() + 1 > bufferChars) return 0;
  std::memcpy(buffer, text->c_str(), sizeof(char16_t) * text->length());
  return 1;
}

RkString Text(const char16_t* s) { return RkString(s); }

// The image work arrives with the codec layer; until then every request is refused honestly.
[[noreturn]] void RefuseImageWork() {
  throw RK_VIEWER_ERROR(RkImgVwr::kCodeResizeRefused, 8, RkImgVwr::kMsgResizeRefused);
}

}  // namespace

extern "C" {

rk_bool8 open_viewer(const char16_t* archivePath, const char16_t* tempFolder, rk_bool8 correctNames,
                     rk_bool8 readOnly, rk_bool8 resizeDisabled, uint32_t cryptoMode, RkViewerRecord** out) {
  if (!out) return 0;
  RkViewerRecord* record = NewRecord();
  if (!record) return 0;
  *out = record;
  record->resizeDisabled = resizeDisabled;
  return Guarded(record, [&] {
    if (!tempFolder) throw RK_SYSTEM_ERROR(RkImgVwr::kCodeInvalidParameter, 2);
    auto* collection = new (std::nothrow)
        RkDocCollection(FidString(Text(archivePath)), FidString(Text(tempFolder)), correctNames, readOnly);
    if (!collection) throw RK_SYSTEM_ERROR(RkImgVwr::kCodeInvalidData, 1);
    record->collection = collection;
    if (cryptoMode != 0) collection->SetCryptoMode(cryptoMode == 1 ? 1 : 2);
    return true;
  });
}

rk_bool8 add_item(RkViewerRecord* record, const char16_t* folder, const char16_t* name, uint64_t itemKey,
                  rk_bool8 encrypted, rk_bool8 startHere) {
  if (!record) return 0;
  ResetError(record);
  return Guarded(record, [&] {
    if (!name) throw RK_SYSTEM_ERROR(RkImgVwr::kCodeInvalidParameter, 2);
    if (!record->collection) throw RK_VIEWER_ERROR(RkImgVwr::kCodeNoCollection, 1, RkImgVwr::kMsgNoCollection);
    return record->collection->add(Text(folder), Text(name), Text(name), itemKey, encrypted != 0,
                                   startHere != 0) != nullptr;
  });
}

rk_bool8 show_viewer(RkViewerRecord* record, rk_hwnd /*parent*/, rk_bool8 /*startSlideShow*/,
                     rk_bool8 /*saveOption*/, rk_bool8 /*askPassword*/, char16_t* /*passwordBuffer*/,
                     uint32_t /*passwordBufferChars*/) {
  if (!record) return 0;
  ResetError(record);
  return Guarded(record, [&]() -> bool {
    if (!record->collection) throw RK_VIEWER_ERROR(RkImgVwr::kCodeNoCollection, 1, RkImgVwr::kMsgNoCollection);
    record->collection->populate();
    // The window arrives with the viewer's window layer; until then the run cannot start.
    throw RK_VIEWER_ERROR(RkImgVwr::kCodeNoWindow, 5, RkImgVwr::kMsgNoWindow);
  });
}

rk_bool8 close_viewer(RkViewerRecord* record) {
  if (!record) return 0;
  try {
    RkImgVwr::wipeTemporaryFiles(record->collection);
    delete record->collection;
    record->collection = nullptr;
    FreeRecord(record);
    return 1;
  } catch (...) {
    return 0;
  }
}

rk_bool8 callback_init(RkImageViewerCallback* callback) {
  if (!callback) return 0;
  RkImgVwr::RkSetCallbackSlot(callback);
  return 1;
}

uint32_t get_error_code(RkViewerRecord* record) { return record ? record->errorCode : 99999; }
uint32_t get_severity_code(RkViewerRecord* record) { return record ? record->severity : 2; }
uint32_t get_line_number(RkViewerRecord* record) { return record ? record->lineNumber : 0; }

rk_bool8 get_error_description(RkViewerRecord* record, char16_t* buffer, uint32_t bufferChars) {
  if (!record || !buffer || bufferChars == 0) return 0;
  // System texts end in a line break that the host should not see; at most two characters go.
  for (int i = 0; i < 2 && record->description && !record->description->empty(); ++i) {
    char16_t c = record->description->back();
    if (c != u'\n' && c != u'\r') break;
    record->description->resize(record->description->length() - 1);
  }
  return CopyOut(record->description, buffer, bufferChars);
}

rk_bool8 get_error_module(RkViewerRecord* record, char16_t* buffer, uint32_t bufferChars) {
  if (!record || !buffer || bufferChars == 0) return 0;
  return CopyOut(record->module, buffer, bufferChars);
}

rk_bool8 open_image_utility(RkViewerRecord** out) {
  if (!out) return 0;
  RkViewerRecord* record = NewRecord();
  if (!record) return 0;
  if (!record->description || !record->module) {
    FreeRecord(record);
    return 0;
  }
  *out = record;
  return 1;
}

rk_bool8 close_image_utility(RkViewerRecord* record) {
  if (!record) return 0;
  FreeRecord(record);
  return 1;
}

rk_bool8 resize_imageex2(RkViewerRecord* record, const char16_t* /*source*/, const char16_t* /*destination*/,
                         uint32_t /*width*/, uint32_t /*height*/, rk_bool8 /*enlarge*/, rk_bool8 /*shrink*/,
                         rk_bool8* flagOut, const char16_t* /*wipeFolder*/) {
  if (flagOut) *flagOut = 0;
  if (!record) return 0;
  ResetError(record);
  return Guarded(record, []() -> bool { RefuseImageWork(); });
}

rk_bool8 resize_imageex(RkViewerRecord* record, const char16_t* source, const char16_t* destination,
                        uint32_t width, uint32_t height, rk_bool8* flagOut, const char16_t* wipeFolder) {
  return resize_imageex2(record, source, destination, width, height, 0, 1, flagOut, wipeFolder);
}

rk_bool8 resize_image(RkViewerRecord* record, const char16_t* source, const char16_t* destination, uint32_t width,
                      uint32_t height, rk_bool8* flagOut) {
  return resize_imageex(record, source, destination, width, height, flagOut, nullptr);
}

rk_bool8 resize_imageex3(const char16_t* /*source*/, const char16_t* /*destination*/, uint32_t /*width*/,
                         uint32_t /*height*/, rk_bool8* flagOut, uint32_t* errorCodeOut, char16_t* errorTextOut) {
  if (flagOut) *flagOut = 0;
  try {
    RefuseImageWork();
  } catch (const RkViewerException& e) {
    if (errorTextOut) {
      std::memcpy(errorTextOut, e.description().c_str(), sizeof(char16_t) * (e.description().length() + 1));
    }
    if (errorCodeOut) *errorCodeOut = e.code();
  } catch (...) {
  }
  return 0;
}

rk_bool8 rotate_image(RkViewerRecord* record, const char16_t* /*source*/, const char16_t* /*destination*/,
                      rk_bool8 /*direction*/, uint32_t /*angle*/) {
  if (!record) return 0;
  ResetError(record);
  return Guarded(record, []() -> bool { RefuseImageWork(); });
}

}  // extern "C"
