// The nodes of a pipe. Each source and link node runs on a worker thread of its own and writes
// the RkDStream that it owns; the target runs on the thread that called RkPipe::Run. A node's Run
// is its whole work: it returns when the node is done, or throws an RkError. The pipe does not
// own its nodes: the owner creates them, may reuse them after resetting their streams, and
// deletes them after the pipe.
#pragma once

#include <cstdint>
#include <utility>

#include "RkCallBack.h"
#include "RkDStream.h"
#include "RkLibFwd.h"
#include "RkStreamSettings.h"

namespace RkPipeLib {

class RkNode {
 public:
  // The two queues of the owner, drained together by its RkUICallBack; either may be null.
  RkNode(RkLib::RkMsgQueue* first, RkLib::RkMsgQueue* second) : first_(first), second_(second) {}
  RkNode(const RkNode&) = delete;
  RkNode& operator=(const RkNode&) = delete;
  virtual ~RkNode() = default;

  virtual void Run() = 0;
  virtual bool HasInput() = 0;
  virtual bool HasOutput() = 0;
  virtual RkDStream* InputStream() = 0;
  virtual RkDStream* OutputStream() = 0;

  RkLib::RkMsgQueue* FirstQueue() const noexcept { return first_; }
  RkLib::RkMsgQueue* SecondQueue() const noexcept { return second_; }

 protected:
  RkLib::RkMsgQueue* first_;
  RkLib::RkMsgQueue* second_;
};

class RkSourceNode : public RkNode {
 public:
  RkSourceNode(RkLib::RkMsgQueue* first, RkLib::RkMsgQueue* second,
               const RkStreamSettings& settings = RkStreamSettings::Instance())
      : RkNode(first, second), output_(settings) {}

  bool HasInput() override { return false; }
  bool HasOutput() override { return true; }
  RkDStream* InputStream() override { return nullptr; }
  RkDStream* OutputStream() override { return &output_; }

 protected:
  RkDStream output_;
};

class RkLinkNode : public RkNode {
 public:
  RkLinkNode(RkLib::RkMsgQueue* first, RkLib::RkMsgQueue* second,
             const RkStreamSettings& settings = RkStreamSettings::Instance())
      : RkNode(first, second), output_(settings) {}

  bool HasInput() override { return true; }
  bool HasOutput() override { return true; }
  RkDStream* InputStream() override { return input_; }
  RkDStream* OutputStream() override { return &output_; }
  virtual void SetInput(RkDStream* input) { input_ = input; }
  // The input's bytesRead, or -1 without an input.
  virtual int64_t InputBytesRead() { return input_ ? static_cast<int64_t>(input_->bytesRead()) : -1; }

 protected:
  // The loop of a node that passes buffers through unchanged in place: it gives a free buffer of
  // its output for each filled one of its input, calls onBuffer(RkPipeBuffer&) on it, and puts
  // it out, so no byte is copied. At the end it ends its output. A buffer in hand when something
  // throws goes back to the output's free ring.
  template <typename OnBuffer>
  void PassBuffers(OnBuffer&& onBuffer);

  RkDStream output_;
  RkDStream* input_ = nullptr;
};

class RkTargetNode : public RkNode {
 public:
  RkTargetNode(RkLib::RkMsgQueue* first, RkLib::RkMsgQueue* second) : RkNode(first, second) {}

  bool HasInput() override { return true; }
  bool HasOutput() override { return false; }
  RkDStream* InputStream() override { return input_; }
  RkDStream* OutputStream() override { return nullptr; }
  virtual void SetInput(RkDStream* input) { input_ = input; }
  virtual void SetUICallBack(RkUICallBack* callback) { callback_ = callback; }
  // The callback's answer for the first queue; true without a callback.
  virtual bool Poll();

 protected:
  // Exchanges the buffer that `held` points at for the next filled one, which `held` then points
  // at; false at the end of the data, with `held` unchanged. The node owns `held` throughout.
  bool TakeInto(RkPipeBuffer*& held) {
    RkPipeBuffer* filled = input_->take(held);
    if (!filled) return false;
    held = filled;
    return true;
  }

  RkDStream* input_ = nullptr;
  RkUICallBack* callback_ = nullptr;
};

template <typename OnBuffer>
void RkLinkNode::PassBuffers(OnBuffer&& onBuffer) {
  RK_ASSERT(input_ != nullptr);
  for (;;) {
    RkPipeBuffer* spare = output_.getFree();
    RkPipeBuffer* filled;
    try {
      filled = input_->take(spare);
    } catch (...) {
      output_.returnFree(spare);
      throw;
    }
    if (!filled) {
      output_.finish(spare);
      break;
    }
    try {
      onBuffer(*filled);
    } catch (...) {
      output_.returnFree(filled);
      throw;
    }
    output_.put(filled);
  }
  output_.setLast();
}

}  // namespace RkPipeLib
