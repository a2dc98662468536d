// RkDStream: the hand-over point of a pipe between one producer thread and one consumer thread.
//
// Contract
// - The producer side (getFree, put, finish, setLast, returnFree, write, writeBit, alignWrite,
//   flushBits, flush) is called only by the node that owns the stream, on that node's thread.
// - The consumer side (take, read, readBit, readBits, alignRead, the bytesRead accessors) is
//   called only by the node that reads the stream, on its thread.
// - failConsumer, failProducer and consumerFinished are called by the thread bodies of the pipe
//   when a node's Run has ended; Reset only while no thread of the pipe runs.
// - A side uses either whole buffers (getFree/put, take) or the byte interface (write, read) on
//   one stream, never both, since the byte interface keeps its buffer at the head of a ring.
//
// Blocking. getFree, finish and write wait for a free buffer; take and read wait for a filled
// one. No wait has a timeout: each ends by a buffer, by a flag that the other side sets, or by a
// thread interruption request (every sleep is an interruption point of Boost.Thread; a wait first
// spins for at most 100 µs, see RkDStream.cpp). A wait that
// ends by a flag throws: consumerFailed gives RkFatalError(7003), consumerDone RkNoError(0),
// producerFailed re-raises the producer's own failure.
//
// Buffers. The stream allocates its buffers once; the two rings together with the buffer that
// each side holds are all the buffers there are, and the destructor frees what its rings hold.
// A consumer that takes gives a buffer back in exchange, so buffers wander between streams; a
// node frees the one buffer it holds in its own destructor.
#pragma once

#include <algorithm>
#include <atomic>
#include <bit>
#include <cstdint>
#include <cstring>
#include <memory>
#include <vector>

#include "RkError.h"
#include "RkPipeBuffer.h"
#include "RkStreamSettings.h"

namespace RkPipeLib {

// Pipe library codes (7001 to 7030).
enum RkPipeCode : uint32_t {
  kPipeOutOfMemory = 7001,
  kPipeCancelled = 7002,
  kPipeDownstreamFailed = 7003,  // a stop order from below; never reported to the user
  kPipeThreadFailed = 7004,
  kPipeInterrupted = 7005,
  kPipeReadPastEnd = 7006,
  kPipeOpenOutput = 7007,
  kPipeWriteFailed = 7008,
  kPipeBadData = 7010,     // a decoder met data its method cannot have written
  kPipeBadHeader = 7016,   // a decoder's parameters or header are not of its method
  kPipeUnsupported = 7017,  // a form, size or method this library does not decode
  kPipeDiskFull = 7018,
  kPipeWouldWait = 7019,  // a pipe run without threads needed more room than its buffers
  kPipeUnknownException = 7030,
};

class RkDStream {
 public:
  explicit RkDStream(const RkStreamSettings& settings = RkStreamSettings::Instance());
  RkDStream(const RkDStream&) = delete;
  RkDStream& operator=(const RkDStream&) = delete;
  ~RkDStream();

  const RkStreamSettings& settings() const noexcept { return *settings_; }
  uint64_t bufferSize() const noexcept { return bufferSize_; }

  // ---- Producer: whole buffers.
  // An empty free buffer, waiting as long as none is free.
  RkPipeBuffer* getFree();
  // Passes a filled buffer on. A buffer of length 0 is the end mark: only finish sends one.
  void put(RkPipeBuffer* buffer);
  // Ends the data: gives `current` (if any) back unfilled, passes on what the byte interface has
  // written, and sends the end mark. Waits like getFree for the buffer that carries the mark.
  void finish(RkPipeBuffer* current);
  void setLast();
  // Gives back a buffer from getFree that will not be filled, as a node does when it unwinds.
  void returnFree(RkPipeBuffer* buffer);

  // ---- Consumer: whole buffers.
  // Exchanges `exchange` (any empty buffer the caller owns) for the next filled buffer and sets
  // `exchange` to null. At the end of data it returns null and leaves `exchange` alone; a take
  // after that raises RkFatalError(7006).
  RkPipeBuffer* take(RkPipeBuffer*& exchange);

