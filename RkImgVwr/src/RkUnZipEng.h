// RkUnZipEng: the viewer's engine on the archive, base of the document collection. It holds the
// archive, the password in use and the messages of a run, and extracts one item or all waiting
// ones on request.
//
// The archive is not opened yet: OpenArchive and ListItems succeed without an archive object, and
// ExtractOne produces nothing, so a document whose file is not already in the temporary folder
// ends up failed. The questions put to an archive (read-only, parts, creatable type, its message
// for a state) answer from the archive object once there is one.
#pragma once

#include <cstdint>

#include "RkFid.h"
#include "RkNamedEvent.h"

namespace RkArcLib {
class RkArchive;
class RkState;
}

namespace RkImgVwr {

using RkLib::FidString;
using RkLib::RkString;

class RkDocCollection;
class RkExtractProgress;

// Remembered answers start unset.
inline constexpr uint32_t kAnswerUnset = 4;

class RkUnZipEng {
 public:
  RkUnZipEng(RkDocCollection* owner, const FidString& archivePath, const FidString& extractFolder, bool readOnly);
  RkUnZipEng(const RkUnZipEng&) = delete;
  RkUnZipEng& operator=(const RkUnZipEng&) = delete;
  virtual ~RkUnZipEng();

  bool OpenArchive();
  bool CloseArchive();
  bool ListItems();
  virtual bool GetItemInfo(uint32_t index, RkString& name, bool& encrypted, uint64_t& size);
  // Extracts the entry at `path` inside the archive into the extract folder. `passwordRefused`
  // tells the caller that the user would not give a password.
  virtual bool ExtractOne(const FidString& path, bool usePassword, uint64_t itemKey, bool& passwordRefused);
  bool ExtractMarked(bool& cancelled);
  // Puts the archive's message for `error` into `text` and returns it. Without an archive, or
  // for a code that the archive has no message for, the code's number stands in.
  const RkString& ArchiveError(const RkArcLib::RkState& error, RkString& text) const;
  // True when the constructor was told read-only, else when the archive says so.
  bool IsReadOnly() const;
  bool IsMultiPart() const;
  // Whether an archive of this type can be written at all; false without an archive.
  bool CanCreateType() const;
  bool IsCancelled() const;
  // Progress reported by the archive reaches the progress object of the running extraction, and
  // only when that extraction shows progress (a mode other than 0).
  void SetProgressPercent(uint32_t percent);
  void SetProgressText(const RkString& text);
  void SetBusy(bool on);

  void SetCryptoMode(uint32_t mode) { cryptoMode_ = mode; }
  uint32_t GetCryptoMode() const { return cryptoMode_; }
  void SetPassword(const RkString& password) { password_ = password; }
  const RkString& GetPassword() const { return password_; }
  void SetEvents(const RkLib::RkEvent& busy, const RkLib::RkEvent& cancel);
  void SetHoldApplication(bool hold) { holdApplication_ = hold; }
  void SetProgressMode(uint32_t mode) { progressMode_ = mode; }

 protected:
  const FidString& EngineArchivePath() const { return archivePath_; }
  // Takes ownership of the archive, closing any earlier one.
  void AdoptArchive(RkArcLib::RkArchive* archive);
  // The progress object of one extraction run. Runs do not nest, so the field must be free.
  void AttachProgress(RkExtractProgress* progress);
  void DetachProgress() { progress_ = nullptr; }

 private:
  // Fields that the archive bridge will use are kept in their documented order already.
  FidString archivePath_;
  [[maybe_unused]] FidString extractFolder_;
  RkArcLib::RkArchive* archive_ = nullptr;
  [[maybe_unused]] RkDocCollection* owner_;
  RkExtractProgress* progress_ = nullptr;
  RkString password_;
  [[maybe_unused]] RkString detailText_;
  [[maybe_unused]] RkString firstMessage_;
  [[maybe_unused]] RkString moreMessages_;
  [[maybe_unused]] RkString lastStatus_;
  RkLib::RkEvent busyEvent_;
  RkLib::RkEvent cancelEvent_;
  uint32_t busyCount_ = 0;
  uint32_t progressMode_ = 0;
  [[maybe_unused]] uint32_t progressDelay_ = 2000;
  [[maybe_unused]] bool holdApplication_ = true;
  bool readOnlyArchive_;
  [[maybe_unused]] uint32_t attributeAnswer_ = kAnswerUnset;
  [[maybe_unused]] uint32_t existsAnswer_ = kAnswerUnset;
  uint32_t cryptoMode_ = 0;
};

}  // namespace RkImgVwr
