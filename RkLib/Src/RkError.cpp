#include "RkError.h"

#include <cstdio>
#include <cstdlib>
#include <cwchar>
#include <string>
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

// stdout may already be byte-oriented (the host printed with printf) or wide-oriented; writing
// in the wrong orientation would drop the line, so follow whatever the stream already is.
void WriteFatalLine(const char* what, const char16_t* file, int line) {
  std::string text = "\nFATAL ERROR: ";
  text += what;
  text += " in Module: ";
  text += RkString(file).toUtf8();
  text += " Line number: ";
  text += std::to_string(line);
  text += "\n";
  if (std::fwide(stdout, 0) > 0) {
    std::fwprintf(stdout, L"%s", RkString::FromUtf8(text).toWchar().c_str());
  } else {
    std::fputs(text.c_str(), stdout);
  }
}

}  // namespace

void RkAssertFailure(const char16_t* file, int line) {
  WriteFatalLine("assert failure", file, line);
  std::exit(kFatalExitStatus);
}

void RkApiFailure(const char16_t* file, int line) {
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
