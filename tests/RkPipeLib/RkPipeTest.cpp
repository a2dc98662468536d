// The pipe under real threads: what arrives, and how a pipe ends whatever a node does.
#include <gtest/gtest.h>

#include <algorithm>
#include <boost/thread/thread_only.hpp>
#include <optional>
#include <random>

#include "RkCallBack.h"
#include "RkMemIn.h"
#include "RkMemOut.h"
#include "RkPipe.h"
#include "RkPipeErrorHandler.h"
#include "RkPipeTestUtil.h"

namespace RkPipeTest {
namespace {

using RkLib::RkError;
using RkPipeLib::RkDStream;
using RkPipeLib::RkPipe;

// Runs the pipe, with threads or on the calling thread, and returns its failure, or nothing when
// it returned normally.
std::optional<RkErrorInfo> RunPipe(RkPipe& pipe, RkPipeLib::RkUICallBack* callback = nullptr, bool inline_ = false) {
  try {
    EXPECT_TRUE(inline_ ? pipe.RunInline(callback) : pipe.Run(callback));
    return std::nullopt;
  } catch (const RkError& e) {
    return RkErrorInfo(e);
  }
}

// ---- What arrives.

struct CleanCase {
  const char* name;
  int links;
  int32_t bufferCount;
  uint64_t buffers;
};

class PipeCleanRun : public PipeTest, public testing::WithParamInterface<CleanCase> {};

TEST_P(PipeCleanRun, DeliversEveryByteInOrderOnOneThreadPerWorker) {
  const CleanCase& c = GetParam();
  const RkStreamSettings settings = SmallSettings(61, c.bufferCount);
  ScriptSource source(c.buffers, settings);
  std::vector<std::unique_ptr<ScriptLink>> links;
  for (int i = 0; i < c.links; ++i) links.push_back(std::make_unique<ScriptLink>(settings));

  // The target counts the threads while the workers are alive: one per source and link.
  struct CountingTarget : ScriptTarget {
    using ScriptTarget::ScriptTarget;
    void Run() override {
      threads = ThreadCount();
      ScriptTarget::Run();
    }
    int threads = 0;
  } target(settings);

  const int before = ThreadCount();
  RkPipe pipe;
  pipe.SetSource(&source);
  for (auto& link : links) pipe.AddLink(link.get());
  pipe.SetTarget(&target);
  EXPECT_EQ(RunPipe(pipe), std::nullopt);
  EXPECT_EQ(target.Bytes(), c.buffers * 61);
  EXPECT_EQ(target.Crc(), source.Crc());
  EXPECT_EQ(target.threads, before + c.links + 1);
}

INSTANTIATE_TEST_SUITE_P(Pipe, PipeCleanRun,
                         testing::Values(CleanCase{"NoLinks", 0, 2, 40}, CleanCase{"OneLink", 1, 2, 40},
                                         CleanCase{"ThreeLinks", 3, 2, 40},
                                         CleanCase{"TenBuffersAhead", 2, 10, 40},
                                         CleanCase{"EmptyInput", 2, 2, 0}),
                         [](const auto& row) { return std::string(row.param.name); });

TEST_F(PipeTest, NodesAreReusableAfterReset) {
  const RkStreamSettings settings = SmallSettings(16);
  const std::vector<uint8_t> first(100, 1), second(37, 2);
  RkPipeLib::RkMemIn source(first.data(), first.size(), nullptr, nullptr, settings);
  ScriptLink link(settings);
  for (const auto* data : {&first, &second}) {
    source.SetData(data->data(), data->size());
    source.OutputStream()->Reset();
    link.OutputStream()->Reset();
    RkPipeLib::RkMemOut target(nullptr, nullptr, RkPipeLib::RkMemOut::kNoLimit, settings);
    RkPipe pipe(&source, {&link}, &target);
    EXPECT_EQ(RunPipe(pipe), std::nullopt);
    EXPECT_EQ(target.Bytes(), *data);
  }
}

// ---- Without threads.

// Buffers of 16 bytes, two per stream: a pipe without threads holds one buffer of data and the end
// mark in each stream, so 16 bytes pass and 40 cannot.
struct InlineCase {
  const char* name;
  size_t bytes;
  std::optional<uint32_t> code;
};

class PipeInline : public PipeTest, public testing::WithParamInterface<InlineCase> {};

TEST_P(PipeInline, RunsOnTheCallingThreadOrFailsInsteadOfWaiting) {
  const InlineCase& c = GetParam();
  const RkStreamSettings settings = SmallSettings(16);
  std::vector<uint8_t> data(c.bytes);
  for (size_t i = 0; i < data.size(); ++i) data[i] = static_cast<uint8_t>(i * 7 + 1);
  RkPipeLib::RkMemIn source(data.data(), data.size(), nullptr, nullptr, settings);
  ScriptLink link(settings);
  RkPipeLib::RkMemOut target(nullptr, nullptr, RkPipeLib::RkMemOut::kNoLimit, settings);
  RkPipe pipe(&source, {&link}, &target);
  const int before = ThreadCount();
  const std::optional<RkErrorInfo> outcome = RunPipe(pipe, nullptr, true);
  EXPECT_EQ(ThreadCount(), before);
  EXPECT_EQ(outcome ? std::optional<uint32_t>(outcome->code()) : std::nullopt, c.code);
  if (c.code) return;
  EXPECT_EQ(target.Bytes(), data);
  // The same nodes then run with threads as before.
  source.OutputStream()->Reset();
  link.OutputStream()->Reset();
  RkPipeLib::RkMemOut again(nullptr, nullptr, RkPipeLib::RkMemOut::kNoLimit, settings);
  RkPipe threaded(&source, {&link}, &again);
  EXPECT_EQ(RunPipe(threaded), std::nullopt);
  EXPECT_EQ(again.Bytes(), data);
}

INSTANTIATE_TEST_SUITE_P(Pipe, PipeInline,
                         testing::Values(InlineCase{"Empty", 0, std::nullopt}, InlineCase{"OneBuffer", 16, std::nullopt},
                                         InlineCase{"MoreThanTheBuffers", 40, RkPipeLib::kPipeWouldWait}),
                         [](const auto& row) { return std::string(row.param.name); });

// ---- Ranking of failures. Higher over lower and the first of equals go through threads below.

struct RankCase {
  const char* name;
  std::vector<RkErrorInfo> reports;
  RkErrorInfo expected;
};

class PipeErrorHandlerRank : public testing::TestWithParam<RankCase> {};

TEST_P(PipeErrorHandlerRank, KeepsTheFirstOfTheHighestSeverity) {
  RkErrorInfo status;
  std::mutex lock;
  RkPipeLib::RkPipeErrorHandler handler(&status, &lock);
  for (const RkErrorInfo& report : GetParam().reports) handler.Report(report);
  EXPECT_EQ(status, GetParam().expected);
}

INSTANTIATE_TEST_SUITE_P(
    Pipe, PipeErrorHandlerRank,
    testing::Values(RankCase{"NoErrorChangesNothing", {{5, 0}}, {0, 0}},
                    RankCase{"WarningThenFatal", {{3, 10}, {4, 20}, {5, 40}, {6, 40}}, {5, 40}}),
    [](const auto& row) { return std::string(row.param.name); });

// Ordered failures under threads. The node that fails first fails on its own; the other fails
// when it learns of the first (the source from getFree, the target from take) and throws its own
// value instead, so that its report comes second.
class ReplacingSource : public RkPipeLib::RkSourceNode {
 public:
  ReplacingSource(const RkStreamSettings& settings, std::optional<RkErrorInfo> own,
                  std::optional<RkErrorInfo> reply)
      : RkSourceNode(nullptr, nullptr, settings), own_(own), reply_(reply) {}
  void Run() override {
    if (own_) own_->Throw();
    try {
      for (;;) {
        RkPipeBuffer* buffer = output_.getFree();
        buffer->setLength(1);
        output_.put(buffer);
      }
    } catch (const RkError&) {
      if (reply_) reply_->Throw();
      throw;
    }
  }

