// The record behind the opaque handle of the exports.
#pragma once

#include <cstdint>

#include "RkDocCollection.h"
#include "RkString.h"

// Global, as the public header names it. Allocated zero-filled by the open calls, freed by the
// close calls; the strings are allocated at open and never null in a live record.
struct RkViewerRecord {
  RkImgVwr::RkDocCollection* collection = nullptr;  // null in an image utility record
  uint8_t resizeDisabled = 0;
  uint32_t errorCode = 0;
  uint32_t severity = 0;
  uint32_t lineNumber = 0;
  RkLib::RkString* description = nullptr;
  RkLib::RkString* module = nullptr;
};

namespace RkImgVwr {

// Hands the files of encrypted documents to the wiper beside the host executable and deletes the
// other extracted files; with no wiper there, leaves all deletion to the collection's destructor.
// A null collection is an assertion failure.
void wipeTemporaryFiles(RkDocCollection* collection);

}  // namespace RkImgVwr
