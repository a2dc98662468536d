// RkBlockingQueue: first in, first out between threads, with an end that wakes every waiter.
#pragma once

#include <condition_variable>
#include <deque>
#include <mutex>

namespace RkArcLib {

template <typename T>
class RkBlockingQueue {
 public:
  // False, and the value dropped, once the queue has been ended.
  bool Push(T value) {
    {
      std::lock_guard<std::mutex> lock(mutex_);
      if (ended_) return false;
      items_.push_back(std::move(value));
    }
    wake_.notify_one();
    return true;
  }

  // Waits for a value; false once the queue has been ended, whatever it still holds: an ended
  // queue means the run is over.
  bool Pop(T& value) {
    std::unique_lock<std::mutex> lock(mutex_);
    wake_.wait(lock, [&] { return ended_ || !items_.empty(); });
    if (ended_) return false;
    value = std::move(items_.front());
    items_.pop_front();
    return true;
  }

  void End() {
    {
      std::lock_guard<std::mutex> lock(mutex_);
      ended_ = true;
    }
    wake_.notify_all();
  }

  bool Ended() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return ended_;
  }

 private:
  mutable std::mutex mutex_;
  std::condition_variable wake_;
  std::deque<T> items_;
  bool ended_ = false;
};

}  // namespace RkArcLib
