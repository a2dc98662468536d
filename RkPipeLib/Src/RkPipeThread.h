// RkPipeThread: the body that runs one node of a pipe, on a worker thread or, for the target, on
// the caller's thread.
//
// The body never throws. Whatever the node's Run throws becomes a code and a severity, which go
// three ways: to the error callback (except 7003, a mere stop order), upstream as consumerFailed
// on the input stream, and downstream as failProducer on the output stream (except 7005: the
// pipe interrupts only the last worker thread that exists, which has no consumer left to tell).
// A clean end tells the input that its consumer is done, which stops the nodes above without
// error; if the node left its output without an end, that stream gets a clean stop instead. A worker then
// waits on its exit barrier until the caller of Run arrives there, so that no worker outlives the pipe's look
// at its streams; that wait cannot be interrupted.
#pragma once

#include "RkError.h"
#include "RkPipeLibFwd.h"

namespace boost {
class barrier;
}

namespace RkPipeLib {

class RkPipeThread {
 public:
  // `exitBarrier` is for two parties, the worker and the caller of Run; null for the target.
  RkPipeThread(RkNode* node, RkErrorCallBack* errors, boost::barrier* exitBarrier)
      : node_(node), errors_(errors), exitBarrier_(exitBarrier) {}

  void operator()() noexcept;

  // Runs the node's Run and turns what it throws into a value: std::bad_alloc gives (7001, 40),
  // an RkError its own code and severity, thread interruption (7005, 30), anything else
  // (7030, 40). A normal return, or RkNoError(0), gives (0, 0).
  static RkLib::RkErrorInfo RunNode(RkNode& node) noexcept;
  // What a node's end tells its streams and the error callback; the three ways above.
  static void Conclude(RkNode& node, const RkLib::RkErrorInfo& result, RkErrorCallBack* errors) noexcept;

 private:
  RkNode* node_;
  RkErrorCallBack* errors_;
  boost::barrier* exitBarrier_;
};

}  // namespace RkPipeLib
