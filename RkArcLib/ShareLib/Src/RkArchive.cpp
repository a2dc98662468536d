#include "RkArchive.h"

#include "RkArcCallback.h"
#include "RkArcResources.h"
#include "RkArcSupportInfo.h"
#include "RkFileOps.h"

namespace RkArcLib {

using RkLib::FidString;
using RkLib::RkString;

namespace {

// Stateless, so one silent host serves every archive that was given none.
RkArcCallback& SilentCallback() {
  static RkArcCallback callback;
  return callback;
}

}  // namespace

RkArchive::RkArchive(const FidString& fileName) : fileName_(fileName), callback_(&SilentCallback()) {}

RkArchive::~RkArchive() = default;

uint32_t RkArchive::GetPartCount() const { return 1; }

bool RkArchive::FileExists() const { return RkLib::RkPathExists(fileName_, RkLib::RkLinks::kFollowed); }

bool RkArchive::IsReadOnly() const {
  RkLib::RkPathInfo info;
  if (fileName_.empty() || RkLib::RkGetPathInfo(fileName_, info, RkLib::RkLinks::kFollowed) != 0) return false;
  const bool hidden = (info.attributes & RkLib::kAttrHidden) != 0;
  const bool system = info.kind != RkLib::RkPathKind::kFile && info.kind != RkLib::RkPathKind::kFolder;
  return info.kind == RkLib::RkPathKind::kFolder || (info.permissions & 0200) == 0 || hidden || system;
}

bool RkArchive::Unsupported(RkState& state) {
  state.Set(kArcNotSupported, RkLib::kSeverityFatal);
  return false;
}

bool RkArchive::AddItems(const RkArcSelection&, RkState& state) { return Unsupported(state); }
bool RkArchive::UpdateItems(const RkArcSelection&, RkState& state) { return Unsupported(state); }
bool RkArchive::FreshenItems(const RkArcSelection&, RkState& state) { return Unsupported(state); }
bool RkArchive::MoveItems(const RkArcSelection&, RkState& state) { return Unsupported(state); }
bool RkArchive::DeleteItems(const RkArcSelection&, RkState& state) { return Unsupported(state); }
bool RkArchive::RenameItem(int64_t, const RkString&, RkState& state) { return Unsupported(state); }
bool RkArchive::CreateFolder(const RkString&, RkState& state) { return Unsupported(state); }
bool RkArchive::Commit(RkState& state) { return Unsupported(state); }
bool RkArchive::Extract(const RkArcSelection&, RkState& state) { return Unsupported(state); }
bool RkArchive::Test(const RkArcSelection&, RkState& state) { return Unsupported(state); }
bool RkArchive::TestPart(uint32_t, RkState& state) { return Unsupported(state); }
bool RkArchive::Fix(RkState& state) { return Unsupported(state); }
bool RkArchive::Split(RkState& state) { return Unsupported(state); }
bool RkArchive::Encrypt(const RkString&, RkState& state) { return Unsupported(state); }
bool RkArchive::EncryptItems(const RkArcSelection&, const RkString&, RkState& state) {
  return Unsupported(state);
}
bool RkArchive::SetComment(const RkString&, RkState& state) { return Unsupported(state); }
bool RkArchive::GetComment(RkString& comment, RkState& state) {
  comment.clear();
  return Unsupported(state);
}
bool RkArchive::SetItemComment(int64_t, const RkString&, RkState& state) { return Unsupported(state); }
bool RkArchive::GetItemComment(int64_t, RkString& comment, RkState& state) {
  comment.clear();
  return Unsupported(state);
}
bool RkArchive::SetPartSize(uint64_t, RkState& state) { return Unsupported(state); }
bool RkArchive::SetCompressionLevel(int, RkState& state) { return Unsupported(state); }
bool RkArchive::Sign(const RkString&, RkState& state) { return Unsupported(state); }
bool RkArchive::VerifySignature(RkState& state) { return Unsupported(state); }
bool RkArchive::GetSigner(RkString& signer, RkState& state) {
  signer.clear();
  return Unsupported(state);
}
bool RkArchive::RemoveSignature(RkState& state) { return Unsupported(state); }

uint32_t RkArchive::CommonMessageResource(uint32_t code) noexcept {
  if (code <= 15) return 50100 + code;
  if (code == 16) return 50137;
  if (code <= 37) return 50116 + (code - 17);
  if (code == 38) return 50138;
  return 0;
}

bool RkArchive::GetErrorMessage(const RkState& state, RkString& message) const {
  const uint32_t id = CommonMessageResource(state.code);
  if (id == 0) return false;
  message = RkArcResourceText(id);
  return true;
}

std::shared_ptr<const RkArcSupportInfo> RkArchive::GetSupportInfo() const {
  static const auto info = std::make_shared<const RkArcSupportInfo>();
  return info;
}

RkArcCallback* RkArchive::SetCallback(RkArcCallback* callback) {
  RkArcCallback* earlier = callback_;
  callback_ = callback ? callback : &SilentCallback();
  return earlier;
}
RkArcCallback* RkArchive::GetCallback() const { return callback_; }
void RkArchive::SetTypeSettingsObject(RkArcTypeSettings* settings) { typeSettings_ = settings; }
RkArcTypeSettings* RkArchive::GetTypeSettingsObject() const { return typeSettings_; }
void RkArchive::SetFileName(const FidString& fileName) { fileName_ = fileName; }
const FidString& RkArchive::GetFileName() const { return fileName_; }
void RkArchive::SetCryptoMode(uint32_t mode) { cryptoMode_ = mode; }
uint32_t RkArchive::GetCryptoMode() const { return cryptoMode_; }

}  // namespace RkArcLib