 private:
  std::optional<RkErrorInfo> own_, reply_;
};

class ReplacingTarget : public RkPipeLib::RkTargetNode {
 public:
  ReplacingTarget(const RkStreamSettings& settings, std::optional<RkErrorInfo> own,
                  std::optional<RkErrorInfo> reply)
      : RkTargetNode(nullptr, nullptr),
        spare_(new RkPipeBuffer(static_cast<uint64_t>(settings.pipeBufferSize))),
        own_(own),
        reply_(reply) {}
  ~ReplacingTarget() override { delete spare_; }
  void Run() override {
    if (own_) own_->Throw();
    try {
      while (TakeInto(spare_)) {
      }
    } catch (const RkError&) {
      if (reply_) reply_->Throw();
      throw;
    }
  }

 private:
  RkPipeBuffer* spare_;
  std::optional<RkErrorInfo> own_, reply_;
};

struct OrderCase {
  const char* name;
  bool sourceFirst;
  RkErrorInfo first;
  RkErrorInfo second;
  RkErrorInfo expected;
};

class PipeFailureOrder : public PipeTest, public testing::WithParamInterface<OrderCase> {};

TEST_P(PipeFailureOrder, HighestSeverityWinsAndFirstOfEqualsStays) {
  const OrderCase& c = GetParam();
  const RkStreamSettings settings = SmallSettings(8);
  const std::optional<RkErrorInfo> none;
  ReplacingSource source(settings, c.sourceFirst ? c.first : none, c.sourceFirst ? none : c.second);
  ReplacingTarget target(settings, c.sourceFirst ? none : c.first, c.sourceFirst ? c.second : none);
  RkPipe pipe(&source, {}, &target);
  const auto failure = RunPipe(pipe);
  ASSERT_TRUE(failure.has_value());
  EXPECT_EQ(*failure, c.expected);
}

INSTANTIATE_TEST_SUITE_P(
    Pipe, PipeFailureOrder,
    testing::Values(OrderCase{"SourceSevereThenTargetFatal", true, {101, 30}, {102, 40}, {102, 40}},
                    OrderCase{"SourceFatalThenTargetSevere", true, {101, 40}, {102, 30}, {101, 40}},
                    OrderCase{"TargetSevereThenSourceFatal", false, {101, 30}, {102, 40}, {102, 40}},
                    OrderCase{"TargetFatalThenSourceSevere", false, {101, 40}, {102, 30}, {101, 40}},
                    OrderCase{"SourceFirstOfEquals", true, {101, 30}, {102, 30}, {101, 30}},
                    OrderCase{"TargetFirstOfEquals", false, {101, 40}, {102, 40}, {101, 40}}),
    [](const auto& row) { return std::string(row.param.name); });

// ---- One failure, wherever it strikes.

struct FaultCase {
  const char* name;
  int node;  // 0 the source, 1 the link, 2 the target
  Fault fault;
  std::optional<RkErrorInfo> expected;
};

class PipeSingleFault : public PipeTest, public testing::WithParamInterface<FaultCase> {};

TEST_P(PipeSingleFault, EndsThePipeWithTheRankedOutcome) {
  const FaultCase& c = GetParam();
  const RkStreamSettings settings = SmallSettings(32);
  ScriptSource source(1000, settings, c.node == 0 ? c.fault : Fault{});
  ScriptLink link(settings, c.node == 1 ? c.fault : Fault{});
  ScriptTarget target(settings, c.node == 2 ? c.fault : Fault{});
  RkPipe pipe(&source, {&link}, &target);
  EXPECT_EQ(RunPipe(pipe), c.expected);
}

constexpr uint32_t kFatal = RkLib::kSeverityFatal;
constexpr uint32_t kSevere = RkLib::kSeveritySevere;

INSTANTIATE_TEST_SUITE_P(
    Pipe, PipeSingleFault,
    testing::Values(
        FaultCase{"SourceSevere", 0, Fault::Error(3, 1201, kSevere), RkErrorInfo(1201, kSevere)},
        FaultCase{"LinkWarning", 1, Fault::Error(3, 1202, RkLib::kSeverityWarning),
                  RkErrorInfo(1202, RkLib::kSeverityWarning)},
        FaultCase{"TargetFatal", 2, Fault::Error(3, 1203, kFatal), RkErrorInfo(1203, kFatal)},
        FaultCase{"StopOrderAloneNeverSurfaces", 0, Fault::Error(3, 7003, kFatal), std::nullopt},
        FaultCase{"LinkStopOrderNeverSurfaces", 1, Fault::Error(3, 7003, kFatal), std::nullopt},
        FaultCase{"NoErrorWithACodeEndsCleanly", 1, Fault::Error(3, 77, 0), std::nullopt},
        FaultCase{"LinkUnwindingWithoutEndingItsOutput", 1, Fault::Error(3, 0, 0), std::nullopt},
        FaultCase{"SourceUnwindingWithoutEndingItsOutput", 0, Fault::Error(3, 0, 0), std::nullopt},
        FaultCase{"LinkOutOfMemory", 1, {Fault::kBadAlloc, 2, {}}, RkErrorInfo(7001, kFatal)},
        FaultCase{"LinkThrowsNonRkError", 1, {Fault::kUnknown, 2, {}}, RkErrorInfo(7030, kFatal)},
        FaultCase{"SourceThrowsNonRkError", 0, {Fault::kUnknown, 0, {}}, RkErrorInfo(7030, kFatal)},
        FaultCase{"TargetThrowsNonRkError", 2, {Fault::kUnknown, 5, {}}, RkErrorInfo(7030, kFatal)},
        FaultCase{"TargetStopsEarly", 2, Fault::Stop(4), std::nullopt},
        FaultCase{"LinkStopsEarly", 1, Fault::Stop(4), std::nullopt},
        FaultCase{"SourceEndsShort", 0, Fault::Stop(4), std::nullopt}),
    [](const auto& row) { return std::string(row.param.name); });

// ---- Stops and ends.

TEST_F(PipeTest, EarlyStopEndsUpstreamNodesWithoutError) {
  const RkStreamSettings settings = SmallSettings(64);
  // Without the stop this source would run for hours.
  ScriptSource source(uint64_t{1} << 40, settings);
  ScriptLink link(settings);
  RkPipeLib::RkMemOut target(nullptr, nullptr, 1000, settings);
  RkPipe pipe(&source, {&link}, &target);
  EXPECT_EQ(RunPipe(pipe), std::nullopt);
  ASSERT_EQ(target.Bytes().size(), 1000u);
  for (size_t i = 0; i < 1000; ++i) ASSERT_EQ(target.Bytes()[i], PatternByte(i)) << i;
  EXPECT_TRUE(source.OutputStream()->consumerDone());
  EXPECT_FALSE(source.OutputStream()->consumerFailed());
}

// Takes both buffers of its stream, sending them on or holding them, then tells the test that it
// is about to wait for a third, which only a failure below it can end.
class BlockingSource : public RkPipeLib::RkSourceNode {
 public:
  BlockingSource(const RkStreamSettings& settings, Phase& blocking, bool hold = false)
      : RkSourceNode(nullptr, nullptr, settings), blocking_(blocking), hold_(hold) {}
  void Run() override {
    std::vector<RkPipeBuffer*> held;
    try {
      for (int i = 0; i < 2; ++i) {
        RkPipeBuffer* buffer = output_.getFree();
        buffer->setLength(1);
        if (hold_) {
          held.push_back(buffer);
        } else {
          output_.put(buffer);
        }
      }
      blocking_.Open();
      output_.returnFree(output_.getFree());
      ADD_FAILURE() << "a third buffer came";
    } catch (const RkError& e) {
      ended = RkErrorInfo(e);
      for (RkPipeBuffer* buffer : held) output_.returnFree(buffer);
      throw;
    }
  }
  RkErrorInfo ended;

