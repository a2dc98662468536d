// RkWorkPoolGroup: the thread pipeline that moves items of an archive out: one thread prepares
// each item (its output name, the overwrite question), one opens it and starts its pipe, one
// finishes it (checks, reports) in the order the items came. Several items are in flight at once,
// as many as the pool holds, while the archive is read front to back.
//
// Failures. An item's own failure (RkSevereError and below) stays with the item: the clean-up
// step reports it and the run goes on. Anything fatal ends the run, in order: the items before
// the failing one finish, then the error is kept, every queue is ended, and each thread stops at
// its next wait. The caller raises the kept error.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include "RkBlockingQueue.h"
#include "RkError.h"

namespace RkArcLib {

class RkWorkItem {
 public:
  RkWorkItem() = default;
  RkWorkItem(const RkWorkItem&) = delete;
  RkWorkItem& operator=(const RkWorkItem&) = delete;
  virtual ~RkWorkItem();

  // Each step may throw; see the threads below for what becomes of a throw.
  virtual void Prepare() {}
  // True when the item must wait for an earlier one before its work can start.
  virtual bool Open() { return false; }
  virtual void Finish() {}
  virtual void Announce() {}
  virtual void Reset() {}
  // Ends work in flight at once: the run is over.
  virtual void Abort() {}
  virtual void FlushMessages() {}
  virtual void FlushStatus() {}
  virtual void Hold() {}
  virtual void Release() {}

  // The item's own failure, kept for its clean-up step.
  RkLib::RkErrorInfo error;
  // The sentinel: each thread passes it on and stops.
  bool isLast = false;
  // Prepare decided that the item gets no output (an answered "skip").
  bool skipped = false;
};

class RkWorkPoolGroup {
 public:
  using Queue = RkBlockingQueue<RkWorkItem*>;

  RkWorkPoolGroup();
  RkWorkPoolGroup(const RkWorkPoolGroup&) = delete;
  RkWorkPoolGroup& operator=(const RkWorkPoolGroup&) = delete;
  virtual ~RkWorkPoolGroup();

  // Takes the items into the pool, all free.
  void AddItem(std::unique_ptr<RkWorkItem> item);
  size_t ItemCount() const { return items_.size(); }

  // Starts the three threads; RkFatalError(7004) when they cannot be made.
  void Start();
  // A free item for the next entry; null once the run has ended.
  RkWorkItem* TakeFree();
  void Submit(RkWorkItem* item);
  // Sends the sentinel and waits for the threads. Returns the fatal error that ended the run,
  // or none.
  RkLib::RkErrorInfo Finish();

  // Ends the run with `error`, unless it has ended already: the first fatal error wins.
  void EndRun(const RkLib::RkErrorInfo& error);
  bool Ended() const { return ended_.load(std::memory_order_acquire); }
  RkLib::RkErrorInfo FatalError() const;

  // The first failure of an item, for the run's outcome.
  void NoteItemError(const RkLib::RkErrorInfo& error);
  RkLib::RkErrorInfo FirstItemError() const;

  // The run's lock, for whatever its items share.
  std::mutex& Lock() { return mutex_; }

  Queue queueToPrepare;
  Queue queueToProcess;
  Queue queueToCleanUp;
  Queue freeItems;

 protected:
  // Ends the run if it runs, waits for the threads and destroys the items. A subclass whose
  // members the items use calls it in its destructor.
  void Shutdown();

 private:
  friend class RkPrepareThread;
  friend class RkProcessThread;
  friend class RkCleanUpThread;

  void Join();

  std::vector<std::unique_ptr<RkWorkItem>> items_;
  RkWorkItem sentinel_;
  std::vector<std::thread> threads_;
  mutable std::mutex mutex_;
  RkLib::RkErrorInfo fatal_;      // guarded by mutex_
  RkLib::RkErrorInfo itemError_;  // guarded by mutex_
  std::atomic<bool> ended_{false};
};

// The three threads' bodies. Each takes from its queue until the sentinel or the end of the run.
class RkPrepareThread {
 public:
  explicit RkPrepareThread(RkWorkPoolGroup& pool) : pool_(pool) {}
  void operator()() noexcept;

 private:
  RkWorkPoolGroup& pool_;
};

class RkProcessThread {
 public:
  explicit RkProcessThread(RkWorkPoolGroup& pool) : pool_(pool) {}
  void operator()() noexcept;

 private:
  RkWorkPoolGroup& pool_;
};

class RkCleanUpThread {
 public:
  explicit RkCleanUpThread(RkWorkPoolGroup& pool) : pool_(pool) {}
  void operator()() noexcept;

 private:
  RkWorkPoolGroup& pool_;
};

}  // namespace RkArcLib