  // ---- Thread bodies.
  void failConsumer();
  void failProducer(const RkLib::RkErrorInfo& status);
  void consumerFinished();
  // Back to clean for the next item: filled buffers return to the free ring, flags and counts
  // are cleared. Not while threads run.
  void Reset();

  // ---- Consumer: bytes and bits.
  // Copies exactly `minimum` bytes, waiting for further buffers until they have come;
  // `maximum` only bounds the request. False, with `count` 0, when `minimum` exceeds `maximum`
  // or the data has ended before the first byte; an end part way returns what came.
  bool read(void* destination, uint64_t maximum, uint64_t minimum, uint64_t& count) {
    RkPipeBuffer* b = readBuffer_;
    // The buffer must keep a byte, so that the slow path alone hands buffers back.
    if (b && minimum <= maximum && minimum < b->remaining()) {
      if (minimum) std::memcpy(destination, b->readPos(), minimum);
      b->consume(minimum);
      bytesRead_ += minimum;
      count = minimum;
      return true;
    }
    return readSlow(static_cast<uint8_t*>(destination), maximum, minimum, count);
  }

  // Bits come most significant first.
  bool readBit(uint32_t& value) {
    if (readMask_ == 128 && !fetchBitByte()) return false;
    value = (readByte_ & readMask_) != 0;
    readMask_ = readMask_ == 1 ? 128 : static_cast<uint8_t>(readMask_ >> 1);
    return true;
  }

  // Reads `count` bits (at most 32), the first bit read becoming the highest. If the data ends
  // after `got` bits, 0 < got < count, the value holds those bits in its low end and the call
  // succeeds; the next read then meets the end. False when not one bit came.
  bool readBits(uint32_t& value, uint32_t count, uint32_t& got) {
    RK_ASSERT(count <= 32);
    const uint32_t left = readMask_ == 128 ? 0 : static_cast<uint32_t>(std::countr_zero(readMask_)) + 1;
    const uint32_t needBytes = count > left ? (count - left + 7) / 8 : 0;
    RkPipeBuffer* b = readBuffer_;
    if (!b || b->remaining() <= needBytes) return readBitsSlow(value, count, got);
    const uint8_t* p = b->readPos();
    uint64_t bits = readByte_ & ((1u << left) - 1);
    for (uint32_t i = 0; i < needBytes; ++i) bits = bits << 8 | p[i];
    if (needBytes) readByte_ = p[needBytes - 1];
    b->consume(needBytes);
    bytesRead_ += needBytes;
    const uint32_t extra = left + 8 * needBytes - count;  // unread low bits of readByte_, < 8
    readMask_ = extra ? static_cast<uint8_t>(1u << (extra - 1)) : 128;
    value = static_cast<uint32_t>((bits >> extra) & ((uint64_t{1} << count) - 1));
    got = count;
    return true;
  }

  // Drops the unread bits of the current byte.
  void alignRead() noexcept { readMask_ = 128; }

  // Bytes consumed through the byte interfaces (read, the bit reader, RkBStrm); take, which
  // hands over whole buffers that a node may pass on unread, does not count.
  uint64_t bytesRead() const noexcept { return bytesRead_; }
  // Nodes that read ahead through RkBStrm store their true consumption here at the end.
  void setBytesRead(uint64_t n) noexcept { bytesRead_ = n; }
  void addBytesRead(uint64_t n) noexcept { bytesRead_ += n; }

  // ---- Producer: bytes and bits.
  // Copies the bytes in, passing each buffer on as soon as it is exactly full.
  void write(const void* source, uint64_t length) {
    RkPipeBuffer* b = writeBuffer_;
    if (b && length != 0 && length < b->room()) {  // the buffer stays open
      std::memcpy(b->writeEnd(), source, length);
      b->extend(length);
      return;
    }
    writeSlow(static_cast<const uint8_t*>(source), length);
  }

