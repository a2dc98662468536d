#include "RkSourceDocument.h"

#include "RkFileOps.h"
#include "RkLangModule.h"
#include "RkViewerException.h"

namespace RkImgVwr {

namespace {

constexpr std::u16string_view kImageExtensions[] = {u"bmp",  u"dib", u"gif",  u"jpeg", u"jpg",
                                                    u"jfif", u"jpe", u"exif", u"tif",  u"tiff",
                                                    u"ico",  u"wmf", u"emf",  u"png"};

}  // namespace

RkString RkJoinPath(const RkString& head, const RkString& tail) {
  RkString out(head);
  if (!out.empty() && !FidString::IsSeparator(out.back())) out += FidString::kSeparator;
  out += tail;
  return out;
}

bool RkHasImageExtension(const RkString& name) {
  FidString path(name);
  if (path.IsFolderOnly()) return false;
  RkString ext = path.GetExtension();
  for (std::u16string_view candidate : kImageExtensions)
    if (ext.equalsNoCase(candidate)) return true;
  return false;
}

RkSourceDocument::RkSourceDocument(RkString folder, RkString archiveName, RkString name, RkString tempFolder,
                                   uint64_t itemKey, bool encrypted, bool startHere)
    : folder_(std::move(folder)), name_(std::move(name)), archiveName_(std::move(archiveName)),
      tempFolder_(std::move(tempFolder)), itemKey_(itemKey), encrypted_(encrypted), startHere_(startHere) {}

// The names can say what an encrypted archive holds: they do not outlive the document.
RkSourceDocument::~RkSourceDocument() {
  folder_.wipe();
  name_.wipe();
  archiveName_.wipe();
  tempFolder_.wipe();
}

bool RkSourceDocument::existsOnDisk() const {
  RkLib::RkPathInfo info;
  return RkLib::RkGetPathInfo(fullPath(), info) == 0 && info.kind != RkLib::RkPathKind::kFolder;
}

RkString RkSourceDocument::folderAndName() const { return RkJoinPath(folder_, name_); }

RkString RkSourceDocument::folderAndArchiveName() const { return RkJoinPath(folder_, archiveName_); }

FidString RkSourceDocument::fullPath() const { return RkJoinPath(RkJoinPath(tempFolder_, folder_), name_); }

FidString RkSourceDocument::fullFolder() const {
  RkString path = RkJoinPath(tempFolder_, folder_);
  if (!path.empty() && FidString::IsSeparator(path.back())) path.resize(path.length() - 1);
  return path;
}

void RkSourceDocument::deleteFile() {
  if (extracted_ && !keepFile_ && !wiped_) RkLib::RkDeleteFile(fullPath());
}

RkImageSourceDocument::RkImageSourceDocument(RkString folder, RkString archiveName, RkString name,
                                             RkString tempFolder, uint64_t itemKey, bool encrypted, bool startHere)
    : RkSourceDocument(std::move(folder), std::move(archiveName), std::move(name), std::move(tempFolder), itemKey,
                       encrypted, startHere) {
  documentType_ = kDocumentImage;
}

bool RkImageSourceDocument::isSupported() const { return RkHasImageExtension(getName()); }

bool RkImageSourceDocument::isRenderable() const { return existsOnDisk() && RkHasImageExtension(getName()); }

RkString RkImageSourceDocument::typeName() const { return RkLangModule::Get().Text(kMsgImageType); }

RkTextRtfSourceDocument::RkTextRtfSourceDocument(RkString folder, RkString archiveName, RkString name,
                                                 RkString tempFolder, uint64_t itemKey, bool encrypted,
                                                 bool startHere)
    : RkSourceDocument(std::move(folder), std::move(archiveName), std::move(name), std::move(tempFolder), itemKey,
                       encrypted, startHere) {
  documentType_ = kDocumentText;
}

RkString RkTextRtfSourceDocument::typeName() const { return RkLangModule::Get().Text(kMsgTextType); }

std::unique_ptr<RkSourceDocument> makeSourceDocument(const RkString& folder, const RkString& archiveName,
                                                     const RkString& name, const RkString& tempFolder,
                                                     uint64_t itemKey, bool encrypted, bool startHere) {
  if (RkHasImageExtension(name))
    return std::make_unique<RkImageSourceDocument>(folder, archiveName, name, tempFolder, itemKey, encrypted,
                                                   startHere);
  return std::make_unique<RkTextRtfSourceDocument>(folder, archiveName, name, tempFolder, itemKey, encrypted,
                                                   startHere);
}

}  // namespace RkImgVwr
