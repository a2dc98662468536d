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
    {50100, u"The operation completed."},
    {50102, u"This archive type does not support the operation."},
    {50106, u"The archive is not loaded."},
    {50108, u"The operation was cancelled."},
    {50112, u"The archive could not be read."},
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