 private:
  Phase& blocking_;
  bool hold_;
};

TEST_F(PipeTest, TargetFailureWhileSourceBlocksInGetFreeSurfacesTheTargetsCode) {
  const RkStreamSettings settings = SmallSettings(8);
  Phase blocking;
  BlockingSource source(settings, blocking);
  struct FailingTarget : RkPipeLib::RkTargetNode {
    explicit FailingTarget(Phase& blocked) : RkTargetNode(nullptr, nullptr), phase(blocked) {}
    void Run() override {
      ASSERT_TRUE(phase.Wait());
      throw RkLib::RkSevereError(4321);
    }
    Phase& phase;
  } target(blocking);
  RkPipe pipe(&source, {}, &target);
  EXPECT_EQ(RunPipe(pipe), RkErrorInfo(4321, kSevere));
  EXPECT_EQ(source.ended, RkErrorInfo(7003, kFatal));
}

TEST_F(PipeTest, ReadingPastTheEndRaises7006) {
  const RkStreamSettings settings = SmallSettings(8);
  ScriptSource source(3, settings);
  struct GreedyTarget : ScriptTarget {
    using ScriptTarget::ScriptTarget;
    void Run() override {
      ScriptTarget::Run();
      RkPipeBuffer spare(8);
      RkPipeBuffer* exchange = &spare;
      input_->take(exchange);
    }
  } target(settings);
  RkPipe pipe(&source, {}, &target);
  EXPECT_EQ(RunPipe(pipe), RkErrorInfo(7006, kFatal));
}

class Answers : public RkPipeLib::RkUICallBack {
 public:
  explicit Answers(int goOnFor) : goOnFor_(goOnFor) {}
  bool Poll(RkLib::RkMsgQueue*) override { return polls_++ < goOnFor_; }
  int polls() const { return polls_; }

