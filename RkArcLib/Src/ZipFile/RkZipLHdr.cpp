#include "RkZipLHdr.h"

#include "RkZipCursor.h"

namespace RkArcLib {

void RkZipLHdr::Parse(RkZipCursor& cursor) {
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
}

}  // namespace RkArcLib
