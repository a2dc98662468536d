// Helpers of the pipe suite: small stream settings, a fixture that checks no thread is left
// behind, a watchdog that turns a hang into a failure, phases to order threads, and scripted
// nodes that fail, stop or throw at a chosen buffer.
#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <mutex>
#include <new>
#include <sstream>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "RkCrc32.h"
#include "RkError.h"
#include "RkNode.h"

namespace RkPipeTest {

using RkLib::RkErrorInfo;
using RkPipeLib::RkPipeBuffer;
using RkPipeLib::RkStreamSettings;

// Settings with buffers far below the store's 1 KiB floor, so that a few bytes cross blocks.
inline RkStreamSettings SmallSettings(int32_t bufferSize, int32_t bufferCount = 2) {
  RkStreamSettings settings;
  settings.pipeBufferSize = bufferSize;
  settings.pipeBufferCount = bufferCount;
  return settings;
}

// The threads of this process that have not begun to exit. A thread that was just joined can
// stay listed for a while under load; the kernel marks it as exiting (PF_EXITING in the flags
// field of its stat) before a join can return, so leaving those out makes the count exact.
inline int ThreadCount() {
  constexpr unsigned long kExiting = 0x4;
  int count = 0;
  for (const auto& task : std::filesystem::directory_iterator("/proc/self/task")) {
    std::ifstream stat(task.path() / "stat");
    std::string line;
    if (!std::getline(stat, line)) continue;  // gone while we looked
    // The name in parentheses may hold spaces; the fields after it are plain numbers.
    std::istringstream fields(line.substr(line.rfind(')') + 2));
    std::string skip;
    for (int i = 0; i < 6; ++i) fields >> skip;  // state, ppid, pgrp, session, tty_nr, tpgid
    unsigned long flags = 0;
    if (fields >> flags && (flags & kExiting) == 0) ++count;
  }
  return count;
}

// A worker ends its own part after the pipe has let go of it; anything still running after two
// seconds was left behind.
inline int SettledThreadCount(int expected) {
  int count = ThreadCount();
  for (int i = 0; i < 2000 && count > expected; ++i) {
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
    count = ThreadCount();
  }
  return count;
}

class PipeTest : public testing::Test {
 protected:
  void SetUp() override {
    // A sanitizer starts a helper thread of its own with the first thread of the process.
    static const bool warm = [] {
      std::thread([] {}).join();
      return true;
    }();
    (void)warm;
    threadsBefore_ = ThreadCount();
  }
  void TearDown() override {
    EXPECT_EQ(SettledThreadCount(threadsBefore_), threadsBefore_) << "a thread was left behind";
  }

 private:
  int threadsBefore_ = 0;
};

// One-shot event for ordering threads; a wait has a generous deadline so that a broken order
// fails the test instead of hanging it.
class Phase {
 public:
  void Open() {
    {
      std::lock_guard<std::mutex> lock(mutex_);
      open_ = true;
    }
    wake_.notify_all();
  }
  bool Wait(std::chrono::seconds deadline = std::chrono::seconds(60)) {
    std::unique_lock<std::mutex> lock(mutex_);
    return wake_.wait_for(lock, deadline, [this] { return open_; });
  }

 private:
  std::mutex mutex_;
  std::condition_variable wake_;
  bool open_ = false;
};

// Ends the process with a message if the scope is not left before the deadline: a hung pipe
// cannot be failed from inside, and waiting forever would hide which test hung.
class Watchdog {
 public:
  Watchdog(std::chrono::seconds deadline, const char* what)
      : thread_([this, deadline, what] {
          std::unique_lock<std::mutex> lock(mutex_);
          if (!wake_.wait_for(lock, deadline, [this] { return done_; })) {
            std::fprintf(stderr, "watchdog: %s did not finish in %lld s\n", what,
                         static_cast<long long>(deadline.count()));
            std::abort();
          }
        }) {}
  ~Watchdog() {
    {
      std::lock_guard<std::mutex> lock(mutex_);
      done_ = true;
    }
    wake_.notify_all();
    thread_.join();
  }