 private:
  int goOnFor_;
  int polls_ = 0;
};

TEST_F(PipeTest, CancelThroughPollGives7002) {
  const RkStreamSettings settings = SmallSettings(8);
  ScriptSource source(uint64_t{1} << 40, settings);
  ScriptLink link(settings);
  RkPipeLib::RkMemOut target(nullptr, nullptr, RkPipeLib::RkMemOut::kNoLimit, settings);
  Answers answers(3);
  RkPipe pipe(&source, {&link}, &target);
  EXPECT_EQ(RunPipe(pipe, &answers), RkErrorInfo(7002, kFatal));
  EXPECT_EQ(answers.polls(), 4);
  EXPECT_EQ(target.Bytes().size(), 4u * 8);
}

// ---- Interruption.

TEST_F(PipeTest, InterruptedTargetGives7005AndTheSourceStops) {
  const RkStreamSettings settings = SmallSettings(8);
  Phase blocking;
  BlockingSource source(settings, blocking, /*hold=*/true);
  // The source sends nothing, so the target waits in take until its thread is interrupted.
  struct WaitingTarget : RkPipeLib::RkTargetNode {
    WaitingTarget() : RkTargetNode(nullptr, nullptr) {}
    void Run() override {
      RkPipeBuffer spare(8);
      RkPipeBuffer* exchange = &spare;
      input_->take(exchange);
      ADD_FAILURE() << "take returned without data";
    }
  } target;
  RkPipe pipe(&source, {}, &target);
  std::optional<RkErrorInfo> failure;
  boost::thread owner([&] { failure = RunPipe(pipe); });
  ASSERT_TRUE(blocking.Wait());
  owner.interrupt();
  owner.join();
  EXPECT_EQ(failure, RkErrorInfo(7005, kSevere));
  EXPECT_EQ(source.ended, RkErrorInfo(7003, kFatal));
}

TEST_F(PipeTest, TargetPhaseThatEscapesEndsTheWorkersByForce) {
  const RkStreamSettings settings = SmallSettings(8);
  Phase blocking;
  BlockingSource source(settings, blocking);
  // Refuses to start: the workers are running, and the one that waits must be woken.
  struct RefusingTarget : RkPipeLib::RkTargetNode {
    explicit RefusingTarget(Phase& blocked) : RkTargetNode(nullptr, nullptr), phase(blocked) {}
    void SetUICallBack(RkPipeLib::RkUICallBack*) override {
      EXPECT_TRUE(phase.Wait());
      throw std::runtime_error("no callback");
    }
    void Run() override { ADD_FAILURE() << "the target ran"; }
    Phase& phase;
  } target(blocking);
  RkPipe pipe(&source, {}, &target);
  EXPECT_EQ(RunPipe(pipe), RkErrorInfo(7005, kFatal));
  EXPECT_EQ(source.ended.code(), 0u) << "an interrupted node's failure is not an RkError";
  EXPECT_FALSE(source.OutputStream()->producerFailed()) << "7005 is not passed downstream";
}

// ---- Many short pipes with failures at random places.

// The outcome of one fault on its own; with two, the pipe may end by either one, and the one
// that strikes second may never be reached.
std::optional<RkErrorInfo> OutcomeOf(const Fault& fault) {
  if (fault.kind == Fault::kBadAlloc) return RkErrorInfo(7001, kFatal);
  if (fault.kind == Fault::kUnknown) return RkErrorInfo(7030, kFatal);
  if (fault.kind != Fault::kError || fault.error.severity() == 0 || fault.error.code() == 7003) return std::nullopt;
  return fault.error;
}

Fault RandomFault(std::mt19937& random, uint64_t buffers) {
  static const uint32_t kSeverities[] = {0, 10, 20, 30, 40};
  Fault fault;
  fault.kind = static_cast<Fault::Kind>(1 + random() % 4);
  fault.at = random() % (buffers + 1);
  fault.error = RkErrorInfo(random() % 4 == 0 ? 7003 : 1000 + random() % 50, kSeverities[random() % 5]);
  return fault;
}

TEST_F(PipeTest, ThousandShortPipesWithRandomFaultsNeverHang) {
  Watchdog watchdog(std::chrono::seconds(600), "the stress run of 1000 pipes");
  std::mt19937 random(20240611);
  for (int run = 0; run < 1000; ++run) {
    const RkStreamSettings settings =
        SmallSettings(static_cast<int32_t>(1 + random() % 40), static_cast<int32_t>(2 + random() % 3));
    const uint64_t buffers = random() % 12;
    const int linkCount = static_cast<int>(random() % 4);
    const int nodeCount = linkCount + 2;
    std::vector<Fault> faults(static_cast<size_t>(nodeCount));
    const int faultCount = static_cast<int>(random() % 3);
    for (int i = 0; i < faultCount; ++i) faults[random() % faults.size()] = RandomFault(random, buffers);

    ScriptSource source(buffers, settings, faults[0]);
    std::vector<std::unique_ptr<ScriptLink>> links;
    for (int i = 0; i < linkCount; ++i)
      links.push_back(std::make_unique<ScriptLink>(settings, faults[i + 1]));
    ScriptTarget target(settings, faults.back());
    RkPipe pipe;
    pipe.SetSource(&source);
    for (auto& link : links) pipe.AddLink(link.get());
    pipe.SetTarget(&target);
    const auto failure = RunPipe(pipe);

    // A fault that the data reaches decides the outcome; faults past the data never strike.
    std::vector<std::optional<RkErrorInfo>> possible{std::nullopt};
    for (const Fault& fault : faults)
      if (fault.kind != Fault::kNone) possible.push_back(OutcomeOf(fault));
    SCOPED_TRACE("run " + std::to_string(run));
    EXPECT_NE(std::find(possible.begin(), possible.end(), failure), possible.end());
    if (possible.size() == 1) {
      EXPECT_EQ(target.Crc(), source.Crc());
    }
    // A single fault within the data is reached for certain, so it alone decides.
    const auto fault =
        std::find_if(faults.begin(), faults.end(), [](const Fault& f) { return f.kind != Fault::kNone; });
    if (possible.size() == 2 && fault->at < buffers) {
      EXPECT_EQ(failure, OutcomeOf(*fault));
    }
    if (HasFailure()) break;
  }
}

}  // namespace
}  // namespace RkPipeTest
