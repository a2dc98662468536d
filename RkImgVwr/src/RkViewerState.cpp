#include "RkViewerState.h"

#include <atomic>

namespace RkImgVwr {

namespace {

class RkDefaultViewerCallback final : public RkImageViewerCallback {
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
