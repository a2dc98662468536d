#include "RkPipeThread.h"

#include <boost/thread/barrier.hpp>
#include <boost/thread/thread_only.hpp>
#include <new>

#include "RkNode.h"

namespace RkPipeLib {

using RkLib::RkErrorInfo;

RkErrorInfo RkPipeThread::RunNode(RkNode& node) noexcept {
  try {
    node.Run();
    return RkErrorInfo();
  } catch (const std::bad_alloc&) {
    return RkErrorInfo(kPipeOutOfMemory, RkLib::kSeverityFatal);
  } catch (const RkLib::RkError& e) {
    return RkErrorInfo(e);
  } catch (const boost::thread_interrupted&) {
    return RkErrorInfo(kPipeInterrupted, RkLib::kSeveritySevere);
  } catch (...) {
    return RkErrorInfo(kPipeUnknownException, RkLib::kSeverityFatal);
  }
}

void RkPipeThread::Conclude(RkNode& node, const RkErrorInfo& result, RkErrorCallBack* errors) noexcept {
  if (result.code() != 0) {
    if (result.code() != kPipeDownstreamFailed) errors->Report(result);
    if (node.HasInput()) node.InputStream()->failConsumer();
    if (node.HasOutput() && result.code() != kPipeInterrupted) node.OutputStream()->failProducer(result);
  } else {
    if (node.HasInput()) node.InputStream()->consumerFinished();
    // A node that stops cleanly without ending its output (a bare return, or an RkNoError(0) of
    // its own) would leave the node below waiting for ever. The stop goes down as a failure of
    // severity 0, which each node below takes for a clean stop in its turn.
    RkDStream* output = node.HasOutput() ? node.OutputStream() : nullptr;
    if (output && !output->lastSeen() && !output->consumerDone() && !output->consumerFailed())
      output->failProducer(RkErrorInfo());
  }
}

void RkPipeThread::operator()() noexcept {
  Conclude(*node_, RunNode(*node_), errors_);
  if (node_->HasOutput()) {
    RK_ASSERT(exitBarrier_ != nullptr);
    // An interrupt that arrives now must not take the worker past the barrier without the caller.
    boost::this_thread::disable_interruption keepWaiting;
    exitBarrier_->wait();
  }
}

}  // namespace RkPipeLib
