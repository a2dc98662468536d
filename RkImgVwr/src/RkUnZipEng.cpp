#include "RkUnZipEng.h"

#include "RkArcSupportInfo.h"
#include "RkArchive.h"
#include "RkError.h"
#include "RkExtractProgress.h"
#include "RkState.h"

namespace RkImgVwr {

RkUnZipEng::RkUnZipEng(RkDocCollection* owner, const FidString& archivePath, const FidString& extractFolder,
                       bool readOnly)
    : archivePath_(archivePath), extractFolder_(extractFolder), owner_(owner), readOnlyArchive_(readOnly) {}

// The password must not outlive the engine in freed memory.
RkUnZipEng::~RkUnZipEng() {
  CloseArchive();
  password_.wipe();
}

bool RkUnZipEng::OpenArchive() { return true; }

bool RkUnZipEng::CloseArchive() {
  delete archive_;
  archive_ = nullptr;
  return true;
}

void RkUnZipEng::AdoptArchive(RkArcLib::RkArchive* archive) {
  if (archive == archive_) return;
  CloseArchive();
  archive_ = archive;
}

bool RkUnZipEng::ListItems() { return true; }

bool RkUnZipEng::GetItemInfo(uint32_t, RkString&, bool&, uint64_t&) { return false; }

bool RkUnZipEng::ExtractOne(const FidString&, bool, uint64_t, bool& passwordRefused) {
  passwordRefused = false;
  return false;
}

bool RkUnZipEng::ExtractMarked(bool& cancelled) {
  cancelled = false;
  return false;
}

const RkString& RkUnZipEng::ArchiveError(const RkArcLib::RkState& error, RkString& text) const {
  text.clear();
  if (!archive_ || !archive_->GetErrorMessage(error, text) || text.empty())
    text = RkString::Format(u"%u", error.code);
  return text;
}

bool RkUnZipEng::IsReadOnly() const { return readOnlyArchive_ || (archive_ && archive_->IsReadOnly()); }

// A part count of all ones, the archive's "several, how many not yet known", is above 1 too.
bool RkUnZipEng::IsMultiPart() const { return archive_ && archive_->GetPartCount() > 1; }

bool RkUnZipEng::CanCreateType() const {
  if (!archive_) return false;
  const auto info = archive_->GetSupportInfo();
  return info && info->CanCreateNew();
}

bool RkUnZipEng::IsCancelled() const { return progress_ && progress_->IsCancelled(); }

void RkUnZipEng::AttachProgress(RkExtractProgress* progress) {
  RK_ASSERT(progress_ == nullptr);
  progress_ = progress;
}

void RkUnZipEng::SetProgressPercent(uint32_t percent) {
  if (progressMode_ != 0 && progress_) progress_->SetPercent(percent);
}

void RkUnZipEng::SetProgressText(const RkString& text) {
  if (progressMode_ != 0 && progress_) progress_->SetText(text);
}

void RkUnZipEng::SetBusy(bool on) {
  if (on) {
    ++busyCount_;
  } else if (busyCount_ > 0) {
    --busyCount_;
  }
  if (busyEvent_.Valid()) {
    if (busyCount_ > 0) {
      busyEvent_.Set();
    } else {
      busyEvent_.Reset();
    }
  }
}

void RkUnZipEng::SetEvents(const RkLib::RkEvent& busy, const RkLib::RkEvent& cancel) {
  busyEvent_ = busy;
  cancelEvent_ = cancel;
}

}  // namespace RkImgVwr
