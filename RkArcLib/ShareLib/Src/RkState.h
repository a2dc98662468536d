// RkState: the outcome that every archive operation fills. Code and severity are always set
// together, so a caller never sees a code of one failure with the severity of another.
#pragma once

#include <cstdint>

#include "RkError.h"

namespace RkArcLib {

// Codes of the archive operations that a caller is expected to act on.
enum RkArcCode : uint32_t {
  kArcOk = 0,
  kArcNotSupported = 2,
  kArcNotLoaded = 6,
  kArcCancelled = 8,
  kArcReadFailure = 12,
  kArcCannotOpen = 15,
  kArcHeaderEof = 18,
  kArcNewOrEmpty = 19,
  kArcNoFilesSelected = 20,
  kArcIndexOutOfRange = 28,
  kArcSlotNotLoaded = 29,
  kArcNameNotFound = 32,
  kArcPasswordRequired = 34,
  kArcNotValidArchive = 200,
  kArcDamagedHeaderFirst = 203,
  kArcDamagedHeaderLast = 206,
  kArcWorkerPoolExhausted = 266,
  kArcWrongPassword = 1011,
};

class RkState {
 public:
  uint32_t code = 0;
  uint32_t severity = 0;

  void Set(uint32_t newCode, uint32_t newSeverity) noexcept {
    code = newCode;
    severity = newSeverity;
  }
  void Set(const RkLib::RkError& error) noexcept { Set(error.code(), error.severity()); }
  void Clear() noexcept { Set(0, 0); }
  bool IsOk() const noexcept { return code == 0; }
  // From this severity on a load closes its files and drops what it read.
  bool IsFatalToLoad() const noexcept { return severity >= 11; }
};

}  // namespace RkArcLib
