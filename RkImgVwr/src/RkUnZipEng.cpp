#include "RkUnZipEng.h"

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
  archive_ = nullptr;
  return true;
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

bool RkUnZipEng::IsReadOnly() const { return readOnlyArchive_; }

bool RkUnZipEng::IsMultiPart() const { return false; }

bool RkUnZipEng::IsCancelled() const { return false; }

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
