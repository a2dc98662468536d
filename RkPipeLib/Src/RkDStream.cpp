#include "RkDStream.h"

#include <boost/thread/condition_variable.hpp>
#include <boost/thread/mutex.hpp>
#include <boost/thread/thread_only.hpp>
#include <chrono>
#include <thread>

namespace RkPipeLib {

using RkLib::RkErrorInfo;
using RkLib::RkFatalError;
using RkLib::RkNoError;
using Lock = boost::unique_lock<boost::mutex>;

namespace {

// A producer that ended by RkNoError with a code of its own ended cleanly, and its consumer must
// unwind as cleanly and pass the stop on. RkErrorInfo::Throw would make that RkNoError(0), which
// a thread body takes for a normal return: a link would then end without sending its end mark,
// and the node below it would wait for ever. Keeping the code keeps the stop travelling down.
[[noreturn]] void Raise(const RkErrorInfo& status) {
  if (status.severity() == RkLib::kSeverityNone) throw RkNoError(status.code());
  status.Throw();
}

}  // namespace

// Boost's condition variable, because its wait is an interruption point that an interrupt
// request wakes: that is how the pipe ends a thread that waits here for good.
//
// A side that must wait spins for a short while before it sleeps. Waking a sleeper costs the
// waker a system call (and on a virtual machine an inter-processor interrupt), about a tenth of
// a link's time per buffer when the buffers fly; a waiter that is still spinning needs no wake.
// The spin adapts: it grows while hand-overs come within it and halves each time one does not,
// so a slow pipe soon spins next to nothing.
struct RkDStream::Sync {
  struct Side {
    boost::condition_variable wake;
    int sleeping = 0;                 // guarded by the lock
    std::atomic<uint32_t> events{0};  // bumped under the lock whenever this side may go on
    int64_t spinNs = kSpinMaxNs / 2;  // the side's own thread only
  };
  using Clock = std::chrono::steady_clock;
  static constexpr int64_t kSpinMaxNs = 100'000;
  static constexpr int64_t kSpinMinNs = 1'000;

  boost::mutex lock;
  Side producer;  // the free ring gained a buffer, or a consumer flag was set
  Side consumer;  // the filled ring gained a buffer, or a producer flag was set

  // Under the lock: tells `side` that it may go on; true when it sleeps and must be woken
  // (after the lock is let go, so that it does not wake into a held lock).
  static bool Post(Side& side) {
    side.events.fetch_add(1, std::memory_order_release);
    return side.sleeping != 0;
  }
  // One wait of a side: the first pass spins, the others sleep.
  struct Waiting {
    int passes = 0;
    Clock::time_point start;
  };
  // Under the lock, which it lets go and takes again; the caller tests its condition after each
  // return.
  static void Wait(Side& side, Lock& lock, Waiting& waiting);
  static void Spin(Side& side, Lock& lock);

