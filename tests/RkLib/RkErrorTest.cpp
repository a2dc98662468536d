#include <gtest/gtest.h>

#include "RkTestUtil.h"

#include <fcntl.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <new>
#include <string>
#include <thread>

#include "RkError.h"

using namespace RkLib;

namespace {

void AssertFalseHere() { RK_ASSERT(false); }
constexpr int kAssertLine = __LINE__ - 1;
void ApiCheckFailsHere() { RK_API_CHECK(false); }
constexpr int kApiCheckLine = __LINE__ - 1;

std::string ExpectedLine(const std::string& what, int line) {
  return "^\nFATAL ERROR: " + what + " in Module: [^ ]*RkErrorTest\\.cpp Line number: " + std::to_string(line) +
         "\n$";
}

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool kSanitized = true;  // their runtimes reserve more address space than any cap allows
#else
constexpr bool kSanitized = false;
#endif

// Leaves the process no memory to spare: the address space is capped a little above what it uses
// now, and what remains below the cap is taken by ever smaller blocks. Ends the process with 3 if
// an allocation still succeeds afterwards, so that a pass cannot come from memory that was left.
void ExhaustMemory() {
  char statm[128] = {};
  const int fd = ::open("/proc/self/statm", O_RDONLY | O_CLOEXEC);
  if (fd < 0 || ::read(fd, statm, sizeof statm - 1) <= 0) _exit(3);
  ::close(fd);
  const rlim_t used = std::strtoull(statm, nullptr, 10) * static_cast<rlim_t>(::sysconf(_SC_PAGESIZE));
  const rlimit cap{used + (16u << 20), used + (16u << 20)};
  if (::setrlimit(RLIMIT_AS, &cap) != 0) _exit(3);
  // Through a volatile, so that the optimiser cannot drop allocations whose blocks go unused.
  static void* volatile block;
  for (size_t size = size_t{1} << 20; size >= 16; size /= 2) {
    do {
      block = std::malloc(size);
    } while (block != nullptr);
  }
  block = new (std::nothrow) char[64];
  if (block != nullptr) _exit(3);
}

// Catches whatever Throw()/rethrow() raise and reports class (by severity) and code.
template <typename F>
RkErrorInfo Caught(F&& raise) {
  try {
    raise();
  } catch (const RkError& e) {
    return RkErrorInfo(e);
  }
  ADD_FAILURE() << "nothing was thrown";
  return RkErrorInfo(0xDEAD, 0xDEAD);
}

struct ThrowCase {
  const char* name;
  uint32_t severity;
  uint32_t expectSeverity;
  uint32_t expectCode;
};

class RkErrorInfoThrow : public testing::TestWithParam<ThrowCase> {};

TEST_P(RkErrorInfoThrow, RaisesTheClassOfItsSeverity) {
  const ThrowCase& c = GetParam();
  RkErrorInfo info(7010, c.severity);
  RkErrorInfo got = Caught([&] { info.Throw(); });
  EXPECT_EQ(got.severity(), c.expectSeverity);
  EXPECT_EQ(got.code(), c.expectCode);
}

INSTANTIATE_TEST_SUITE_P(Severities, RkErrorInfoThrow,
                         testing::Values(ThrowCase{"warning", 10, 10, 7010}, ThrowCase{"correctable", 20, 20, 7010},
                                         ThrowCase{"severe", 30, 30, 7010}, ThrowCase{"fatal", 40, 40, 7010},
                                         // Anything else names no class: RkNoError with code 0.
                                         ThrowCase{"none", 0, 0, 0}, ThrowCase{"between", 25, 0, 0},
                                         ThrowCase{"above", 50, 0, 0}, ThrowCase{"huge", 0xFFFFFFFF, 0, 0}),
                         RkCaseName());

TEST(RkError, PredicatesAndSeveritiesRankTheClasses) {
  RkNoError none(3);
  RkWarning warning(3);
  RkCorrectableError correctable(3);
  RkSevereError severe(3);
  RkFatalError fatal(3);
  const RkError* all[] = {&none, &warning, &correctable, &severe, &fatal};
  uint32_t previous = 0;
  for (size_t i = 0; i < std::size(all); ++i) {
    const RkError& e = *all[i];
    int on = e.isNoError() + e.isWarning() + e.isCorrectable() + e.isSevere() + e.isFatal();
    EXPECT_EQ(on, 1) << "exactly one predicate per class, index " << i;
    EXPECT_EQ(e.code(), 3u);
    if (i > 0) {
      EXPECT_GT(e.severity(), previous);
    }
    previous = e.severity();
  }
  EXPECT_EQ(RkNoError().code(), 0u);
}

TEST(RkError, SameCodeAtTwoSeveritiesDiffersOnlyBySeverity) {
  RkSevereError severe(7010);
  RkFatalError fatal(7010);
  EXPECT_EQ(severe.code(), fatal.code());
  EXPECT_NE(severe.severity(), fatal.severity());
}

TEST(RkError, RethrowThroughBaseReferenceKeepsClassAndCode) {
  const RkError* samples[] = {new RkNoError(5), new RkWarning(6), new RkCorrectableError(7), new RkSevereError(8),
                              new RkFatalError(9)};
  for (const RkError* e : samples) {
    RkErrorInfo got = Caught([&] {
      try {
        e->rethrow();
      } catch (RkError& caught) {
        caught.rethrow();  // through a base reference, as handlers do
      }
    });
    EXPECT_EQ(got, RkErrorInfo(*e));
    delete e;
  }
}

TEST(RkError, AssignmentCopiesTheCodeOnly) {
  RkFatalError target(1);
  RkWarning source(42);
  RkError& base = target;
  base = source;
  EXPECT_EQ(target.code(), 42u);
  EXPECT_TRUE(target.isFatal());
  base = base;
  EXPECT_EQ(target.code(), 42u);
}

TEST(RkErrorInfo, StoresSwapsAndChangesSeverity) {
  RkErrorInfo a(RkSevereError(7006));
  EXPECT_EQ(a, RkErrorInfo(7006, 30));
  a.setSeverity(40);
  EXPECT_EQ(a, RkErrorInfo(7006, 40));
  RkErrorInfo b;
  EXPECT_EQ(b, RkErrorInfo(0, 0));
  a.swap(b);
  EXPECT_EQ(a, RkErrorInfo(0, 0));
  EXPECT_EQ(b, RkErrorInfo(7006, 40));
  b = RkWarning(12);
  EXPECT_EQ(b, RkErrorInfo(12, 10));
}

// The fatal handlers print to standard output; the death test reads standard error, so the
// child points one at the other first. 999 reaches a POSIX parent as 999 & 0xFF.
TEST(RkAssertDeathTest, PrintsItsLineAndEndsWith999) {
  EXPECT_EXIT(
      {
        dup2(2, 1);
        AssertFalseHere();
      },
      testing::ExitedWithCode(kFatalExitStatus & 0xFF), ExpectedLine("assert failure", kAssertLine));
}

TEST(RkAssertDeathTest, ApiFailureHasItsOwnText) {
  EXPECT_EXIT(
      {
        dup2(2, 1);
        ApiCheckFailsHere();
      },
      testing::ExitedWithCode(kFatalExitStatus & 0xFF), ExpectedLine("unexpected API Failure", kApiCheckLine));
}

// An assertion is most likely where memory has run out; the line and the status must still come.
TEST(RkAssertDeathTest, PrintsItsLineWithNoMemoryLeft) {
  if (kSanitized) GTEST_SKIP() << "an address-space cap cannot be set under a sanitizer";
  EXPECT_EXIT(
      {
        dup2(2, 1);
        ExhaustMemory();
        AssertFalseHere();
      },
      testing::ExitedWithCode(kFatalExitStatus & 0xFF), ExpectedLine("assert failure", kAssertLine));
}

TEST(RkAssertDeathTest, AssertionOnAWorkerThreadEndsTheProcess) {
  EXPECT_EXIT(
      {
        dup2(2, 1);
        std::thread([] { RK_ASSERT(false); }).join();
        std::fputs("survived\n", stderr);
      },
      testing::ExitedWithCode(kFatalExitStatus & 0xFF), "assert failure");
}

TEST(RkAssert, TrueConditionDoesNothing) {
  int evaluated = 0;
  RK_ASSERT(++evaluated == 1);
  EXPECT_EQ(evaluated, 1);  // evaluated exactly once
}

}  // namespace
