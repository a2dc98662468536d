#include <gtest/gtest.h>

#include <thread>
#include <vector>

#include "RkMsgQueue.h"
#include "RkProgress.h"

using namespace RkLib;

namespace {

TEST(RkMsgQueue, GetOnEmptyLeavesOutArgumentsAlone) {
  RkMsgQueue q;
  RkMsg msg(77, 5, int32_t(1));
  uint32_t tag = 9;
  EXPECT_FALSE(q.Get(msg, tag));
  EXPECT_EQ(msg.id(), 77u);
  EXPECT_EQ(msg.paramCount(), 1u);
  EXPECT_EQ(tag, 9u);
  q.Clear();  // nothing to do, and no harm
  EXPECT_EQ(q.Count(), 0u);
}

TEST(RkMsgQueue, PostedParametersComeBackEqualInOrder) {
  RkMsgQueue q;
  RkString name(u"photo.jpg");
  RkString second(u"second");
  q.PostError(50210, name, &second, nullptr, nullptr);
  q.Post(51400, 1, int32_t(-42), u"<%05d>");
  q.PostInfo(51800, uint64_t(5000000000ULL));
  q.Post(51200, 2, char16_t(u'\u00E9'));
  q.Post(51201, 2, int16_t(-7));
  q.Put(RkMsg(1, 2), 1234);
  EXPECT_EQ(q.Count(), 6u);

  RkMsg m;
  uint32_t tag = 99;
  ASSERT_TRUE(q.Get(m, tag));
  EXPECT_EQ(m.id(), 50210u);
  EXPECT_EQ(m.type(), kMsgTypeError);
  EXPECT_EQ(tag, 0u);
  ASSERT_EQ(m.paramTexts(), (std::vector<RkString>{name, second}));
  ASSERT_TRUE(q.Get(m, tag));
  EXPECT_EQ(m.paramTexts(), std::vector<RkString>{RkString(u"<-0042>")});
  ASSERT_TRUE(q.Get(m, tag));
  EXPECT_EQ(m.type(), kMsgTypeInfo);
  EXPECT_EQ(m.paramTexts(), std::vector<RkString>{RkString(u"5000000000")});
  ASSERT_TRUE(q.Get(m, tag));
  EXPECT_EQ(m.paramTexts(), std::vector<RkString>{RkString(u"\u00E9")});
  ASSERT_TRUE(q.Get(m, tag));
  EXPECT_EQ(m.paramTexts(), std::vector<RkString>{RkString(u"-7")});
  ASSERT_TRUE(q.Get(m, tag));
  EXPECT_EQ(tag, 1234u);
  EXPECT_FALSE(q.Get(m, tag));
}

TEST(RkMsg, CopiesAreDeepAndDefaultsAreThoseOfTheKinds) {
  RkMsg a;
  EXPECT_EQ(a.id(), 0xFFFFFFFFu);
  EXPECT_EQ(a.type(), 0u);
  RkMsg b(10, 3, int32_t(5));
  b.add(static_cast<const char16_t*>(nullptr));  // a null optional string is not added
  b.add(RkParamLongWithFormat(-3, nullptr));
  b.add(RkParamUnsignedShortWithFormat(65535, nullptr));
  b.add(RkParamUnsignedLongWithFormat(4000000000u, u"0x%08lX"));
  RkMsg c(b);
  b = RkMsg(11, 0);
  EXPECT_EQ(c.paramTexts(), (std::vector<RkString>{u"5", u"-3", u"65535", u"0xEE6B2800"}));
  RkMsg d;
  d = c;
  EXPECT_EQ(d.paramTexts(), c.paramTexts());
  EXPECT_EQ(d.id(), 10u);
}

TEST(RkThreadedMsgQueue, ManyProducersLoseNothing) {
  RkThreadedMsgQueue q;
  constexpr int kThreads = 4, kEach = 500;
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t)
    threads.emplace_back([&q, t] {
      for (int i = 0; i < kEach; ++i) q.Post(uint32_t(t), 0, int32_t(i));
    });
  std::vector<int> next(kThreads, 0);
  int got = 0;
  RkMsg m;
  uint32_t tag;
  while (got < kThreads * kEach) {
    if (!q.Get(m, tag)) continue;
    // Each producer's messages arrive in its own order.
    ASSERT_EQ(m.paramTexts()[0], RkString::Format(u"%d", next[m.id()]));
    ++next[m.id()];
    ++got;
  }
  for (auto& th : threads) th.join();
  EXPECT_EQ(q.LockedCount(), 0u);
}

struct ScaleCase {
  int64_t total;
  int64_t scale;
};

TEST(RkProgress, ScaleKeepsTheFigureWithin16Bits) {
  const ScaleCase cases[] = {
      {0, 10240},
      {10240LL * 32767, 10240},
      {10240LL * 32767 + 10240, 20480},
      {int64_t(1) << 40, int64_t(10240) << 12},
      {INT64_MAX, int64_t(10240) << 35},
  };
  RkProgress p;
  for (const auto& c : cases) {
    p.SetTotal(c.total);
    EXPECT_EQ(p.GetScale(), c.scale) << c.total;
    EXPECT_LE(p.GetTotalFigure(), 32767);
  }
  p.SetTotal(1 << 30);
  p.Add(1 << 29);
  EXPECT_EQ(p.GetFigure(), p.GetTotalFigure() / 2);
  EXPECT_EQ(p.GetItemDone(), -1);
  p.SetItemDone(5);
  p.Reset();
  EXPECT_EQ(p.GetDone(), 0);
  EXPECT_EQ(p.GetItemDone(), -1);
  EXPECT_EQ(p.GetScale(), 10240);
}

TEST(RkThreadedProgress, ConcurrentAddsAllCount) {
  RkThreadedProgress p;
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t)
    threads.emplace_back([&p] {
      for (int i = 0; i < 10000; ++i) p.Add(3);
    });
  for (auto& th : threads) th.join();
  EXPECT_EQ(p.GetDone(), 4 * 10000 * 3);
}

}  // namespace
