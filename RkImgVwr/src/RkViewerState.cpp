#include "RkViewerState.h"

#include <atomic>

namespace RkImgVwr {

namespace {

RkDefaultViewerCallback defaultCallback;
std::atomic<RkImageViewerCallback*> callbackSlot{&defaultCallback};
std::atomic<bool> hideDeleted{true};

}  // namespace

RkImageViewerCallback* RkCallbackSlot() noexcept { return callbackSlot.load(); }
void RkSetCallbackSlot(RkImageViewerCallback* callback) noexcept { callbackSlot.store(callback); }
RkImageViewerCallback* RkDefaultCallback() noexcept { return &defaultCallback; }
bool RkHideDeleted() noexcept { return hideDeleted.load(); }
void RkSetHideDeleted(bool hide) noexcept { hideDeleted.store(hide); }

}  // namespace RkImgVwr