 private:
  std::mutex mutex_;
  std::condition_variable wake_;
  bool done_ = false;
  std::thread thread_;
};

// What a scripted node does when it reaches buffer `at`.
struct Fault {
  enum Kind { kNone, kError, kBadAlloc, kUnknown, kStop };
  Kind kind = kNone;
  uint64_t at = 0;
  RkErrorInfo error;

  static Fault Error(uint64_t at, uint32_t code, uint32_t severity) { return {kError, at, {code, severity}}; }
  static Fault Stop(uint64_t at) { return {kStop, at, {}}; }

  // Throws for the failing kinds; kStop is for the node to act on.
  void Strike() const {
    switch (kind) {
      case kError:
        if (error.severity() == 0) throw RkLib::RkNoError(error.code());  // Throw would drop the code
        error.Throw();
      case kBadAlloc:
        throw std::bad_alloc();
      case kUnknown:
        throw std::runtime_error("not an RkError");
      default:
        return;
    }
  }
};

// The byte at offset i of every scripted stream.
inline uint8_t PatternByte(uint64_t i) { return static_cast<uint8_t>(i * 131 + (i >> 8)); }

// Sends `buffers` full buffers of the pattern.
class ScriptSource : public RkPipeLib::RkSourceNode {
 public:
  ScriptSource(uint64_t buffers, const RkStreamSettings& settings, Fault fault = {})
      : RkSourceNode(nullptr, nullptr, settings), buffers_(buffers), fault_(fault) {}

  void Run() override {
    uint64_t offset = 0;
    for (uint64_t i = 0; i < buffers_; ++i) {
      if (fault_.kind != Fault::kNone && i == fault_.at) {
        if (fault_.kind == Fault::kStop) break;
        fault_.Strike();
      }
      RkPipeBuffer* buffer = output_.getFree();
      for (uint64_t k = 0; k < buffer->capacity(); ++k) buffer->base()[k] = PatternByte(offset + k);
      buffer->setLength(buffer->capacity());
      offset += buffer->capacity();
      crc_ = RkLib::RkCrc32(crc_, buffer->base(), buffer->length());
      output_.put(buffer);
    }
    output_.finish(nullptr);
    output_.setLast();
  }
  uint32_t Crc() const { return crc_; }

 private:
  uint64_t buffers_;
  Fault fault_;
  uint32_t crc_ = 0;
};

// Passes buffers through, by exchange.
class ScriptLink : public RkPipeLib::RkLinkNode {
 public:
  explicit ScriptLink(const RkStreamSettings& settings, Fault fault = {})
      : RkLinkNode(nullptr, nullptr, settings), fault_(fault) {}

  void Run() override {
    struct Stop {};
    uint64_t index = 0;
    try {
      PassBuffers([&](RkPipeBuffer&) {
        if (fault_.kind != Fault::kNone && index == fault_.at) {
          if (fault_.kind == Fault::kStop) throw Stop();
          fault_.Strike();
        }
        ++index;
      });
    } catch (const Stop&) {
      // A decoder that has read all it wants ends its output and returns.
      output_.finish(nullptr);
      output_.setLast();
    }
  }

 private:
  Fault fault_;
};

// Takes buffers and keeps the CRC of what came.
class ScriptTarget : public RkPipeLib::RkTargetNode {
 public:
  explicit ScriptTarget(const RkStreamSettings& settings, Fault fault = {})
      : RkTargetNode(nullptr, nullptr),
        spare_(new RkPipeBuffer(static_cast<uint64_t>(settings.pipeBufferSize))),
        fault_(fault) {}
  ~ScriptTarget() override { delete spare_; }

  void Run() override {
    for (uint64_t i = 0; TakeInto(spare_); ++i) {
      if (fault_.kind != Fault::kNone && i == fault_.at) {
        if (fault_.kind == Fault::kStop) return;
        fault_.Strike();
      }
      crc_ = RkLib::RkCrc32(crc_, spare_->readPos(), spare_->remaining());
      bytes_ += spare_->remaining();
    }
  }
  uint32_t Crc() const { return crc_; }
  uint64_t Bytes() const { return bytes_; }

 private:
  RkPipeBuffer* spare_;
  Fault fault_;
  uint32_t crc_ = 0;
  uint64_t bytes_ = 0;
};

}  // namespace RkPipeTest
