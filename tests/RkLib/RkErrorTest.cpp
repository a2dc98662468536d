#include <gtest/gtest.h>

#include "RkTestUtil.h"

#include <unistd.h>

#include <cstdio>
#include <string>
#include <thread>

#include "RkError.h"

using namespace RkLib;

namespace {

void AssertFalseHere() { RK_ASSERT(false); }
constexpr int kAssertLine = __LINE__ - 1;

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
      testing::ExitedWithCode(kFatalExitStatus & 0xFF),
      "^\nFATAL ERROR: assert failure in Module: [^ ]*RkErrorTest\\.cpp Line number: " +
          std::to_string(kAssertLine) + "\n$");
}

TEST(RkAssertDeathTest, ApiFailureHasItsOwnText) {
  EXPECT_EXIT(
      {
        dup2(2, 1);
        RK_API_CHECK(false);
      },
      testing::ExitedWithCode(kFatalExitStatus & 0xFF),
      "FATAL ERROR: unexpected API Failure in Module: .*RkErrorTest\\.cpp Line number: [0-9]+");
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
