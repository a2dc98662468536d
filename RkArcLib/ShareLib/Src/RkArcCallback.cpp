#include "RkArcCallback.h"

namespace RkArcLib {

using RkLib::FidString;
using RkLib::RkString;

RkArcCallback::~RkArcCallback() = default;

int RkArcCallback::AskUser(const RkString&, const RkString&, uint32_t flags) {
  return (flags & kArcAskYesNo) ? kArcAnswerNo : kArcAnswerOk;
}
bool RkArcCallback::ReportMessage(uint32_t, const RkString&) { return false; }
int RkArcCallback::AskNextPart(const FidString&, uint32_t, FidString&) { return kArcAnswerCancel; }
int RkArcCallback::AskNextOutputPart(const FidString&, uint32_t, FidString&) { return kArcAnswerCancel; }
bool RkArcCallback::IsCancelled() { return false; }
void RkArcCallback::SetPercent(int) {}
bool RkArcCallback::AssignName(const RkString&, RkString&) { return true; }
bool RkArcCallback::ShouldExtract(const RkArcItem&) { return false; }
bool RkArcCallback::CanWrite(const FidString&) { return true; }
int RkArcCallback::AskFileInUse(const FidString&) { return 5; }
void RkArcCallback::Progress(uint32_t, const RkString&) {}
void RkArcCallback::PartProgress(uint32_t, uint64_t, uint64_t) {}
bool RkArcCallback::KeepGoing() { return true; }
int RkArcCallback::AskAttributes(const FidString&, uint32_t) { return 4; }
int RkArcCallback::AskFileExists(const FidString&, const RkArcItem&) { return 4; }
int RkArcCallback::AskFileOpenFailed(const FidString&, int) { return 5; }
int RkArcCallback::AskFileWriteFailed(const FidString&, int) { return 5; }
bool RkArcCallback::AskOptions(uint32_t) { return false; }
int RkArcCallback::AskPassword(const FidString&, RkString&, int) { return 0; }
bool RkArcCallback::AskPartFolder(FidString&) { return false; }
bool RkArcCallback::ContinueAfterReadError(const RkString&, uint32_t) { return true; }
bool RkArcCallback::ContinueAfterWriteError(const RkString&, uint32_t) { return true; }
bool RkArcCallback::ContinueAfterCrcError(const RkString&, uint32_t) { return true; }
bool RkArcCallback::ContinueAfterItemError(const RkString&, uint32_t) { return true; }
int RkArcCallback::AskCertificate(const RkString&) { return 1; }
int RkArcCallback::AskCertificateTrust(const RkString&) { return 1; }
int RkArcCallback::AskCertificateExpired(const RkString&) { return 1; }
int RkArcCallback::AskSecurity(const RkString&) { return 2; }

}  // namespace RkArcLib
