// Failure model of all libraries: an exception carries one code, its class carries the severity.
//
// Throw by value, catch `RkError&`. The text for the user never travels in the exception; it is
// posted as an RkMsg before the throw. A failure that must outlive its catch block or change
// threads is stored as an RkErrorInfo and re-raised with Throw() on the waiting thread.
#pragma once

#include <cstdint>

namespace RkLib {

enum RkSeverity : uint32_t {
  kSeverityNone = 0,
  kSeverityWarning = 10,
  kSeverityCorrectable = 20,
  kSeveritySevere = 30,
  kSeverityFatal = 40,
};

// General codes shared by all libraries; each library owns a range of its own above these.
enum RkGeneralCode : uint32_t {
  kErrPrecondition = 1,      // a delegate object is missing or refused the call
  kErrQueueFull = 4,         // a pool or queue could not take a work item
  kErrNotOpen = 6,           // the archive is not open or has no file behind it
  kErrUserStop = 8,          // the user or a callback said stop
  kErrWriteFile = 13,        // writing to an output file failed
  kErrReadFile = 14,         // reading or seeking in an input file failed
  kErrOpenArchive = 15,      // the archive file cannot be opened or examined
  kErrNoItems = 20,          // the archive holds no items for the operation
  kErrShortFile = 25,        // a file is shorter than its fixed header
  kErrUserSkip = 31,         // the user chose to skip this item
  kErrOutputSetup = 33,      // the output target of the item could not be set up
};

class RkError {
 public:
  explicit RkError(uint32_t code) noexcept : code_(code) {}
  RkError(const RkError&) noexcept = default;
  virtual RkError& operator=(const RkError& other) noexcept;
  virtual ~RkError() = default;

  virtual bool isFatal() const noexcept { return false; }
  virtual bool isSevere() const noexcept { return false; }
  virtual bool isCorrectable() const noexcept { return false; }
  virtual bool isWarning() const noexcept { return false; }
  virtual bool isNoError() const noexcept { return false; }
  virtual uint32_t code() const noexcept { return code_; }
  virtual uint32_t severity() const noexcept = 0;
  // Throws a fresh object of the most derived class with the same code.
  [[noreturn]] virtual void rethrow() const = 0;

 private:
  uint32_t code_;
};

// Not a failure: a clean early stop (a pipe node whose partner finished, the end of a walk).
class RkNoError : public RkError {
 public:
  using RkError::operator=;
  RkNoError() noexcept : RkError(0) {}
  explicit RkNoError(uint32_t code) noexcept : RkError(code) {}
  bool isNoError() const noexcept override { return true; }
  uint32_t severity() const noexcept override { return kSeverityNone; }
  [[noreturn]] void rethrow() const override;
};

// The operation went on or can be counted as done.
class RkWarning : public RkError {
 public:
  using RkError::operator=;
  explicit RkWarning(uint32_t code) noexcept : RkError(code) {}
  bool isWarning() const noexcept override { return true; }
  uint32_t severity() const noexcept override { return kSeverityWarning; }
  [[noreturn]] void rethrow() const override;
};

// The user can mend the cause and retry.
class RkCorrectableError : public RkError {
 public:
  using RkError::operator=;
  explicit RkCorrectableError(uint32_t code) noexcept : RkError(code) {}
  bool isCorrectable() const noexcept override { return true; }
  uint32_t severity() const noexcept override { return kSeverityCorrectable; }
  [[noreturn]] void rethrow() const override;
};

// This item failed; the caller may go on with the next one.
class RkSevereError : public RkError {
 public:
  using RkError::operator=;
  explicit RkSevereError(uint32_t code) noexcept : RkError(code) {}
  bool isSevere() const noexcept override { return true; }
  uint32_t severity() const noexcept override { return kSeveritySevere; }
  [[noreturn]] void rethrow() const override;
};

// The operation as a whole is over.
class RkFatalError : public RkError {
 public:
  using RkError::operator=;
  explicit RkFatalError(uint32_t code) noexcept : RkError(code) {}
  bool isFatal() const noexcept override { return true; }
  uint32_t severity() const noexcept override { return kSeverityFatal; }
  [[noreturn]] void rethrow() const override;
};

// Exists only so that an assertion site can turn a request into a true access fault; the
// handlers of this system never throw it.
class RkFaultRequest {};

// A failure as a plain value, for storing past a catch block and handing between threads.
class RkErrorInfo {
 public:
  RkErrorInfo() noexcept = default;
  RkErrorInfo(uint32_t code, uint32_t severity) noexcept : code_(code), severity_(severity) {}
  explicit RkErrorInfo(const RkError& e) noexcept : code_(e.code()), severity_(e.severity()) {}

  RkErrorInfo& operator=(const RkError& e) noexcept {
    code_ = e.code();
    severity_ = e.severity();
    return *this;
  }

  uint32_t code() const noexcept { return code_; }
  uint32_t severity() const noexcept { return severity_; }
  void setSeverity(uint32_t severity) noexcept { severity_ = severity; }
  void swap(RkErrorInfo& other) noexcept;

  // Raises the class that belongs to the severity. A severity that is not exactly 10, 20, 30 or
  // 40 raises RkNoError with code 0, whatever the stored code: it cannot name a failure class.
  [[noreturn]] void Throw() const;

  friend bool operator==(const RkErrorInfo&, const RkErrorInfo&) = default;

 private:
  uint32_t code_ = 0;
  uint32_t severity_ = 0;
};

// The two fatal handlers. Each writes its line to the (wide) standard output and ends the
// process with status 999, which a POSIX parent sees as 999 & 0xFF = 231. They never return and
// never throw, not even when memory has run out.
[[noreturn]] void RkAssertFailure(const char16_t* file, int line) noexcept;
[[noreturn]] void RkApiFailure(const char16_t* file, int line) noexcept;
// Writes through a null pointer so that a crash reporter sees an access fault at the site.
[[noreturn]] void RkFaultAtSite();

inline constexpr int kFatalExitStatus = 999;

}  // namespace RkLib

#define RK_WIDEN_(s) u##s
#define RK_WIDEN(s) RK_WIDEN_(s)

#define RK_FATAL_SITE_(handler)                                  \
  do {                                                           \
    try {                                                        \
      ::RkLib::handler(RK_WIDEN(__FILE__), __LINE__);            \
    } catch (const ::RkLib::RkFaultRequest&) {                   \
      ::RkLib::RkFaultAtSite();                                  \
    }                                                            \
  } while (0)

// An impossible state of our own. Bad input is never asserted: it is an RkError.
#define RK_ASSERT(cond)                                \
  do {                                                 \
    if (!(cond)) [[unlikely]]                          \
      RK_FATAL_SITE_(RkAssertFailure);                 \
  } while (0)

// An operating-system call that cannot fail has failed.
#define RK_API_CHECK(ok)                               \
  do {                                                 \
    if (!(ok)) [[unlikely]]                            \
      RK_FATAL_SITE_(RkApiFailure);                    \
  } while (0)
