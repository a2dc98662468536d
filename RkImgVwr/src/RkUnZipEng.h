// RkUnZipEng: the viewer's engine on the archive, base of the document collection. It holds the
// archive, the password in use and the messages of a run, and extracts one item or all waiting
// ones on request.
//
// The archive layer is not joined yet: OpenArchive and ListItems succeed without an archive
// object, and ExtractOne produces nothing, so a document whose file is not already in the
// temporary folder ends up failed.
#pragma once

#include <cstdint>

#include "RkFid.h"
#include "RkNamedEvent.h"

namespace RkArcLib {
class RkArchive;
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
  bool IsReadOnly() const;
  bool IsMultiPart() const;
  bool IsCancelled() const;
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

 private:
  // Fields that the archive bridge will use are kept in their documented order already.
  FidString archivePath_;
  [[maybe_unused]] FidString extractFolder_;
  RkArcLib::RkArchive* archive_ = nullptr;
  [[maybe_unused]] RkDocCollection* owner_;
  [[maybe_unused]] RkExtractProgress* progress_ = nullptr;
  RkString password_;
  [[maybe_unused]] RkString detailText_;
  [[maybe_unused]] RkString firstMessage_;
  [[maybe_unused]] RkString moreMessages_;
  [[maybe_unused]] RkString lastStatus_;
  RkLib::RkEvent busyEvent_;
  RkLib::RkEvent cancelEvent_;
  uint32_t busyCount_ = 0;
  [[maybe_unused]] uint32_t progressMode_ = 0;
  [[maybe_unused]] uint32_t progressDelay_ = 2000;
  [[maybe_unused]] bool holdApplication_ = true;
  bool readOnlyArchive_;
  [[maybe_unused]] uint32_t attributeAnswer_ = kAnswerUnset;
  [[maybe_unused]] uint32_t existsAnswer_ = kAnswerUnset;
  uint32_t cryptoMode_ = 0;
};

}  // namespace RkImgVwr
