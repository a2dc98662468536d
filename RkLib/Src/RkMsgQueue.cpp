#include "RkMsgQueue.h"

#include <stdexcept>

namespace RkLib {

RkMsgQueue::~RkMsgQueue() { ClearUnlocked(); }

bool RkMsgQueue::PutUnlocked(std::unique_ptr<RkMsg> message, uint32_t tag) {
  if (entries_.size() >= entries_.max_size()) throw std::length_error("list too long");
  entries_.push_back(Entry{std::move(message), tag});
  count_.store(entries_.size(), std::memory_order_relaxed);
  return true;
}

bool RkMsgQueue::GetUnlocked(RkMsg& message, uint32_t& tag) {
  if (entries_.empty()) return false;
  message = std::move(*entries_.front().message);
  tag = entries_.front().tag;
  entries_.pop_front();
  count_.store(entries_.size(), std::memory_order_relaxed);
  return true;
}

void RkMsgQueue::ClearUnlocked() {
  entries_.clear();
  count_.store(0, std::memory_order_relaxed);
}

bool RkMsgQueue::Put(const RkMsg& message, uint32_t tag) {
  return PutUnlocked(std::make_unique<RkMsg>(message), tag);
}
bool RkMsgQueue::Get(RkMsg& message, uint32_t& tag) { return GetUnlocked(message, tag); }
void RkMsgQueue::Clear() { ClearUnlocked(); }

void RkMsgQueue::Post(uint32_t id, uint32_t type, int16_t value, const char16_t* format) {
  Put(RkMsg(id, type).add(value, format), 0);
}
void RkMsgQueue::Post(uint32_t id, uint32_t type, int32_t value, const char16_t* format) {
  Put(RkMsg(id, type, value, format), 0);
}
void RkMsgQueue::Post(uint32_t id, uint32_t type, uint32_t value, const char16_t* format) {
  Put(RkMsg(id, type, value, format), 0);
}
void RkMsgQueue::Post(uint32_t id, uint32_t type, int64_t value, const char16_t* format) {
  Put(RkMsg(id, type, value, format), 0);
}
void RkMsgQueue::Post(uint32_t id, uint32_t type, uint64_t value, const char16_t* format) {
  Put(RkMsg(id, type, value, format), 0);
}
void RkMsgQueue::Post(uint32_t id, uint32_t type, char16_t value, const char16_t* format) {
  Put(RkMsg(id, type).add(value, format), 0);
}
void RkMsgQueue::Post(uint32_t id, uint32_t type, const RkString& s1, const RkString* s2,
                      const RkString* s3, const RkString* s4) {
  RkMsg msg(id, type, s1);
  for (const RkString* s : {s2, s3, s4})
    if (s) msg.add(*s);
  Put(msg, 0);
}

bool RkThreadedMsgQueue::Put(const RkMsg& message, uint32_t tag) {
  // Clone outside the lock: only the list operation needs it.
  auto copy = std::make_unique<RkMsg>(message);
  std::lock_guard lock(mutex_);
  return PutUnlocked(std::move(copy), tag);
}

bool RkThreadedMsgQueue::Get(RkMsg& message, uint32_t& tag) {
  std::lock_guard lock(mutex_);
  return GetUnlocked(message, tag);
}

void RkThreadedMsgQueue::Clear() {
  std::lock_guard lock(mutex_);
  ClearUnlocked();
}

size_t RkThreadedMsgQueue::LockedCount() const {
  std::lock_guard lock(mutex_);
  return Count();
}

}  // namespace RkLib
