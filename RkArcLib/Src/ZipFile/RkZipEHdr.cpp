#include "RkZipEHdr.h"

#include "RkZipCursor.h"

namespace RkArcLib {

bool RkZipIsHeaderSignature(uint32_t value) noexcept {
  switch (value) {
    case kZipSigCentral:
    case kZipSigDigitalSignature:
    case kZipSigLocal:
    case kZipSigEnd:
    case kZipSigExtendedLocal:
    case kZipSigZ64End:
      return true;
    default:
      return false;
  }
}

void RkZipEHdr::Parse(RkZipCursor& cursor) {
  thisPartRead = cursor.U16();
  cdirStartPartRead = cursor.U16();
  entriesThisPartRead = cursor.U16();
  entriesTotalRead = cursor.U16();
  cdirSizeRead = cursor.U32();
  cdirOffsetRead = cursor.U32();
  commentLength = cursor.U16();
  thisPart = thisPartRead;
  // A directory cannot start on a part after the one that ends it.
  cdirStartPart = cdirStartPartRead > thisPartRead ? thisPartRead : cdirStartPartRead;
  entriesThisPart = entriesThisPartRead;
  entriesTotal = entriesTotalRead;
  cdirSize = cdirSizeRead;
  cdirOffset = cdirOffsetRead;
}

bool RkZipEHdr::HasAllOnesField() const noexcept {
  return thisPartRead == kAllOnes16 || cdirStartPartRead == kAllOnes16 || entriesThisPartRead == kAllOnes16 ||
         entriesTotalRead == kAllOnes16 || cdirSizeRead == kAllOnes32 || cdirOffsetRead == kAllOnes32;
}

void RkZipZ64Loc::Parse(RkZipCursor& cursor) {
  endRecordPart = cursor.U32();
  endRecordOffset = cursor.U64();
  totalParts = cursor.U32();
}

void RkZipZ64EHdr::Parse(RkZipCursor& cursor) {
  versionMadeBy = cursor.U16();
  versionNeeded = cursor.U16();
  thisPart = cursor.U32();
  cdirStartPart = cursor.U32();
  entriesThisPart = cursor.U64();
  entriesTotal = cursor.U64();
  cdirSize = cursor.U64();
  cdirOffset = cursor.U64();
}

}  // namespace RkArcLib
