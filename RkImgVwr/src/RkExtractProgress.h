// RkExtractProgress: the progress of one extraction run, built on the stack by the engine for
// that run only. It decides when a progress window may appear, so that a quick extraction never
// flashes one; until a window exists it keeps the latest percent and text for it.
//
// Modes: 0 no window; 1 a full window with text and bar over a disabled parent; 2 a small bar at
// the foot of the parent, which stays usable; 3 like 1, reacting to Escape only. The window
// arrives with the viewer's window layer: until then no run has a bar, and every value waits.
#pragma once

#include <cstdint>

#include "RkString.h"

namespace RkImgVwr {

using RkLib::RkString;

class RkExtractProgress {
 public:
  RkExtractProgress(uint32_t mode, uint32_t delay, bool holdApplication)
      : mode_(mode), delay_(delay), holdApplication_(holdApplication) {}
  RkExtractProgress(const RkExtractProgress&) = delete;
  RkExtractProgress& operator=(const RkExtractProgress&) = delete;
  // The text may name an entry of an encrypted archive.
  ~RkExtractProgress() { pendingText_.wipe(); }

  void SetPercent(uint32_t percent) { pendingPercent_ = percent; }
  void SetText(const RkString& text) { pendingText_ = text; }
  // Only a window's cancel button or key can cancel; without a window nothing has.
  bool IsCancelled() const { return false; }

  uint32_t mode() const { return mode_; }
  uint32_t delay() const { return delay_; }
  bool holdApplication() const { return holdApplication_; }
  uint32_t pendingPercent() const { return pendingPercent_; }
  const RkString& pendingText() const { return pendingText_; }

 private:
  uint32_t mode_;
  uint32_t delay_;
  bool holdApplication_;
  RkString pendingText_;
  uint32_t pendingPercent_ = 0;
};

}  // namespace RkImgVwr