  // `value` must be 0 or 1. Bytes are built from the most significant bit down.
  void writeBit(uint32_t value) {
    RK_ASSERT(value <= 1);
    writeByte_ |= static_cast<uint8_t>(writeMask_ & (0u - value));
    writeMask_ >>= 1;
    if (writeMask_ == 0) emitBitByte();
  }

  void alignWrite(uint32_t fill) {
    while (writeMask_ != 128) writeBit(fill);
  }
  // Writes a partly built byte as it stands, low bits zero, and keeps building it: for the very
  // end of a bit stream.
  void flushBits();
  // Passes a partly filled byte-interface buffer on.
  void flush();

  // For a pipe run without threads: a wait is a failure, RkSevereError(7019), since the other
  // side will never come while this one waits.
  void setNoWait(bool noWait) noexcept { noWait_ = noWait; }

  // ---- State, for the pipe and for tests. Flags are read without the lock.
  bool lastSeen() const noexcept { return lastSeen_.load(std::memory_order_acquire); }
  bool endDelivered() const noexcept { return endDelivered_.load(std::memory_order_acquire); }
  bool producerFailed() const noexcept { return producerFailed_.load(std::memory_order_acquire); }
  bool consumerFailed() const noexcept { return consumerFailed_.load(std::memory_order_acquire); }
  bool consumerDone() const noexcept { return consumerDone_.load(std::memory_order_acquire); }
  RkLib::RkErrorInfo status() const;

 private:
  struct Sync;
  // Slots are twice the buffers, so a push always finds an empty one. The occupied slots form
  // one run that starts at the head, which keeps the ring first in, first out.
  struct Ring {
    std::vector<RkPipeBuffer*> slots;
    uint32_t head = 0;

    RkPipeBuffer* headBuffer() const { return slots[head]; }
    void push(RkPipeBuffer* buffer);
    RkPipeBuffer* popHead();
  };

  bool readSlow(uint8_t* destination, uint64_t maximum, uint64_t minimum, uint64_t& count);
  bool readBitsSlow(uint32_t& value, uint32_t count, uint32_t& got);
  bool fetchBitByte() {
    RkPipeBuffer* b = readBuffer_;
    if (b && b->remaining() > 1) {
      readByte_ = *b->readPos();
      b->consume(1);
      ++bytesRead_;
      return true;
    }
    uint64_t count;
    return readSlow(&readByte_, 1, 1, count);
  }
  bool acquireReadBuffer();
  void releaseReadBuffer();
  void writeSlow(const uint8_t* source, uint64_t length);
  void emitBitByte();
  void acquireWriteBuffer();
  void passWriteBuffer();
  [[noreturn]] void throwStatus() const;

  std::unique_ptr<Sync> sync_;  // the stream's lock and its two condition variables
  const RkStreamSettings* settings_;
  uint64_t bufferSize_;
  Ring freeRing_;    // guarded by the lock
  Ring filledRing_;  // guarded by the lock

  // Producer's own, used without the lock. writeBuffer_ stays the free ring's head until full.
  alignas(64) RkPipeBuffer* writeBuffer_ = nullptr;
  uint8_t writeByte_ = 0;
  uint8_t writeMask_ = 128;

  // Consumer's own, used without the lock. readBuffer_ stays the filled ring's head until read.
  alignas(64) RkPipeBuffer* readBuffer_ = nullptr;
  uint64_t bytesRead_ = 0;
  uint8_t readByte_ = 0;
  uint8_t readMask_ = 128;  // 128: the next bit needs a new byte

  // Written under the lock; atomic so that a side may test them quickly without it.
  alignas(64) std::atomic<bool> lastSeen_{false};
  std::atomic<bool> endDelivered_{false};
  std::atomic<bool> producerFailed_{false};
  std::atomic<bool> consumerFailed_{false};
  std::atomic<bool> consumerDone_{false};
  RkLib::RkErrorInfo status_;  // guarded by the lock; set before producerFailed_
  bool noWait_ = false;        // set while no thread of the pipe runs
};

}  // namespace RkPipeLib
