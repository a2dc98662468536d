// RkArcCallback: every question that the archive library has for its host. The base answers as a
// host that shows nothing and refuses whatever would need a person; the probe loads of the factory
// use it as it stands. The library makes each call under its archive-wide lock, so an override must
// not call back into the archive.
#pragma once

#include <cstdint>

#include "RkLibFwd.h"

namespace RkArcLib {

class RkArcItem;

// Answers of AskUser in the message-box sense.
enum RkArcAnswer : int {
  kArcAnswerOk = 1,
  kArcAnswerCancel = 2,
  kArcAnswerYes = 6,
  kArcAnswerNo = 7,
};

// Answers of AskFileExists and AskAttributes: a button, "for all" when remembered, or none.
enum RkArcExistsAnswer : int {
  kArcExistsReplace = 0,
  kArcExistsSkip = 1,
  kArcExistsReplaceAll = 2,
  kArcExistsSkipAll = 3,
  kArcExistsNoAnswer = 4,
};

// Kinds of Progress: a progress text, a status line.
enum RkArcProgressKind : uint32_t {
  kArcProgressText = 0,
  kArcProgressStatus = 1,
};

// AskUser flag: the question is a yes/no one.
inline constexpr uint32_t kArcAskYesNo = 0x10;

class RkArcCallback {
 public:
  RkArcCallback() = default;
  RkArcCallback(const RkArcCallback&) = delete;
  RkArcCallback& operator=(const RkArcCallback&) = delete;
  virtual ~RkArcCallback();

  virtual int AskUser(const RkLib::RkString& text, const RkLib::RkString& title, uint32_t flags);
  // false is the user's cancel: the caller turns it into a fatal error of code 8.
  virtual bool ReportMessage(uint32_t level, const RkLib::RkString& message);
  virtual int AskNextPart(const RkLib::FidString& archiveName, uint32_t part, RkLib::FidString& path);
  virtual int AskNextOutputPart(const RkLib::FidString& archiveName, uint32_t part, RkLib::FidString& path);
  virtual bool IsCancelled();
  virtual void SetPercent(int percent);
  virtual bool AssignName(const RkLib::RkString& from, RkLib::RkString& to);
  virtual bool ShouldExtract(const RkArcItem& item);
  virtual bool CanWrite(const RkLib::FidString& path);
  virtual int AskFileInUse(const RkLib::FidString& path);
  virtual void Progress(uint32_t kind, const RkLib::RkString& message);
  virtual void PartProgress(uint32_t part, uint64_t done, uint64_t total);
  virtual bool KeepGoing();
  virtual int AskAttributes(const RkLib::FidString& path, uint32_t attributes);
  virtual int AskFileExists(const RkLib::FidString& path, const RkArcItem& item);
  virtual int AskFileOpenFailed(const RkLib::FidString& path, int systemError);
  virtual int AskFileWriteFailed(const RkLib::FidString& path, int systemError);
  virtual bool AskOptions(uint32_t kind);
  // 1 when `password` was filled, 0 to refuse.
  virtual int AskPassword(const RkLib::FidString& archiveName, RkLib::RkString& password, int retry);
  virtual bool AskPartFolder(RkLib::FidString& folder);
  virtual bool ContinueAfterReadError(const RkLib::RkString& name, uint32_t code);
  virtual bool ContinueAfterWriteError(const RkLib::RkString& name, uint32_t code);
  virtual bool ContinueAfterCrcError(const RkLib::RkString& name, uint32_t code);
  virtual bool ContinueAfterItemError(const RkLib::RkString& name, uint32_t code);
  virtual int AskCertificate(const RkLib::RkString& subject);
  virtual int AskCertificateTrust(const RkLib::RkString& subject);
  virtual int AskCertificateExpired(const RkLib::RkString& subject);
  virtual int AskSecurity(const RkLib::RkString& question);
};

}  // namespace RkArcLib
