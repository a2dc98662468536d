#include "RkWorkPoolGroup.h"

#include <new>

namespace RkArcLib {

using RkLib::RkErrorInfo;

namespace {

constexpr uint32_t kThreadFailed = 7004;
constexpr uint32_t kOutOfMemory = 7001;
constexpr uint32_t kUnknownException = 7030;

// What the step that just threw amounts to. Only to be called inside a catch block.
RkErrorInfo Caught() noexcept {
  try {
    throw;
  } catch (const RkLib::RkError& e) {
    return RkErrorInfo(e);
  } catch (const std::bad_alloc&) {
    return RkErrorInfo(kOutOfMemory, RkLib::kSeverityFatal);
  } catch (...) {
    return RkErrorInfo(kUnknownException, RkLib::kSeverityFatal);
  }
}

bool EndsRun(const RkErrorInfo& error) { return error.severity() >= RkLib::kSeverityFatal; }

}  // namespace

RkWorkItem::~RkWorkItem() = default;

RkWorkPoolGroup::RkWorkPoolGroup() { sentinel_.isLast = true; }

RkWorkPoolGroup::~RkWorkPoolGroup() { Shutdown(); }

void RkWorkPoolGroup::Shutdown() {
  EndRun(RkErrorInfo(kThreadFailed, RkLib::kSeverityFatal));
  Join();
  items_.clear();
}

void RkWorkPoolGroup::AddItem(std::unique_ptr<RkWorkItem> item) {
  freeItems.Push(item.get());
  items_.push_back(std::move(item));
}

void RkWorkPoolGroup::Start() {
  try {
    threads_.emplace_back(RkPrepareThread(*this));
    threads_.emplace_back(RkProcessThread(*this));
    threads_.emplace_back(RkCleanUpThread(*this));
  } catch (...) {
    EndRun(RkErrorInfo(kThreadFailed, RkLib::kSeverityFatal));
    Join();
    throw RkLib::RkFatalError(kThreadFailed);
  }
}

RkWorkItem* RkWorkPoolGroup::TakeFree() {
  RkWorkItem* item = nullptr;
  return freeItems.Pop(item) ? item : nullptr;
}

void RkWorkPoolGroup::Submit(RkWorkItem* item) { queueToPrepare.Push(item); }

RkErrorInfo RkWorkPoolGroup::Finish() {
  queueToPrepare.Push(&sentinel_);
  Join();
  return FatalError();
}

void RkWorkPoolGroup::Join() {
  for (std::thread& thread : threads_)
    if (thread.joinable()) thread.join();
  threads_.clear();
}

void RkWorkPoolGroup::EndRun(const RkErrorInfo& error) {
  {
    std::lock_guard<std::mutex> lock(mutex_);
    if (ended_.load(std::memory_order_relaxed)) return;
    fatal_ = error;
    ended_.store(true, std::memory_order_release);
  }
  for (Queue* queue : {&queueToPrepare, &queueToProcess, &queueToCleanUp, &freeItems}) queue->End();
  // Work in flight stops now rather than at its end: a cancel must be prompt.
  for (const auto& item : items_) item->Abort();
}

RkErrorInfo RkWorkPoolGroup::FatalError() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return fatal_;
}

void RkWorkPoolGroup::NoteItemError(const RkErrorInfo& error) {
  std::lock_guard<std::mutex> lock(mutex_);
  if (itemError_.severity() == 0) itemError_ = error;
}

RkErrorInfo RkWorkPoolGroup::FirstItemError() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return itemError_;
}

// A fatal failure of an item travels down with the item, so that the items before it finish and
// report first, and clean-up ends the run when it reaches it. The items after it are passed on
// untouched and dropped by the end of the run.
void RkPrepareThread::operator()() noexcept {
  RkWorkItem* item = nullptr;
  bool stopping = false;
  while (pool_.queueToPrepare.Pop(item)) {
    if (item->isLast) {
      pool_.queueToProcess.Push(item);
      return;
    }
    if (stopping) {
      item->skipped = true;
    } else {
      try {
        item->Prepare();
      } catch (...) {
        item->error = Caught();
        stopping = EndsRun(item->error);
      }
    }
    pool_.queueToProcess.Push(item);
  }
}

void RkProcessThread::operator()() noexcept {
  RkWorkItem* item = nullptr;
  bool stopping = false;
  while (pool_.queueToProcess.Pop(item)) {
    if (item->isLast) {
      pool_.queueToCleanUp.Push(item);
      return;
    }
    if (stopping && item->error.severity() == 0) item->skipped = true;
    // An item that failed or was skipped before has nothing to open; clean-up reports it.
    if (item->error.severity() == 0 && !item->skipped) {
      try {
        item->Announce();
        if (item->Open()) item->Hold();
      } catch (...) {
        item->error = Caught();
      }
    }
    stopping = stopping || EndsRun(item->error);
    pool_.queueToCleanUp.Push(item);
  }
}

void RkCleanUpThread::operator()() noexcept {
  RkWorkItem* item = nullptr;
  while (pool_.queueToCleanUp.Pop(item)) {
    if (item->isLast) return;
    try {
      item->Release();
      item->Finish();
      item->FlushMessages();
      item->FlushStatus();
    } catch (...) {
      const RkErrorInfo error = Caught();
      if (error.severity() >= RkLib::kSeverityWarning) return pool_.EndRun(error);
    }
    item->Reset();
    item->error = RkErrorInfo();
    item->skipped = false;
    pool_.freeItems.Push(item);
  }
}

}  // namespace RkArcLib
