// Process-wide state of the library: the host's callback slot and the hide-deleted switch. Both
// are used on the thread of show_viewer and close_viewer only; the slot is atomic because four
// callbacks are reached from an extraction worker while that thread waits.
#pragma once

#include "rkimgv64.h"

namespace RkImgVwr {

// The answers the library gives when the host sets no callback object; a host-side test double
// derives from it and overrides only what it watches.
class RkDefaultViewerCallback : public RkImageViewerCallback {
 public:
  rk_bool8 onItemChanged(const char16_t*, rk_bool8, rk_bool8, rk_bool8, const char16_t*, const char16_t*) override {
    return 1;
  }
  rk_bool8 isValidName(const char16_t*) override { return 1; }
  rk_bool8 itemExists(const char16_t*) override { return 0; }
  rk_bool8 showHelp(rk_hwnd, uint32_t, uint32_t) override { return 1; }
  uint32_t askSecurity(uint32_t, uint32_t, uint32_t, uint32_t) override { return 0; }
  uint32_t shareItem(rk_hwnd, const char16_t*) override { return 0; }
  rk_bool8 getPassword(const char16_t*, char16_t*, uint32_t) override { return 1; }
  void setPassword(const char16_t*, uint32_t, const char16_t*) override {}
  void onArchiveFile(const char16_t*) override {}
  void setViewerWindow(rk_hwnd) override {}
};

// Starts at a built-in object with the default answers; callback_init replaces it, and the end of
// show_viewer sets it to null (not back to the default).
RkImageViewerCallback* RkCallbackSlot() noexcept;
void RkSetCallbackSlot(RkImageViewerCallback* callback) noexcept;
RkImageViewerCallback* RkDefaultCallback() noexcept;

// While true the collection hides documents marked deleted. The cleanup turns it off for its walk.
bool RkHideDeleted() noexcept;
void RkSetHideDeleted(bool hide) noexcept;

// Saves the switch and restores it on the way out, also when an exception passes.
class RkHideDeletedScope {
 public:
  explicit RkHideDeletedScope(bool hide) : saved_(RkHideDeleted()) { RkSetHideDeleted(hide); }
  ~RkHideDeletedScope() { RkSetHideDeleted(saved_); }
  RkHideDeletedScope(const RkHideDeletedScope&) = delete;
  RkHideDeletedScope& operator=(const RkHideDeletedScope&) = delete;

 private:
  bool saved_;
};

}  // namespace RkImgVwr
