#include "RkArcResources.h"

#include <iterator>

namespace RkArcLib {

namespace {

struct Text {
  uint32_t id;
  const char16_t* text;
};

constexpr Text kTexts[] = {
    {50000, u"7z archive"},
    {50001, u"bzip2 compressed file"},
    {50002, u"Cabinet file"},
    {50003, u"gzip compressed file"},
    {50004, u"ISO disc image"},
    {50005, u"LHA archive"},
    {50006, u"LZ compressed file"},
    {50007, u"RAR archive"},
    {50008, u"Tar archive"},
    {50009, u"Encoded text file"},
    {50010, u"xz compressed file"},
    {50011, u"Unix compressed file"},
    {50012, u"ZIP archive"},
    {50013, u"Virtual disk image"},
    {50014, u"Unknown archive type"},
    {50327, u"%1 is not a zip archive, or its end is damaged."},
    {50328, u"The end of the archive could not be read."},
    {50367, u"%1 is a folder, not an archive."},
    {50368, u"%1 is empty; it is taken as a new archive."},
    {50370, u"%1 could not be opened."},
    {50371, u"The central directory could not be reached where the end record places it."},
    {50372, u"Central directory entry %1 at offset %2: there are more entries than the end record says."},
    {50373, u"Central directory entry %1 at offset %2: bad signature; the central directory is not where the end record places it."},
    {50374, u"Central directory entry %1 at offset %2: bad signature."},
    {50375, u"Central directory entry %1 at offset %2: the file ends inside the entry."},
    {50376, u"Central directory entry %1 at offset %2: damaged name or extra field."},
    {50384, u"The local header of %1 is not where the central directory places it."},
    {50385, u"The archive ends inside the local header of %1."},
    {50386, u"The local header of %1 could not be read."},
    {50387, u"The attributes of %1 could not be read."},
    {50388, u"The CRC in the local header of %3 is %2; the central directory says %1."},
    {50389, u"The method in the local header of %3 is %2; the central directory says %1."},
    {50390, u"The packed size in the local header of %3 is %2; the central directory says %1."},
    {50391, u"The size in the local header of %3 is %2; the central directory says %1."},
    {50392, u"The flags in the local header of %3 are %2; the central directory says %1."},
    {50336, u"%1 is encrypted and no password was accepted for it; it was not extracted."},
    {50352, u"%1 should be %2 bytes long, but %3 bytes came out of the archive."},
    {50407, u"No entry of the archive matches the selection."},
    {50433, u"%1 could not be created."},
    {50470, u"The local header of %1 could not be reached."},
    {50474, u"Extracting %1"},
    {50475, u"Testing %1"},
    {50486, u"The authentication code of %1 is wrong: the data or the password is not right."},
    {50497, u"The password given for %1 is probably wrong."},
    {50587, u"The test is complete."},
    {50594, u"%1: OK"},
    {50596, u"The CRC of %1 is %3; the archive says %2. The data is damaged."},
    {50598, u"The data of %1 is damaged (code %2)."},
    {50599, u"%1 is packed with a method that cannot be unpacked here (%2)."},
    {50600, u"%1 has the same name as an earlier entry; the extraction stops so that it is not overwritten."},
    {52211, u"The digest of %1 is %3; the archive says %2. The data is damaged."},
    {50476, u"The central directory of this archive is encrypted, which is not supported."},
    {50477, u"This archive needs version %1.%2 of the zip format, which is not supported."},
    {50492, u"The name %1 was too long and has been shortened."},
    {50494, u"The archive comment is longer than the file; it has been cut."},
    {50495, u"The name %1 held a drive, a root or relative parts, which have been removed."},
    {52200, u"The file reference of %1 is damaged and has been removed."},
    {52201, u"%1 refers to data that is not in the archive."},
    {52202, u"%1 more entries were changed in the same way."},
    {50100, u"The operation completed."},
    {50102, u"This archive type does not support the operation."},
    {50106, u"The archive is not loaded."},
    {50108, u"The operation was cancelled."},
    {50112, u"The archive could not be read."},
    {50113, u"A file or folder of the output could not be created."},
    {50115, u"The archive could not be opened."},
    {50117, u"The archive ends inside a header."},
    {50118, u"The archive is new or empty."},
    {50119, u"No files are selected."},
    {50127, u"The item number is out of range."},
    {50128, u"The item was not loaded."},
    {50131, u"The name is not in the archive."},
    {50133, u"A password is required."},
};

}  // namespace

RkLib::RkString RkArcResourceText(uint32_t id) {
  for (const Text& t : kTexts) {
    if (t.id == id) return RkLib::RkString(t.text);
  }
  return RkLib::RkFormatUnsigned(u"Archive message %llu", id);
}

}  // namespace RkArcLib
