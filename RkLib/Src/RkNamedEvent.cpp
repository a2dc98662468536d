#include "RkNamedEvent.h"

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <string>
#include <unordered_map>
#include <utility>

#include "RkError.h"

namespace RkLib {

namespace {

// One lock and one condition for the state of all events. A waiter on several events needs a
// single place to sleep on; the price is that every Set wakes every waiter to look, which is
// nothing at the handful of threads that ever wait here.
struct WaitHub {
  std::mutex mutex;
  std::condition_variable changed;
};

// Never destroyed: handles held by objects with static storage may close after exit began.
WaitHub& Hub() {
  static WaitHub* hub = new WaitHub;
  return *hub;
}

}  // namespace

struct RkEvent::State {
  struct NameTable {
    std::mutex mutex;
    // Weak, so that the table does not keep a name alive; an entry goes with its last handle.
    std::unordered_map<std::u16string, std::weak_ptr<State>> byName;  // guarded by mutex
  };

  static NameTable& Names() {
    static NameTable* table = new NameTable;
    return *table;
  }

  State(RkString eventName, bool manual, bool initial)
      : name(std::move(eventName)), manualReset(manual), signalled(initial) {}

  // Runs when the last handle goes. No code of ours releases a handle while holding the table's
  // lock, so taking it here cannot self-deadlock.
  ~State() {
    if (name.empty()) return;
    NameTable& names = Names();
    std::lock_guard<std::mutex> lock(names.mutex);
    auto it = names.byName.find(name.str());
    // A Create in the meantime may have put a new event under the name: that one stays.
    if (it != names.byName.end() && it->second.expired()) names.byName.erase(it);
  }

  const RkString name;
  const bool manualReset;
  bool signalled;  // guarded by Hub().mutex
};

RkEvent RkEvent::Create(const RkString& name, bool manualReset, bool initialState) {
  if (name.empty()) return RkEvent(std::make_shared<State>(RkString(), manualReset, initialState), false);
  // Declared before the lock, so that it is released after the lock if it ends up the last handle.
  std::shared_ptr<State> state;
  bool existed = false;
  {
    State::NameTable& names = State::Names();
    std::lock_guard<std::mutex> lock(names.mutex);
    std::weak_ptr<State>& slot = names.byName[name.str()];
    state = slot.lock();
    existed = static_cast<bool>(state);
    if (!existed) {
      state = std::make_shared<State>(name, manualReset, initialState);
      slot = state;
    }
  }
  return RkEvent(std::move(state), existed);
}

std::optional<RkEvent> RkEvent::Open(const RkString& name) {
  if (name.empty()) return std::nullopt;
  std::shared_ptr<State> state;
  {
    State::NameTable& names = State::Names();
    std::lock_guard<std::mutex> lock(names.mutex);
    auto it = names.byName.find(name.str());
    if (it != names.byName.end()) state = it->second.lock();
  }
  if (!state) return std::nullopt;
  return RkEvent(std::move(state), false);
}

const RkString& RkEvent::Name() const {
  RK_ASSERT(state_);
  return state_->name;
}

void RkEvent::Set() {
  RK_ASSERT(state_);
  WaitHub& hub = Hub();
  {
    std::lock_guard<std::mutex> lock(hub.mutex);
    state_->signalled = true;
  }
  hub.changed.notify_all();
}

void RkEvent::Reset() {
  RK_ASSERT(state_);
  std::lock_guard<std::mutex> lock(Hub().mutex);
  state_->signalled = false;
}

bool RkEvent::Wait(uint32_t timeoutMs) { return WaitAny(std::span<RkEvent>(this, 1), timeoutMs) == 0; }

bool RkEvent::IsSet() const {
  RK_ASSERT(state_);
  std::lock_guard<std::mutex> lock(Hub().mutex);
  return state_->signalled;
}

void RkEvent::Close() noexcept {
  state_.reset();
  alreadyExisted_ = false;
}

int RkEvent::WaitAny(std::span<RkEvent> events, uint32_t timeoutMs) {
  for (const RkEvent& event : events) RK_ASSERT(event.state_);
  if (events.empty()) return -1;
  auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
  WaitHub& hub = Hub();
  std::unique_lock<std::mutex> lock(hub.mutex);
  while (true) {
    for (size_t i = 0; i < events.size(); ++i) {
      State& state = *events[i].state_;
      if (!state.signalled) continue;
      // Taking the signal under the lock is what lets exactly one waiter through an auto-reset Set.
      if (!state.manualReset) state.signalled = false;
      return static_cast<int>(i);
    }
    if (timeoutMs == kInfinite) {
      hub.changed.wait(lock);
    } else if (std::chrono::steady_clock::now() >= deadline) {
      return -1;
    } else {
      hub.changed.wait_until(lock, deadline);
    }
  }
}

}  // namespace RkLib
