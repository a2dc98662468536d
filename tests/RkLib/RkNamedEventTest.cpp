#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <thread>
#include <vector>

#include "RkNamedEvent.h"

using namespace RkLib;

namespace {

RkString U(const char* utf8) { return RkString::FromUtf8(utf8); }

// Far above any scheduling delay: reaching it means a waiter was never released.
constexpr uint32_t kHangGuardMs = 10000;

TEST(RkNamedEvent, NamesLiveWhileAHandleDoes) {
  RkEvent first = RkEvent::Create(U("RkTest.Lifetime"), true, false);
  EXPECT_FALSE(first.AlreadyExisted());
  RkEvent second = RkEvent::Create(U("RkTest.Lifetime"), false, true);
  EXPECT_TRUE(second.AlreadyExisted());
  EXPECT_FALSE(second.IsSet()) << "an existing event keeps its own state";
  first.Set();
  EXPECT_TRUE(second.IsSet());
  EXPECT_TRUE(second.Wait(0));
  EXPECT_TRUE(first.IsSet()) << "an existing event keeps its own reset mode";

  std::optional<RkEvent> opened = RkEvent::Open(U("RkTest.Lifetime"));
  ASSERT_TRUE(opened);
  EXPECT_FALSE(opened->AlreadyExisted());
  EXPECT_EQ(opened->Name(), U("RkTest.Lifetime"));
  EXPECT_FALSE(RkEvent::Open(U("rktest.lifetime"))) << "names are case-sensitive";

  first.Close();
  second.Close();
  EXPECT_TRUE(RkEvent::Open(U("RkTest.Lifetime")));
  opened.reset();
  EXPECT_FALSE(RkEvent::Open(U("RkTest.Lifetime")));

  RkEvent again = RkEvent::Create(U("RkTest.Lifetime"), true, false);
  EXPECT_FALSE(again.AlreadyExisted());
  EXPECT_FALSE(again.IsSet());
}

TEST(RkNamedEvent, UnnamedEventsAreDistinct) {
  RkEvent a = RkEvent::Create(RkString(), true, false);
  RkEvent b = RkEvent::Create(RkString(), true, false);
  EXPECT_FALSE(b.AlreadyExisted());
  a.Set();
  EXPECT_FALSE(b.IsSet());
  EXPECT_FALSE(RkEvent::Open(RkString()));
  RkEvent copy = a;
  EXPECT_TRUE(copy.IsSet());
}

TEST(RkNamedEvent, AutoResetTakesOneSignal) {
  RkEvent e = RkEvent::Create(RkString(), false, true);
  EXPECT_TRUE(e.IsSet());
  EXPECT_TRUE(e.IsSet()) << "looking does not release";
  EXPECT_TRUE(e.Wait(0));
  EXPECT_FALSE(e.IsSet());
  EXPECT_FALSE(e.Wait(0));
  e.Set();
  e.Set();
  EXPECT_TRUE(e.Wait(0));
  EXPECT_FALSE(e.Wait(0)) << "two Sets without a wait between are one";
}

TEST(RkNamedEvent, ManualResetReleasesEveryWaiter) {
  RkEvent gate = RkEvent::Create(RkString(), true, false);
  constexpr int kWaiters = 4;
  std::atomic<int> released{0};
  std::vector<std::thread> threads;
  for (int i = 0; i < kWaiters; ++i) {
    threads.emplace_back([&] {
      if (gate.Wait(RkEvent::kInfinite)) ++released;
    });
  }
  gate.Set();
  for (std::thread& t : threads) t.join();
  EXPECT_EQ(released.load(), kWaiters);
  EXPECT_TRUE(gate.IsSet());
  gate.Reset();
  EXPECT_FALSE(gate.Wait(0));
}

TEST(RkNamedEvent, AutoResetReleasesOneWaiterPerSet) {
  RkEvent turn = RkEvent::Create(U("RkTest.Turn"), false, false);
  RkEvent done = RkEvent::Create(RkString(), false, false);
  constexpr int kWaiters = 3;
  std::atomic<int> released{0};
  std::vector<std::thread> threads;
  for (int i = 0; i < kWaiters; ++i) {
    threads.emplace_back([&] {
      std::optional<RkEvent> mine = RkEvent::Open(U("RkTest.Turn"));
      ASSERT_TRUE(mine);
      ASSERT_TRUE(mine->Wait(kHangGuardMs));
      ++released;
      done.Set();
    });
  }
  for (int phase = 1; phase <= kWaiters; ++phase) {
    turn.Set();
    ASSERT_TRUE(done.Wait(kHangGuardMs));
    EXPECT_EQ(released.load(), phase);
    EXPECT_FALSE(turn.IsSet()) << "the release resets the event";
  }
  for (std::thread& t : threads) t.join();
  EXPECT_EQ(released.load(), kWaiters);
}

TEST(RkNamedEvent, TimeOutsReturnFalse) {
  RkEvent e = RkEvent::Create(RkString(), true, false);
  EXPECT_FALSE(e.Wait(0));
  auto start = std::chrono::steady_clock::now();
  EXPECT_FALSE(e.Wait(30));
  auto waited = std::chrono::steady_clock::now() - start;
  EXPECT_GE(waited, std::chrono::milliseconds(30));
  EXPECT_LT(waited, std::chrono::milliseconds(kHangGuardMs));
  RkEvent others[] = {e, RkEvent::Create(RkString(), false, false)};
  EXPECT_EQ(RkEvent::WaitAny(others, 20), -1);
  EXPECT_EQ(RkEvent::WaitAny({}, RkEvent::kInfinite), -1);
}

TEST(RkNamedEvent, WaitAnyTakesTheLowestSignalled) {
  RkEvent events[] = {RkEvent::Create(RkString(), false, false), RkEvent::Create(RkString(), false, true),
                      RkEvent::Create(RkString(), false, true), RkEvent::Create(RkString(), true, true)};
  EXPECT_EQ(RkEvent::WaitAny(events, 0), 1);
  EXPECT_TRUE(events[2].IsSet()) << "only the chosen event is released";
  EXPECT_EQ(RkEvent::WaitAny(events, 0), 2);
  EXPECT_EQ(RkEvent::WaitAny(events, 0), 3);
  EXPECT_EQ(RkEvent::WaitAny(events, 0), 3) << "a manual-reset event stays signalled";
}

TEST(RkNamedEvent, WaitAnyWakesForASetFromAnotherThread) {
  RkEvent events[] = {RkEvent::Create(RkString(), false, false), RkEvent::Create(RkString(), false, false)};
  std::atomic<int> result{-2};
  std::thread waiter([&] { result = RkEvent::WaitAny(events, kHangGuardMs); });
  RkEvent second = events[1];
  second.Set();
  waiter.join();
  EXPECT_EQ(result.load(), 1);
  EXPECT_FALSE(events[1].IsSet());
}

TEST(RkNamedEvent, CreateAndCloseRaceKeepsLiveNames) {
  constexpr int kThreads = 4, kRounds = 2000;
  std::atomic<int> failures{0};
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([&] {
      for (int i = 0; i < kRounds; ++i) {
        RkEvent e = RkEvent::Create(U("RkTest.Churn"), true, false);
        // While this thread holds a handle the name must resolve, whatever the others do.
        if (!RkEvent::Open(U("RkTest.Churn"))) ++failures;
        e.Set();
      }
    });
  }
  for (std::thread& t : threads) t.join();
  EXPECT_EQ(failures.load(), 0);
  EXPECT_FALSE(RkEvent::Open(U("RkTest.Churn")));
}

}  // namespace
