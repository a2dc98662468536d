#include "RkZipCHdr.h"

#include "RkZipCursor.h"

namespace RkArcLib {

void RkZipCHdr::Parse(RkZipCursor& cursor) {
  versionMadeBy = cursor.U16();
  versionNeeded = cursor.U16();
  flags = cursor.U16();
  method = cursor.U16();
  modTime = cursor.U16();
  modDate = cursor.U16();
  crc = cursor.U32();
  compressedSize = cursor.U32();
  originalSize = cursor.U32();
  nameLength = cursor.U16();
  extraLength = cursor.U16();
  commentLength = cursor.U16();
  startPart = cursor.U16();
  internalAttributes = cursor.U16();
  externalAttributes = cursor.U32();
  localOffset = cursor.U32();
  compressedSize64 = compressedSize;
  originalSize64 = originalSize;
  localOffset64 = localOffset;
  startPart32 = startPart;
}

}  // namespace RkArcLib
