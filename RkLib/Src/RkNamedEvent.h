// RkEvent: manual- and auto-reset events, optionally named, shared between the threads of one
// process. They stand in for the kernel events through which the viewer, its frames and the
// extraction workers signal each other.
//
// Contract:
// - An RkEvent is a handle; copies refer to the same event. Any thread may Set, Reset, Wait and
//   IsSet through its own handle at any time. One handle object is not to be assigned, moved or
//   closed while another thread uses that same object; copy the handle to share it.
// - A name lives as long as some handle refers to its event. Create with a living name opens that
//   event and ignores the reset mode and initial state given; Open of a name whose last handle is
//   gone fails. Names compare exactly, case included. An empty name makes an unnamed event.
// - Set on a manual-reset event releases every waiter and keeps the event signalled until Reset.
//   Set on an auto-reset event releases exactly one waiter, and the release resets it; with no
//   waiter it stays signalled until the next wait. Two Sets with no wait between are one.
// - Only Wait and WaitAny block, for at most their time-out. The other calls hold a short
//   internal lock and call nothing of the caller's, so they cannot deadlock with the caller's
//   locks. A wait without time-out for an event that nobody sets lasts for ever.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <utility>

#include "RkString.h"

namespace RkLib {

class RkEvent {
 public:
  static constexpr uint32_t kInfinite = 0xFFFFFFFF;

  // A null handle: every operation but Close, Valid and the assignment is an assertion failure.
  RkEvent() = default;

  static RkEvent Create(const RkString& name, bool manualReset, bool initialState);
  static std::optional<RkEvent> Open(const RkString& name);

  // Create found the name in use and opened that event.
  bool AlreadyExisted() const noexcept { return alreadyExisted_; }
  bool Valid() const noexcept { return static_cast<bool>(state_); }
  const RkString& Name() const;

  void Set();
  void Reset();
  // True when the event was signalled within the time-out (kInfinite: no limit), false otherwise.
  bool Wait(uint32_t timeoutMs);
  // The state as it is now; it does not release an auto-reset event.
  bool IsSet() const;
  // Drops this handle; the name goes with the last one.
  void Close() noexcept;

  // Waits until one of the events is signalled and returns the lowest index of those that are,
  // releasing only that one; -1 on time-out or for an empty list.
  static int WaitAny(std::span<RkEvent> events, uint32_t timeoutMs);

 private:
  struct State;
  explicit RkEvent(std::shared_ptr<State> state, bool alreadyExisted)
      : state_(std::move(state)), alreadyExisted_(alreadyExisted) {}

  std::shared_ptr<State> state_;
  bool alreadyExisted_ = false;
};

}  // namespace RkLib
