// RkStreamSettings: the process-wide tuning values of the pipe and of the parallel encoders.
//
// The object is built once, on first use, from the user's settings store and is read-only after
// that, so any thread reads it without a lock; a change in the store takes effect in the next
// process. A value outside its range leaves the default in place, silently: a bad setting must
// never stop an extraction. Tests and tools build their own objects with FromLookup, or fill the
// fields directly, without touching the process-wide one.
#pragma once

#include <cstdint>
#include <functional>
#include <string_view>

namespace RkPipeLib {

struct RkStreamSettings {
  static constexpr int32_t kDefaultBufferCount = 2;
  static constexpr int32_t kDefaultBufferSize = 512 * 1024;

  int32_t pipeBufferCount = kDefaultBufferCount;  // buffers of each RkDStream
  int32_t pipeBufferSize = kDefaultBufferSize;    // bytes of each buffer (the store holds KiB)
  bool noMatchOpt = false;                        // no optimised match search in the compressors
  int32_t deflMinChunk = 0;                       // 0: 393216
  int32_t deflMaxChunk = 0;                       // 0: the encoder's rule; never below the minimum
  int32_t deflBuffers = 0;                        // 0: derived from the thread count
  int32_t deflThreads = 0;                        // 0: the caller's value, clamped to 1..32
  bool deflGpuOnly = false;
  int32_t deflGpuThreads = 0;  // 0: 1
  int32_t xzMinChunk = 0;
  int32_t xzMaxChunk = 0;
  int32_t xzThreads = 0;    // 0: the caller's value; in use clamped to 1..32
  int32_t zstdThreads = 0;  // 0: the caller's value
  bool noAesOpt = false;    // the AES stages use the plain table code

  // The process-wide object, read from the store under a once-only guard at the first call.
  static const RkStreamSettings& Instance();

  // Answers the value stored under a key, or 0 when there is none: 0 is every key's default.
  using Lookup = std::function<int32_t(std::u16string_view key)>;
  static RkStreamSettings FromLookup(const Lookup& lookup);
  // A fresh object from the settings store, each call; Instance keeps the first one.
  static RkStreamSettings FromStore();

  // The AES code path for this processor: 0 (the table code) whenever noAesOpt is set.
  int AesLevel() const noexcept;
};

}  // namespace RkPipeLib
