// RkPipe: moves one stream of bytes from a source node through any number of link nodes to a
// target node, and reports the outcome as a normal return or one exception of the RkError family.
//
// Contract. The owner calls, on one thread: SetSource, then AddLink for each link in stream
// order, then SetTarget, then Run once. Run starts one worker thread for the source and one for
// each link, runs the target on the calling thread, and returns only after every worker has been
// joined: no thread outlives Run, whatever the nodes did. The pipe does not own its nodes.
//
// Outcome. Each failing node reports to the pipe's status, which keeps the first failure of the
// highest severity; Run raises that status on the calling thread. A status of 7003 alone (a node
// told to stop because the one below it failed) is not a failure of the pipe.
//
// Interruption. If the calling thread is a Boost thread and is interrupted while the target
// waits on its input, the target ends with (7005, 30) and the pipe winds down like any failure.
// The waits for the workers at the end of Run are not interruptible.
#pragma once

#include <initializer_list>

#include <mutex>
#include <vector>

#include "RkError.h"
#include "RkPipeLibFwd.h"

namespace RkPipeLib {

class RkPipe {
 public:
  RkPipe() = default;
  // The whole calling order in one: SetSource, AddLink for each link in stream order, SetTarget.
  RkPipe(RkSourceNode* source, std::initializer_list<RkLinkNode*> links, RkTargetNode* target) {
    SetSource(source);
    for (RkLinkNode* link : links) AddLink(link);
    SetTarget(target);
  }
  RkPipe(const RkPipe&) = delete;
  RkPipe& operator=(const RkPipe&) = delete;

  void SetSource(RkSourceNode* source);
  // Connects the link at once to the output of the node before it; the source must be set.
  void AddLink(RkLinkNode* link);
  void SetTarget(RkTargetNode* target);
  // True, or the failure of the pipe as an exception. Without a target: an assertion failure.
  // If its threads cannot be built it throws RkFatalError(7004).
  bool Run(RkUICallBack* callback);
  // The same without a thread: the nodes run one after the other on the calling thread, each to
  // its end. Only for data that fits the buffers of every stream at once (a small entry); a node
  // that would have to wait for another fails the pipe with (7019, 30) instead, so a stream
  // that outgrows its buffers ends the run rather than blocking it.
  bool RunInline(RkUICallBack* callback);

 private:
  // Raises the pipe's status, unless it is clean or a mere stop order.
  void RaiseStatus();

  RkSourceNode* source_ = nullptr;
  RkTargetNode* target_ = nullptr;
  std::vector<RkLinkNode*> links_;
  RkLib::RkErrorInfo status_;  // guarded by lock_
  std::mutex lock_;
};

}  // namespace RkPipeLib