  // The waits of the two sides; each tests the flags again after every wake-up.
  static void WaitFree(RkDStream& s, Lock& lock, bool raiseStatus);
  static void WaitFilled(RkDStream& s, Lock& lock);
  // With a buffer at the filled head, under the lock: raises what outranks the data, then tells
  // whether the head is the end mark, which it then delivers.
  static bool CheckEnd(RkDStream& s);
};

void RkDStream::Sync::Spin(Side& side, Lock& lock) {
  const uint32_t seen = side.events.load(std::memory_order_acquire);
  lock.unlock();
  const Clock::time_point start = Clock::now();
  for (uint32_t i = 1; side.events.load(std::memory_order_acquire) == seen; ++i) {
#if defined(__x86_64__) || defined(__i386__)
    __builtin_ia32_pause();
#endif
    if (i % 64 == 0) {
      if (Clock::now() - start > std::chrono::nanoseconds(side.spinNs)) break;
      // Another spinner may share this processor; let it look too.
      std::this_thread::yield();
    }
  }
  lock.lock();
}

void RkDStream::Sync::Wait(Side& side, Lock& lock, Waiting& waiting) {
  static const bool kSeveralCpus = std::thread::hardware_concurrency() > 1;
  if (waiting.passes++ == 0) {
    waiting.start = Clock::now();
    // Whether or not the spin saw a post, the caller looks again under the lock: a post may
    // have come between the spin's end and the lock.
    if (kSeveralCpus) {
      Spin(side, lock);
      return;
    }
  }
  {
    ++side.sleeping;
    struct Awake {
      int& sleeping;
      ~Awake() { --sleeping; }
    } awake{side.sleeping};
    side.wake.wait(lock);
  }
  if (waiting.passes != 2) return;
  // The spin for the next wait: twice this hand-over when it was short, half the last spin when
  // it was not.
  const int64_t waited = std::chrono::duration_cast<std::chrono::nanoseconds>(Clock::now() - waiting.start).count();
  side.spinNs = waited <= kSpinMaxNs / 2 ? std::max(kSpinMinNs, 2 * waited) : std::max(kSpinMinNs, side.spinNs / 2);
}

void RkDStream::Sync::WaitFree(RkDStream& s, Lock& lock, bool raiseStatus) {
  Waiting waiting;
  while (!s.freeRing_.headBuffer()) {
    if (s.consumerFailed_) throw RkFatalError(kPipeDownstreamFailed);
    if (s.consumerDone_) throw RkNoError(0);
    if (raiseStatus && s.producerFailed_) Raise(s.status_);
    if (s.noWait_) throw RkLib::RkSevereError(kPipeWouldWait);
    Wait(s.sync_->producer, lock, waiting);
  }
}

void RkDStream::Sync::WaitFilled(RkDStream& s, Lock& lock) {
  Waiting waiting;
  while (!s.filledRing_.headBuffer()) {
    if (s.producerFailed_) Raise(s.status_);
    if (s.consumerDone_) throw RkNoError(0);
    if (s.noWait_) throw RkLib::RkSevereError(kPipeWouldWait);
    Wait(s.sync_->consumer, lock, waiting);
  }
}

bool RkDStream::Sync::CheckEnd(RkDStream& s) {
  if (s.producerFailed_) Raise(s.status_);
  if (s.consumerDone_) throw RkNoError(0);
  if (s.endDelivered_) throw RkFatalError(kPipeReadPastEnd);
  if (s.filledRing_.headBuffer()->length() != 0) return false;
  s.lastSeen_ = true;
  s.endDelivered_ = true;
  return true;
}

void RkDStream::Ring::push(RkPipeBuffer* buffer) {
  const uint32_t size = static_cast<uint32_t>(slots.size());
  for (uint32_t i = 0, at = head; i < size; ++i, at = (at + 1 == size ? 0 : at + 1)) {
    if (!slots[at]) {
      slots[at] = buffer;
      return;
    }
  }
  RK_ASSERT(!"ring full: a buffer was pushed twice");
}

RkPipeBuffer* RkDStream::Ring::popHead() {
  RK_ASSERT(head < slots.size());
  RkPipeBuffer* buffer = slots[head];
  RK_ASSERT(buffer != nullptr);
  slots[head] = nullptr;
  head = head + 1 == slots.size() ? 0 : head + 1;
  return buffer;
}

RkDStream::RkDStream(const RkStreamSettings& settings)
    : sync_(std::make_unique<Sync>()),
      settings_(&settings),
      bufferSize_(static_cast<uint64_t>(settings.pipeBufferSize)) {
  RK_ASSERT(settings.pipeBufferCount > 0 && settings.pipeBufferSize > 0);
  const size_t count = static_cast<size_t>(settings.pipeBufferCount);
  freeRing_.slots.assign(2 * count, nullptr);
  filledRing_.slots.assign(2 * count, nullptr);
  for (size_t i = 0; i < count; ++i) {
    auto buffer = std::make_unique<RkPipeBuffer>(bufferSize_);
    freeRing_.push(buffer.release());
  }
}

RkDStream::~RkDStream() {
  for (Ring* ring : {&freeRing_, &filledRing_})
    for (RkPipeBuffer* buffer : ring->slots) delete buffer;
}

RkErrorInfo RkDStream::status() const {
  Lock lock(sync_->lock);
  return status_;
}

void RkDStream::throwStatus() const { Raise(status()); }

// ---- Producer.

RkPipeBuffer* RkDStream::getFree() {
  RK_ASSERT(writeBuffer_ == nullptr);
  if (consumerFailed()) throw RkFatalError(kPipeDownstreamFailed);
  Lock lock(sync_->lock);
  Sync::WaitFree(*this, lock, false);
  return freeRing_.popHead();
}

void RkDStream::put(RkPipeBuffer* buffer) {
  bool wake;
  {
    Lock lock(sync_->lock);
    filledRing_.push(buffer);
    wake = Sync::Post(sync_->consumer);
  }
  if (wake) sync_->consumer.wake.notify_one();
}

void RkDStream::returnFree(RkPipeBuffer* buffer) {
  buffer->reset();
  Lock lock(sync_->lock);
  freeRing_.push(buffer);
}

void RkDStream::finish(RkPipeBuffer* current) {
  Lock lock(sync_->lock);
  if (current) {
    current->reset();
    freeRing_.push(current);
  }
  writeBuffer_ = nullptr;
  if (consumerFailed_) throw RkFatalError(kPipeDownstreamFailed);
  RkPipeBuffer* head = freeRing_.headBuffer();
  if (head && head->length() != 0) {  // what write() left behind
    filledRing_.push(freeRing_.popHead());
    // Woken while the lock is held, since the wait below keeps it.
    if (Sync::Post(sync_->consumer)) sync_->consumer.wake.notify_one();
  }
  Sync::WaitFree(*this, lock, true);
  RkPipeBuffer* mark = freeRing_.popHead();
  mark->reset();
  filledRing_.push(mark);
  // Set here as well as by setLast, so that the end of the output is known the moment it is sent.
  lastSeen_ = true;
  const bool wake = Sync::Post(sync_->consumer);
  lock.unlock();
  if (wake) sync_->consumer.wake.notify_one();
}

void RkDStream::setLast() {
  Lock lock(sync_->lock);
  lastSeen_ = true;
}

// ---- Consumer.

RkPipeBuffer* RkDStream::take(RkPipeBuffer*& exchange) {
  RK_ASSERT(exchange != nullptr && readBuffer_ == nullptr);
  if (producerFailed()) throwStatus();
  Lock lock(sync_->lock);
  Sync::WaitFilled(*this, lock);
  if (Sync::CheckEnd(*this)) return nullptr;
  RkPipeBuffer* head = filledRing_.popHead();
  exchange->reset();
  freeRing_.push(exchange);
  const bool wake = Sync::Post(sync_->producer);
  lock.unlock();
  if (wake) sync_->producer.wake.notify_one();
  exchange = nullptr;
  return head;
}

// ---- Thread bodies.

void RkDStream::failConsumer() {
  {
    Lock lock(sync_->lock);
    consumerFailed_ = true;
    Sync::Post(sync_->producer);
  }
  sync_->producer.wake.notify_one();
}

void RkDStream::failProducer(const RkErrorInfo& status) {
  {
    Lock lock(sync_->lock);
    status_ = status;
    producerFailed_ = true;
    Sync::Post(sync_->consumer);
  }
  sync_->consumer.wake.notify_one();
}

void RkDStream::consumerFinished() {
  {
    Lock lock(sync_->lock);
    consumerDone_ = true;
    Sync::Post(sync_->producer);
  }
  sync_->producer.wake.notify_one();
}

void RkDStream::Reset() {
  Lock lock(sync_->lock);
  while (filledRing_.headBuffer()) freeRing_.push(filledRing_.popHead());
  for (RkPipeBuffer* buffer : freeRing_.slots)
    if (buffer) buffer->reset();
  lastSeen_ = endDelivered_ = producerFailed_ = consumerFailed_ = consumerDone_ = false;
  status_ = RkErrorInfo();
  bytesRead_ = 0;
  readBuffer_ = writeBuffer_ = nullptr;
  readByte_ = writeByte_ = 0;
  readMask_ = writeMask_ = 128;
}

// ---- Consumer: bytes and bits.

bool RkDStream::acquireReadBuffer() {
  if (producerFailed()) throwStatus();
  Lock lock(sync_->lock);
  Sync::WaitFilled(*this, lock);
  if (Sync::CheckEnd(*this)) return false;
  readBuffer_ = filledRing_.headBuffer();
  return true;
}

void RkDStream::releaseReadBuffer() {
  boost::this_thread::interruption_point();
  bool wake;
  {
    Lock lock(sync_->lock);
    RK_ASSERT(filledRing_.headBuffer() == readBuffer_);
    filledRing_.popHead();
    readBuffer_->reset();
    freeRing_.push(readBuffer_);
    wake = Sync::Post(sync_->producer);
  }
  if (wake) sync_->producer.wake.notify_one();
  readBuffer_ = nullptr;
}

bool RkDStream::readSlow(uint8_t* destination, uint64_t maximum, uint64_t minimum, uint64_t& count) {
  count = 0;
  if (minimum > maximum) return false;
  uint64_t got = 0;
  for (;;) {
    if (!readBuffer_ && !acquireReadBuffer()) {
      if (got == 0) return false;
      // The caller gets what came; its next read meets the end.
      endDelivered_ = false;
      break;
    }
    RkPipeBuffer* b = readBuffer_;
    const uint64_t n = std::min(minimum - got, b->remaining());
    if (n) std::memcpy(destination + got, b->readPos(), n);
    b->consume(n);
    got += n;
    if (b->remaining() == 0) releaseReadBuffer();
    if (got >= minimum) break;
  }
  bytesRead_ += got;
  count = got;
  return true;
}

bool RkDStream::readBitsSlow(uint32_t& value, uint32_t count, uint32_t& got) {
  uint64_t bits = 0;
  uint32_t n = 0;
  for (uint32_t bit; n < count && readBit(bit); ++n) bits = bits << 1 | bit;
  value = static_cast<uint32_t>(bits);
  got = n;
  if (n == count) return true;
  if (n == 0) return false;
  endDelivered_ = false;
  return true;
}

// ---- Producer: bytes and bits.

void RkDStream::acquireWriteBuffer() {
  Lock lock(sync_->lock);
  Sync::WaitFree(*this, lock, false);
  writeBuffer_ = freeRing_.headBuffer();
}

void RkDStream::passWriteBuffer() {
  boost::this_thread::interruption_point();
  bool wake;
  {
    Lock lock(sync_->lock);
    RK_ASSERT(freeRing_.headBuffer() == writeBuffer_);
    filledRing_.push(freeRing_.popHead());
    wake = Sync::Post(sync_->consumer);
  }
  if (wake) sync_->consumer.wake.notify_one();
  writeBuffer_ = nullptr;
}

void RkDStream::writeSlow(const uint8_t* source, uint64_t length) {
  if (length == 0) return;
  if (consumerFailed()) throw RkFatalError(kPipeDownstreamFailed);
  while (length > 0) {
    if (!writeBuffer_) acquireWriteBuffer();
    RkPipeBuffer* b = writeBuffer_;
    const uint64_t n = std::min(length, b->room());
    std::memcpy(b->writeEnd(), source, n);
    b->extend(n);
    source += n;
    length -= n;
    if (b->room() == 0) passWriteBuffer();
  }
}

void RkDStream::emitBitByte() {
  const uint8_t byte = writeByte_;
  writeByte_ = 0;
  writeMask_ = 128;
  write(&byte, 1);
}

void RkDStream::flushBits() {
  if (writeMask_ == 128) return;
  const uint8_t byte = writeByte_;
  write(&byte, 1);
}

void RkDStream::flush() {
  if (writeBuffer_ && writeBuffer_->length() != 0) passWriteBuffer();
}

}  // namespace RkPipeLib
