// Process-wide state of the library: the host's callback slot and the hide-deleted switch. Both
// are used on the thread of show_viewer and close_viewer only; the slot is atomic because four
// callbacks are reached from an extraction worker while that thread waits.
#pragma once

#include "rkimgv64.h"

namespace RkImgVwr {

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
