#include "RkError.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <utility>

#include "RkString.h"

namespace RkLib {

RkError& RkError::operator=(const RkError& other) noexcept {
  if (this != &other) code_ = other.code_;
  return *this;
}

void RkNoError::rethrow() const { throw RkNoError(code()); }
void RkWarning::rethrow() const { throw RkWarning(code()); }
void RkCorrectableError::rethrow() const { throw RkCorrectableError(code()); }
void RkSevereError::rethrow() const { throw RkSevereError(code()); }
void RkFatalError::rethrow() const { throw RkFatalError(code()); }

void RkErrorInfo::swap(RkErrorInfo& other) noexcept {
  std::swap(code_, other.code_);
  std::swap(severity_, other.severity_);
}

void RkErrorInfo::Throw() const {
  switch (severity_) {
    case kSeverityWarning: throw RkWarning(code_);
    case kSeverityCorrectable: throw RkCorrectableError(code_);
    case kSeveritySevere: throw RkSevereError(code_);
    case kSeverityFatal: throw RkFatalError(code_);
    default: throw RkNoError(0);
  }
}

namespace {

// The handlers run when something is already wrong, often when memory has run out, so they
// allocate nothing: the line is built in a stack buffer and written to the descriptor of standard
// output. Writing there directly also sidesteps the stream's byte or wide orientation, which a
// host may have fixed either way. A file name too long for the buffer is cut short.
void WriteFatalLine(const char* what, const char16_t* file, int line) noexcept {
  char text[4096];
  int used = std::snprintf(text, sizeof text, "\nFATAL ERROR: %s in Module: ", what);
  size_t n = used > 0 ? static_cast<size_t>(used) : 0;
  constexpr size_t kTailRoom = 48;  // " Line number: ", the number and the line end
  for (const char16_t* p = file; p && *p; ++p) {
    char32_t c = *p;
    if (c >= 0xD800 && c <= 0xDBFF && p[1] >= 0xDC00 && p[1] <= 0xDFFF) {
      c = 0x10000 + ((c - 0xD800) << 10) + (char32_t(p[1]) - 0xDC00);
      ++p;
    } else if (c >= 0xD800 && c <= 0xDFFF) {
      c = 0xFFFD;
    }
    if (n + RkUtf8Length(c) + kTailRoom > sizeof text) break;
    n += RkPutUtf8(text + n, c);
  }
  used = std::snprintf(text + n, sizeof text - n, " Line number: %d\n", line);
  if (used > 0) n += std::min(static_cast<size_t>(used), sizeof text - n - 1);
  // Whatever the process printed before comes first; fflush allocates nothing.
  std::fflush(stdout);
  for (size_t done = 0; done < n;) {
    const ssize_t wrote = ::write(STDOUT_FILENO, text + done, n - done);
    if (wrote > 0) {
      done += static_cast<size_t>(wrote);
    } else if (wrote < 0 && errno == EINTR) {
      continue;
    } else {
      break;
    }
  }
}

}  // namespace

void RkAssertFailure(const char16_t* file, int line) noexcept {
  WriteFatalLine("assert failure", file, line);
  std::exit(kFatalExitStatus);
}

void RkApiFailure(const char16_t* file, int line) noexcept {
  WriteFatalLine("unexpected API Failure", file, line);
  std::exit(kFatalExitStatus);
}

void RkFaultAtSite() {
  // volatile both ways: the compiler may neither prove the pointer null nor drop the store.
  static volatile char* volatile nullSite = nullptr;
  *nullSite = 1;
  std::abort();
}

}  // namespace RkLib
