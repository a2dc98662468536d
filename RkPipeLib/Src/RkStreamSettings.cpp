#include "RkStreamSettings.h"

#include "RkCpu.h"
#include "RkSettings.h"

namespace RkPipeLib {

namespace {

// Integers take a value in [min, max]; flags take any non-zero value. The buffer size is stored
// in KiB so that a hand-edited value stays short.
struct Key {
  std::u16string_view name;
  int32_t min;
  int32_t max;
  int32_t scale;
  int32_t RkStreamSettings::*number;
  bool RkStreamSettings::*flag;
};

constexpr int32_t kMaxBufferKiB = 8192;

const Key kKeys[] = {
    {u"PipeBufferCount", 2, 10, 1, &RkStreamSettings::pipeBufferCount, nullptr},
    {u"PipeBufferSize", 1, kMaxBufferKiB, 1024, &RkStreamSettings::pipeBufferSize, nullptr},
    {u"NoMatchOpt", 0, 0, 0, nullptr, &RkStreamSettings::noMatchOpt},
    {u"DeflMinChunk", 131072, 33554432, 1, &RkStreamSettings::deflMinChunk, nullptr},
    {u"DeflMaxChunk", 131072, 33554432, 1, &RkStreamSettings::deflMaxChunk, nullptr},
    {u"DeflBuffers", 1, 32, 1, &RkStreamSettings::deflBuffers, nullptr},
    {u"DeflThreads", 1, 32, 1, &RkStreamSettings::deflThreads, nullptr},
    {u"DeflGpuOnly", 0, 0, 0, nullptr, &RkStreamSettings::deflGpuOnly},
    {u"DeflGpuThreads", 1, 4, 1, &RkStreamSettings::deflGpuThreads, nullptr},
    {u"XzMinChunk", 1048576, 134217728, 1, &RkStreamSettings::xzMinChunk, nullptr},
    {u"XzMaxChunk", 1048576, 134217728, 1, &RkStreamSettings::xzMaxChunk, nullptr},
    {u"XzThreads", 1, 32, 1, &RkStreamSettings::xzThreads, nullptr},
    {u"ZstdThreads", 1, 32, 1, &RkStreamSettings::zstdThreads, nullptr},
    {u"NoAesOpt", 0, 0, 0, nullptr, &RkStreamSettings::noAesOpt},
};

}  // namespace

RkStreamSettings RkStreamSettings::FromLookup(const Lookup& lookup) {
  RkStreamSettings settings;
  for (const Key& key : kKeys) {
    const int32_t value = lookup(key.name);
    if (key.flag) {
      settings.*key.flag = value != 0;
    } else if (value >= key.min && value <= key.max) {
      settings.*key.number = value * key.scale;
    }
  }
  return settings;
}

RkStreamSettings RkStreamSettings::FromStore() {
  return FromLookup([](std::u16string_view key) {
    return RkLib::readSettingInt(u"Rakona", RkLib::RkString(key), 0, u"rakona32.ini");
  });
}

const RkStreamSettings& RkStreamSettings::Instance() {
  // The guard of a function-local static is the once-only guard: every thread that arrives while
  // the store is read waits for the one object.
  static const RkStreamSettings instance = FromStore();
  return instance;
}

int RkStreamSettings::AesLevel() const noexcept { return RkLib::RkAesLevel(noAesOpt); }

}  // namespace RkPipeLib
