#include "RkDocCollection.h"

#include <new>

#include "RkError.h"
#include "RkFileOps.h"
#include "RkFindFile.h"
#include "RkViewerException.h"
#include "RkViewerState.h"

namespace RkImgVwr {

namespace {

using RkLib::RkLinks;
using RkLib::RkPathInfo;
using RkLib::RkPathKind;
using RkLib::RkReplace;

// A folder or name part that would lead out of the temporary folder: "..", a root, a drive.
bool ClimbsOut(const RkString& part) {
  FidString path(part);
  if (path.RootLength() > 0 || path.HasDrive()) return true;
  size_t start = 0;
  std::u16string_view s = part.view();
  for (size_t i = 0; i <= s.size(); ++i) {
    if (i == s.size() || FidString::IsSeparator(s[i])) {
      if (s.substr(start, i - start) == u"..") return true;
      start = i + 1;
    }
  }
  return false;
}

// Deep enough for any real extraction, and a stop for a folder tree that loops through mounts.
constexpr int kMaxFolderDepth = 64;

}  // namespace

RkDocCollection::RkDocCollection(const FidString& archivePath, const FidString& tempFolder, bool correctNames,
                                 bool readOnly)
    : RkUnZipEng(this, archivePath, tempFolder, readOnly), archivePath_(archivePath), tempFolder_(tempFolder),
      correctNames_(correctNames) {
  try {
    if (archivePath.IsFolderOnly()) throw RK_VIEWER_ERROR(kCodeBadPaths, 2, kMsgBadPaths);
    // The host's own paths may lie behind links: what they lead to counts.
    RkPathInfo info;
    uint32_t error = RkLib::RkGetPathInfo(archivePath, info, RkLinks::kFollowed);
    if (error != 0) throw RK_SYSTEM_ERROR(error, 5);
    if (info.kind == RkPathKind::kFolder) throw RK_VIEWER_ERROR(kCodeBadPaths, 2, kMsgBadPaths);
    if (tempFolder.empty()) throw RK_VIEWER_ERROR(kCodeBadPaths, 2, kMsgBadPaths);
    FidString folder(tempFolder);
    folder.RemoveSeparator();
    error = RkLib::RkGetPathInfo(folder, info, RkLinks::kFollowed);
    if (error != 0) throw RK_SYSTEM_ERROR(error, 5);
    if (info.kind != RkPathKind::kFolder) throw RK_VIEWER_ERROR(kCodeBadPaths, 2, kMsgBadPaths);
  } catch (const RkViewerException&) {
    throw;
  } catch (...) {
    throw RK_VIEWER_ERROR(kCodeUnexpected, 4, kMsgUnexpected);
  }
}

RkDocCollection::~RkDocCollection() {
  try {
    bool anyDeleted = false;
    for (auto& document : documents_) {
      anyDeleted = anyDeleted || document->getDeleted();
      if (document->getExtracted()) document->deleteFile();
      document.reset();
    }
    documents_.clear();
    CloseArchive();
    FidString folder(tempFolder_);
    folder.RemoveSeparator();
    // A folder that held a deleted document stays: the host may still look for that item there.
    // The cleanup never follows a link.
    if (!folder.empty() && RkLib::RkIsFolder(folder, RkLinks::kNotFollowed) && !anyDeleted &&
        FolderHoldsNoFile(folder, 0)) {
      RemoveEmptyTree(folder, 0);
    }
  } catch (...) {
    // Nothing leaves a destructor; what could not be removed stays on disk.
  }
  archivePath_.wipe();
  tempFolder_.wipe();
}

bool RkDocCollection::FolderHoldsNoFile(const FidString& folder, int depth) {
  if (depth > kMaxFolderDepth) return false;
  RkLib::RkFindFile find;
  if (!find.Open(folder)) return false;
  while (find.Next()) {
    if (!find.IsFolder() || find.IsLink()) return false;
    if (!FolderHoldsNoFile(find.GetPath(), depth + 1)) return false;
  }
  return find.LastError() == 0;
}

// Bottom-up rmdir: it removes only folders, so a file that appeared since the test survives.
void RkDocCollection::RemoveEmptyTree(const FidString& folder, int depth) {
  if (depth > kMaxFolderDepth) return;
  RkLib::RkFindFile find;
  if (find.Open(folder)) {
    std::vector<FidString> children;
    while (find.Next())
      if (find.IsFolder() && !find.IsLink()) children.push_back(find.GetPath());
    for (const FidString& child : children) RemoveEmptyTree(child, depth + 1);
  }
  RkLib::RkRemoveFolder(folder);
}

RkSourceDocument* RkDocCollection::add(const RkString& folder, const RkString& archiveName, const RkString& name,
                                       uint64_t itemKey, bool encrypted, bool startHere) {
  try {
    if (name.empty() || ClimbsOut(name) || ClimbsOut(folder)) throw RK_SYSTEM_ERROR(kCodeInvalidParameter, 2);
    if (tempFolder_.empty()) throw RK_SYSTEM_ERROR(kCodeInvalidData, 1);
    std::unique_ptr<RkSourceDocument> document =
        makeSourceDocument(folder, archiveName, name, tempFolder_, itemKey, encrypted, startHere);
    RK_ASSERT(document != nullptr);
    if (!document->isSupported()) throw RK_VIEWER_ERROR(kCodeUnsupported, 1, kMsgUnsupported);
    document->setIndex(static_cast<int32_t>(documents_.size()));
    addTypes(document->getDocumentType());
    documents_.push_back(std::move(document));
    return documents_.back().get();
  } catch (const RkViewerException&) {
    throw;
  } catch (const std::bad_alloc& e) {
    throw RkViewerException(kCodeNoMemory, 4, RkString::FromUtf8(e.what()), RkString::FromUtf8(__FILE__),
                            __LINE__);
  } catch (...) {
    throw RK_VIEWER_ERROR(kCodeUnexpected, 4, kMsgUnexpected);
  }
}

bool RkDocCollection::populate() {
  if (!archivePath_.empty()) return true;
  if (tempFolder_.empty()) throw RK_SYSTEM_ERROR(kCodeInvalidData, 1);
  if (!documents_.empty()) return true;
  RkLib::RkFindFile find;
  if (!find.Open(FidString(tempFolder_))) return true;
  while (find.Next()) {
    if (find.IsFolder()) continue;
    try {
      add(RkString(), find.GetName(), find.GetName(), 0, false, false);
    } catch (const RkViewerException& e) {
      if (e.code() != kCodeUnsupported) throw;
    }
  }
  for (size_t i = 0; i < documents_.size();) {
    if (!documents_[i]->isRenderable()) {
      documents_.erase(documents_.begin() + static_cast<std::ptrdiff_t>(i));
      for (size_t j = i; j < documents_.size(); ++j) documents_[j]->setIndex(static_cast<int32_t>(j));
    } else {
      ++i;
    }
  }
  return true;
}

bool RkDocCollection::IsHidden(const RkSourceDocument& document) {
  return document.getFailed() || (document.getDeleted() && RkHideDeleted());
}

// One step of a plain walk from `from` (null: from before the first or after the last) in
// `direction`. isLast is true when the candidate has no neighbour left in that direction.
RkSourceDocument* RkDocCollection::Walk(const RkSourceDocument* from, int direction, bool& isLast) const {
  const auto count = static_cast<int64_t>(documents_.size());
  int64_t pos;
  if (from == nullptr) {
    pos = direction > 0 ? 0 : count - 1;
  } else {
    pos = from->getIndex() + direction;
  }
  if (count == 0 || pos < 0 || pos >= count) {
    isLast = true;
    return nullptr;
  }
  for (; pos >= 0 && pos < count; pos += direction) {
    isLast = direction > 0 ? pos == count - 1 : pos == 0;
    RkSourceDocument* candidate = documents_[static_cast<size_t>(pos)].get();
    if (!IsHidden(*candidate)) return candidate;
    if (isLast) return nullptr;
  }
  return nullptr;
}

RkSourceDocument* RkDocCollection::first(bool& isLast) const { return Walk(nullptr, +1, isLast); }
RkSourceDocument* RkDocCollection::last(bool& isLast) const { return Walk(nullptr, -1, isLast); }

RkSourceDocument* RkDocCollection::next(const RkSourceDocument* document, bool& isLast) const {
  if (!document) {
    isLast = true;
    return nullptr;
  }
  return Walk(document, +1, isLast);
}

RkSourceDocument* RkDocCollection::previous(const RkSourceDocument* document, bool& isLast) const {
  if (!document) {
    isLast = true;
    return nullptr;
  }
  return Walk(document, -1, isLast);
}

// The walks with extraction: take a plain step; extract a candidate that is not on disk; a
// candidate that failed is hidden now, so the same step is taken again from the same start.
RkSourceDocument* RkDocCollection::ReadyWalk(const RkSourceDocument* from, Step step, bool& isLast) {
  const int direction = step == &RkDocCollection::next ? +1 : -1;
  const bool fromEnd = from == nullptr;
  // firstReady alone extracts without testing the flags: its plain step passed hidden ones over.
  const bool skipFlagTest = fromEnd && direction > 0;
  auto plainStep = [&]() { return fromEnd ? Walk(nullptr, direction, isLast) : (this->*step)(from, isLast); };
  RkSourceDocument* candidate = plainStep();
  while (candidate) {
    const bool eligible = skipFlagTest || (!candidate->getFailed() && !candidate->getDeleted());
    if (eligible && !candidate->existsOnDisk()) ExtractGuarded(candidate);
    if (candidate->getFailed()) {
      candidate = plainStep();
    } else if (!candidate->getDeleted()) {
      return candidate;
    } else {
      // Only while deleted documents are shown (cleanup) can one come back here: pass it by.
      candidate = Walk(candidate, direction, isLast);
    }
  }
  return nullptr;
}

RkSourceDocument* RkDocCollection::firstReady(bool& isLast) { return ReadyWalk(nullptr, &RkDocCollection::next, isLast); }
RkSourceDocument* RkDocCollection::lastReady(bool& isLast) {
  return ReadyWalk(nullptr, &RkDocCollection::previous, isLast);
}
RkSourceDocument* RkDocCollection::nextReady(const RkSourceDocument* document, bool& isLast) {
  if (!document) {
    isLast = true;
    return nullptr;
  }
  return ReadyWalk(document, &RkDocCollection::next, isLast);
}
RkSourceDocument* RkDocCollection::previousReady(const RkSourceDocument* document, bool& isLast) {
  if (!document) {
    isLast = true;
    return nullptr;
  }
  return ReadyWalk(document, &RkDocCollection::previous, isLast);
}

RkSourceDocument* RkDocCollection::startDocument(bool& isLast) {
  RkSourceDocument* document = first(isLast);
  while (document && !document->getStartHere()) document = next(document, isLast);
  if (!document) document = first(isLast);
  // Every document is visited at most twice: once on the way to the end, once after the wrap.
  for (size_t visits = 0; document && visits <= 2 * documents_.size(); ++visits) {
    const bool eligible = !document->getFailed() && !document->getDeleted();
    if (eligible && !document->existsOnDisk()) ExtractGuarded(document);
    if (!document->getFailed() && !document->getDeleted() && document->existsOnDisk()) return document;
    document = next(document, isLast);
    if (!document) document = first(isLast);
  }
  return nullptr;
}

void RkDocCollection::ExtractGuarded(RkSourceDocument* document) {
  try {
    Extract(document);
  } catch (const RkViewerException& e) {
    // In a slide show a refused password leaves the document unmarked, so a later round retries.
    if (e.code() == kCodePasswordRefused) document->setFailed(navigationContext_ != kNavigateSlideShow);
    throw;
  }
}

void RkDocCollection::Extract(RkSourceDocument* document) {
  RK_ASSERT(document != nullptr);
  FidString path = RkJoinPath(document->getFolder(), document->getName());
  const bool encrypted = document->getEncrypted();
  const uint64_t itemKey = document->getItemKey();
  document->setFailed(true);  // until proved otherwise
  SetHoldApplication(busy_);
  SetProgressMode(navigationContext_);
  for (int attempt = 0; attempt < 2; ++attempt) {
    bool passwordRefused = false;
    if (!ExtractOne(path, encrypted, itemKey, passwordRefused)) {
      if (passwordRefused) throw RK_VIEWER_ERROR(kCodePasswordRefused, 7, kMsgPasswordRefused);
      break;
    }
    if (document->existsOnDisk()) {
      document->setExtracted(true);
      document->setFailed(false);
      break;
    }
    // An archive that holds one stream under another name than the host thought (a gzip file,
    // for one) still shows its content: take the name of its first entry and try once more.
    if (!correctNames_) break;
    RkString entryName;
    bool entryEncrypted = false;
    uint64_t entrySize = 0;
    if (!GetItemInfo(0, entryName, entryEncrypted, entrySize)) break;
    if (!FidString(entryName).GetFolder().empty() || entryName == document->getName()) break;
    if (ClimbsOut(entryName)) break;
    document->setName(entryName);
    path = RkJoinPath(document->getFolder(), document->getName());
  }
  if (document->getExtracted() && correctNames_ && document->getName() != document->getArchiveName()) {
    FidString from = document->fullPath();
    RkString extractedName = document->getName();
    document->setName(document->getArchiveName());
    if (const uint32_t error = RkLib::RkMoveFile(from, document->fullPath(), RkReplace::kYes); error != 0) {
      document->setName(extractedName);
      throw RK_SYSTEM_ERROR(error, 5);
    }
  }
}

uint32_t RkDocCollection::visibleCount() const {
  uint32_t n = 0;
  for (const auto& d : documents_)
    if (!d->getFailed() && !d->getDeleted()) ++n;
  return n;
}

bool RkDocCollection::hasEncrypted() const {
  for (const auto& d : documents_)
    if (d->getEncrypted()) return true;
  return false;
}

bool RkDocCollection::hasMissingFile() const {
  if (archivePath_.empty()) return false;
  bool isLast = false;
  for (RkSourceDocument* d = first(isLast); d; d = next(d, isLast))
    if (!d->existsOnDisk()) return true;
  return false;
}

bool RkDocCollection::saveAs(RkSourceDocument* document, RkSourceDocument** newDocument, const RkString& newName) {
  RK_ASSERT(document != nullptr && newDocument != nullptr);
  *newDocument = nullptr;
  RkSourceDocument* target = document;
  if (!newName.empty() && newName != document->getName()) {
    target = add(document->getFolder(), document->getArchiveName(), newName, 0, false, false);
    RK_ASSERT(target != nullptr);
    target->setExtracted(document->getExtracted());
    const uint32_t error = RkLib::RkCopyFile(document->fullPath(), target->fullPath(), RkReplace::kYes);
    if (error != 0) throw RK_SYSTEM_ERROR(error, 5);
    *newDocument = target;
  }
  document->setModification(kModificationNone);
  if (!target->getExtracted() || target->getKeepFile()) return true;
  RkImageViewerCallback* callback = RkCallbackSlot();
  RK_ASSERT(callback != nullptr);
  const rk_bool8 accepted =
      callback->onItemChanged(target->fullPath().c_str(), !target->getFolder().empty(), 0, 0,
                              target->folderAndArchiveName().c_str(), target->folderAndName().c_str());
  RK_ASSERT(accepted != 0);
  target->setKeepFile(true);
  return true;
}

}  // namespace RkImgVwr
