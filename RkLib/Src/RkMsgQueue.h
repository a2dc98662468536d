// Message queues: worker threads post RkMsg records here and never talk to the user; the owner's
// callback drains them on its own thread.
//
// RkMsgQueue is for one thread. RkThreadedMsgQueue may be used from any number of threads: every
// operation takes the queue's mutex, which is never held while calling out.
#pragma once

#include <atomic>
#include <cstdint>
#include <deque>
#include <memory>
#include <mutex>

#include "RkParam.h"

namespace RkLib {

class RkMsgQueue {
 public:
  RkMsgQueue() = default;
  RkMsgQueue(const RkMsgQueue&) = delete;
  RkMsgQueue& operator=(const RkMsgQueue&) = delete;
  virtual ~RkMsgQueue();

  // Appends a clone of the message with its tag. Always true; past the container's limit it
  // throws std::length_error("list too long").
  virtual bool Put(const RkMsg& message, uint32_t tag);
  // Moves the oldest entry out; false, with the out arguments untouched, when empty.
  virtual bool Get(RkMsg& message, uint32_t& tag);
  // A plain read that never blocks, also on the threaded queue.
  size_t Count() const noexcept { return count_.load(std::memory_order_relaxed); }
  virtual void Clear();

  // The post family: each builds an RkMsg and puts it with the tag 0. A null format takes the
  // default of the value's kind; null strings are left out.
  void Post(uint32_t id, uint32_t type) { Put(RkMsg(id, type), 0); }
  void Post(uint32_t id, uint32_t type, int16_t value, const char16_t* format = nullptr);
  void Post(uint32_t id, uint32_t type, int32_t value, const char16_t* format = nullptr);
  void Post(uint32_t id, uint32_t type, uint32_t value, const char16_t* format = nullptr);
  void Post(uint32_t id, uint32_t type, int64_t value, const char16_t* format = nullptr);
  void Post(uint32_t id, uint32_t type, uint64_t value, const char16_t* format = nullptr);
  void Post(uint32_t id, uint32_t type, char16_t value, const char16_t* format = nullptr);
  void Post(uint32_t id, uint32_t type, const RkString& s1, const RkString* s2 = nullptr,
            const RkString* s3 = nullptr, const RkString* s4 = nullptr);

  // The same forms with the type fixed: 0 for information, 3 for errors.
  template <typename... Args>
  void PostInfo(uint32_t id, Args&&... args) {
    Post(id, kMsgTypeInfo, std::forward<Args>(args)...);
  }
  template <typename... Args>
  void PostError(uint32_t id, Args&&... args) {
    Post(id, kMsgTypeError, std::forward<Args>(args)...);
  }

 protected:
  bool PutUnlocked(std::unique_ptr<RkMsg> message, uint32_t tag);
  bool GetUnlocked(RkMsg& message, uint32_t& tag);
  void ClearUnlocked();

 private:
  struct Entry {
    std::unique_ptr<RkMsg> message;
    uint32_t tag;
  };
  std::deque<Entry> entries_;
  std::atomic<size_t> count_{0};
};

class RkThreadedMsgQueue final : public RkMsgQueue {
 public:
  ~RkThreadedMsgQueue() override = default;
  bool Put(const RkMsg& message, uint32_t tag) override;
  bool Get(RkMsg& message, uint32_t& tag) override;
  void Clear() override;
  // The count read under the mutex, ordered with the puts and gets around it.
  size_t LockedCount() const;

 private:
  mutable std::mutex mutex_;
};

}  // namespace RkLib
