// Source documents: the record of one item the host added — where it lies in the archive, where
// its extracted copy lies, and the flags it collects on its way through the viewer. No content.
#pragma once

#include <cstdint>
#include <memory>

#include "RkFid.h"

namespace RkImgVwr {

using RkLib::FidString;
using RkLib::RkString;

enum RkDocumentType : uint32_t { kDocumentNone = 0, kDocumentImage = 1, kDocumentText = 2 };
enum RkModification : uint32_t { kModificationNone = 0, kModificationRotated = 1, kModificationResized = 2 };

class RkSourceDocument {
 public:
  RkSourceDocument(RkString folder, RkString archiveName, RkString name, RkString tempFolder, uint64_t itemKey,
                   bool encrypted, bool startHere);
  RkSourceDocument(const RkSourceDocument&) = delete;
  RkSourceDocument& operator=(const RkSourceDocument&) = delete;
  virtual ~RkSourceDocument();

  // A file (anything but a folder) lies at fullPath. Any lookup error counts as missing.
  virtual bool existsOnDisk() const;
  virtual bool isSupported() const { return false; }
  virtual bool isRenderable() const { return false; }
  virtual bool isModified() const { return modification_ != kModificationNone; }
  virtual bool getExtracted() const { return extracted_; }
  virtual void setExtracted(bool v) { extracted_ = v; }
  virtual bool getEncrypted() const { return encrypted_; }
  virtual void setEncrypted(bool v) { encrypted_ = v; }
  virtual uint32_t getDocumentType() const { return documentType_; }
  virtual void setDocumentType(uint32_t v) { documentType_ = v; }
  virtual RkString typeName() const { return {}; }
  virtual uint32_t getModification() const { return modification_; }
  virtual void setModification(uint32_t v) { modification_ = v; }
  virtual int32_t getIndex() const { return index_; }
  virtual void setIndex(int32_t v) { index_ = v; }
  virtual bool getStartHere() const { return startHere_; }
  virtual void setStartHere(bool v) { startHere_ = v; }
  virtual bool getFailed() const { return failed_; }
  virtual void setFailed(bool v) { failed_ = v; }
  virtual bool getKeepFile() const { return keepFile_; }
  virtual void setKeepFile(bool v) { keepFile_ = v; }
  virtual bool getDeleted() const { return deleted_; }
  virtual void setDeleted(bool v) { deleted_ = v; }
  virtual bool getWiped() const { return wiped_; }
  virtual void setWiped(bool v) { wiped_ = v; }
  virtual uint64_t getItemKey() const { return itemKey_; }
  virtual void setItemKey(uint64_t v) { itemKey_ = v; }
  virtual const RkString& getName() const { return name_; }
  virtual void setName(const RkString& v) { name_ = v; }
  virtual const RkString& getArchiveName() const { return archiveName_; }
  virtual void setArchiveName(const RkString& v) { archiveName_ = v; }
  virtual const RkString& getTempFolder() const { return tempFolder_; }
  virtual const RkString& getFolder() const { return folder_; }
  // Paths inside the archive and on disk; each is a new string.
  virtual RkString folderAndName() const;
  virtual RkString folderAndArchiveName() const;
  virtual FidString fullPath() const;
  virtual FidString fullFolder() const;
  // Deletes the extracted copy unless it is the user's now (keepFile) or went to the wiper.
  virtual void deleteFile();

 protected:
  uint32_t documentType_ = kDocumentNone;

 private:
  RkString folder_;
  RkString name_;
  RkString archiveName_;
  RkString tempFolder_;
  uint32_t modification_ = kModificationNone;
  uint64_t itemKey_;
  int32_t index_ = -1;
  bool keepFile_ = false;
  bool deleted_ = false;
  bool encrypted_;
  bool startHere_;
  bool extracted_ = false;
  bool failed_ = false;
  bool wiped_ = false;
};

class RkImageSourceDocument final : public RkSourceDocument {
 public:
  RkImageSourceDocument(RkString folder, RkString archiveName, RkString name, RkString tempFolder,
                        uint64_t itemKey, bool encrypted, bool startHere);
  bool isSupported() const override;
  bool isRenderable() const override;
  RkString typeName() const override;
};

class RkTextRtfSourceDocument final : public RkSourceDocument {
 public:
  RkTextRtfSourceDocument(RkString folder, RkString archiveName, RkString name, RkString tempFolder,
                          uint64_t itemKey, bool encrypted, bool startHere);
  bool isSupported() const override { return true; }
  bool isRenderable() const override { return existsOnDisk(); }
  RkString typeName() const override;
};

// True when the name's extension is one of the fourteen image extensions, ignoring case. A name
// that denotes a folder only never is.
bool RkHasImageExtension(const RkString& name);

// An image document for a name with an image extension, a text document for anything else.
std::unique_ptr<RkSourceDocument> makeSourceDocument(const RkString& folder, const RkString& archiveName,
                                                     const RkString& name, const RkString& tempFolder,
                                                     uint64_t itemKey, bool encrypted, bool startHere);

// Joins two path parts: a "\" between them unless the first is empty or ends in a separator.
RkString RkJoinPath(const RkString& head, const RkString& tail);

}  // namespace RkImgVwr
