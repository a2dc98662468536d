#include "RkPipe.h"

#include <boost/thread/barrier.hpp>
#include <boost/thread/thread_only.hpp>
#include <memory>

#include "RkNode.h"
#include "RkPipeErrorHandler.h"
#include "RkPipeThread.h"

namespace RkPipeLib {

using RkLib::RkErrorInfo;

namespace {

using Barriers = std::vector<std::unique_ptr<boost::barrier>>;
using Threads = std::vector<std::unique_ptr<boost::thread>>;

// From the last thread to the first: meet each worker at its barrier, join it and delete it. The
// caller's own interruption must wait until every worker is gone.
void JoinThreads(Threads& threads, Barriers& barriers) {
  boost::this_thread::disable_interruption noInterruption;
  for (size_t i = threads.size(); i-- > 0;) {
    barriers[i]->wait();
    threads[i]->join();
    threads[i].reset();
  }
}

// Interrupting the last worker that exists is enough: it fails with 7005, and its consumerFailed
// on its input stops every node above it. Below it there is no consumer left to wake.
void EndThreadsByForce(Threads& threads, Barriers& barriers) {
  if (!threads.empty()) threads.back()->interrupt();
  JoinThreads(threads, barriers);
}

}  // namespace

void RkPipe::SetSource(RkSourceNode* source) { source_ = source; }

void RkPipe::AddLink(RkLinkNode* link) {
  RK_ASSERT(source_ != nullptr);
  link->SetInput(links_.empty() ? source_->OutputStream() : links_.back()->OutputStream());
  links_.push_back(link);
}

void RkPipe::SetTarget(RkTargetNode* target) { target_ = target; }

bool RkPipe::Run(RkUICallBack* callback) {
  RK_ASSERT(target_ != nullptr && source_ != nullptr);
  const size_t threadCount = links_.size() + 1;
  target_->SetInput(links_.empty() ? source_->OutputStream() : links_.back()->OutputStream());
  {
    std::lock_guard<std::mutex> lock(lock_);
    status_ = RkErrorInfo();
  }
  RkPipeErrorHandler handler(&status_, &lock_);

  Barriers barriers;
  Threads threads;
  try {
    barriers.reserve(threadCount);
    threads.reserve(threadCount);
    for (size_t i = 0; i < threadCount; ++i) barriers.push_back(std::make_unique<boost::barrier>(2));
  } catch (...) {
    throw RkLib::RkFatalError(kPipeThreadFailed);
  }
  try {
    threads.push_back(std::make_unique<boost::thread>(RkPipeThread(source_, &handler, barriers[0].get())));
    for (size_t i = 0; i < links_.size(); ++i) {
      threads.push_back(
          std::make_unique<boost::thread>(RkPipeThread(links_[i], &handler, barriers[i + 1].get())));
    }
  } catch (...) {
    EndThreadsByForce(threads, barriers);
    throw RkLib::RkFatalError(kPipeThreadFailed);
  }

  try {
    target_->SetUICallBack(callback);
    RkPipeThread(target_, &handler, nullptr)();
  } catch (...) {
    EndThreadsByForce(threads, barriers);
    const RkErrorInfo interrupted(kPipeInterrupted, RkLib::kSeverityFatal);
    {
      std::lock_guard<std::mutex> lock(lock_);
      status_ = interrupted;
    }
    interrupted.Throw();
  }
  JoinThreads(threads, barriers);
  RaiseStatus();
  return true;
}

void RkPipe::RaiseStatus() {
  RkErrorInfo status;
  {
    std::lock_guard<std::mutex> lock(lock_);
    status = status_;
  }
  if (status.severity() != 0 && status.code() != kPipeDownstreamFailed) status.Throw();
}

bool RkPipe::RunInline(RkUICallBack* callback) {
  RK_ASSERT(target_ != nullptr && source_ != nullptr);
  target_->SetInput(links_.empty() ? source_->OutputStream() : links_.back()->OutputStream());
  {
    std::lock_guard<std::mutex> lock(lock_);
    status_ = RkErrorInfo();
  }
  RkPipeErrorHandler handler(&status_, &lock_);
  std::vector<RkNode*> nodes;
  nodes.reserve(links_.size() + 2);
  nodes.push_back(source_);
  nodes.insert(nodes.end(), links_.begin(), links_.end());
  nodes.push_back(target_);
  for (RkNode* node : nodes)
    if (node->HasOutput()) node->OutputStream()->setNoWait(true);
  target_->SetUICallBack(callback);
  // Each node after the one that feeds it: a node finds its input complete and ended.
  for (RkNode* node : nodes) RkPipeThread::Conclude(*node, RkPipeThread::RunNode(*node), &handler);
  for (RkNode* node : nodes)
    if (node->HasOutput()) node->OutputStream()->setNoWait(false);
  RaiseStatus();
  return true;
}

}  // namespace RkPipeLib
