// RkDocCollection: the ordered items of one viewer, in the host's order, never sorted or filtered.
// Built by open_viewer, filled by add_item, walked by the window, destroyed by close_viewer. It is
// the archive's front too: the engine it derives from holds the archive.
//
// Walks skip hidden documents: failed ones always, deleted ones while the process-wide
// hide-deleted switch is on. The plain walks never extract; the "Ready" walks extract as they go
// and return only documents whose file is on disk. Everything runs on the window's thread.
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "RkSourceDocument.h"
#include "RkUnZipEng.h"

namespace RkImgVwr {

enum RkNavigationContext : uint32_t { kNavigateNormal = 1, kNavigateSlideShow = 2 };

class RkDocCollection : public RkUnZipEng {
 public:
  // Validates both paths: raises 16005 (severity 2) for an archive path without a file part, one
  // that is a folder, or a temporary folder that is empty or not a folder, and the system error
  // (severity 5) when either does not exist.
  RkDocCollection(const FidString& archivePath, const FidString& tempFolder, bool correctNames, bool readOnly);
  ~RkDocCollection() override;

  // Appends a document for the item. Raises 87 for an empty name or one that climbs out of the
  // temporary folder, 13 without a temporary folder, 16012 for an unsupported item.
  RkSourceDocument* add(const RkString& folder, const RkString& archiveName, const RkString& name,
                        uint64_t itemKey, bool encrypted, bool startHere);
  bool populate();

  RkSourceDocument* first(bool& isLast) const;
  RkSourceDocument* last(bool& isLast) const;
  RkSourceDocument* next(const RkSourceDocument* document, bool& isLast) const;
  RkSourceDocument* previous(const RkSourceDocument* document, bool& isLast) const;

  RkSourceDocument* firstReady(bool& isLast);
  RkSourceDocument* lastReady(bool& isLast);
  RkSourceDocument* nextReady(const RkSourceDocument* document, bool& isLast);
  RkSourceDocument* previousReady(const RkSourceDocument* document, bool& isLast);
  RkSourceDocument* startDocument(bool& isLast);

  uint32_t visibleCount() const;
  bool hasEncrypted() const;
  void addTypes(uint32_t mask) { activeTypes_ |= mask; }
  uint32_t activeTypes() const { return activeTypes_; }
  bool hasMissingFile() const;
  bool saveAs(RkSourceDocument* document, RkSourceDocument** newDocument, const RkString& newName);

  size_t count() const { return documents_.size(); }
  RkSourceDocument* at(size_t index) const { return documents_.at(index).get(); }
  const RkString& tempFolder() const { return tempFolder_; }
  void setNavigationContext(uint32_t context) { navigationContext_ = context; }
  void setBusy(bool busy) { busy_ = busy; }

 private:
  using Step = RkSourceDocument* (RkDocCollection::*)(const RkSourceDocument*, bool&) const;

  static bool IsHidden(const RkSourceDocument& document);
  RkSourceDocument* Walk(const RkSourceDocument* from, int direction, bool& isLast) const;
  RkSourceDocument* ReadyWalk(const RkSourceDocument* from, Step step, bool& isLast);
  // Extracts the document; passes 16011 on after marking it failed outside a slide show.
  void ExtractGuarded(RkSourceDocument* document);
  void Extract(RkSourceDocument* document);
  static bool FolderHoldsNoFile(const FidString& folder, int depth);
  static void RemoveEmptyTree(const FidString& folder, int depth);

  std::vector<std::unique_ptr<RkSourceDocument>> documents_;
  RkString archivePath_;
  RkString tempFolder_;
  uint32_t activeTypes_ = 0;
  uint32_t navigationContext_ = 0;
  bool busy_ = false;
  bool documentsOpen_ = true;
  bool correctNames_;
};

}  // namespace RkImgVwr
