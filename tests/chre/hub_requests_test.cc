// What is outstanding at the hub: answered by id, late, twice and never.
#include "chre/hub_requests.h"

#include "chre/hub_dump.h"
#include "support/test.h"

namespace android::hardware::bluetooth::hci::hub {
namespace {

using namespace ::bthal::test;

constexpr milliseconds kShort(1);
constexpr milliseconds kLong(60000);

TEST(HubRequestsTest, AReplyEndsItsOwnRequestOnce) {
  HubRequests requests;
  const uint32_t first = requests.Add("first", kLong, true);
  const uint32_t second = requests.Add("second", kLong, true);
  EXPECT_FALSE(requests.OnReply(second, 0));
  EXPECT_FALSE(requests.OnReply(first, 3));
  EXPECT_FALSE(requests.Await(second));
  const auto refusal = requests.Await(first);
  ASSERT_TRUE(refusal);
  EXPECT_STREQ(refusal->request, "first");
  EXPECT_EQ(refusal->kind, BqrErrorCode::kChreUsfValueTooBigError);
  EXPECT_FALSE(requests.OnReply(first, 3));
  EXPECT_FALSE(requests.OnReply(0, 3));
  EXPECT_EQ(requests.StrayReplies(), 2U);
}

TEST(HubRequestsTest, WhatIsNotWaitedForIsOverdueOnceAndItsRefusalTold) {
  HubRequests requests;
  const uint32_t late = requests.Add("late", kShort, false);
  const uint32_t refused = requests.Add("refused", kLong, false);
  std::optional<Refusal> overdue;
  ASSERT_TRUE(WaitFor([&] { return (overdue = requests.Overdue()).has_value(); }));
  EXPECT_STREQ(overdue->request, "late");
  EXPECT_FALSE(requests.Overdue());
  EXPECT_FALSE(requests.OnReply(late, 1));
  EXPECT_TRUE(requests.OnReply(refused, 1));
  EXPECT_FALSE(requests.HasUnawaited());
}

TEST(HubRequestsTest, WhileTheConnectionIsLostNoTimePasses) {
  HubRequests requests;
  const uint32_t id = requests.Add("request", kShort, true);
  const uint32_t answered = requests.Add("answered", kLong, true);
  requests.Add("not waited for", kShort, false);
  EXPECT_FALSE(requests.OnReply(answered, 0));
  requests.Suspend();
  std::future<std::optional<Refusal>> waiting = std::async(std::launch::async, [&] { return requests.Await(id); });
  EXPECT_EQ(waiting.wait_for(milliseconds(50)), std::future_status::timeout);
  EXPECT_FALSE(requests.Overdue());
  requests.FailAll(BqrErrorCode::kChreUsfServiceNotAvailableError);
  const auto refusal = waiting.get();
  ASSERT_TRUE(refusal);
  EXPECT_EQ(refusal->kind, BqrErrorCode::kChreUsfServiceNotAvailableError);
  EXPECT_FALSE(requests.Await(answered)) << "before the loss";
  EXPECT_FALSE(requests.HasUnawaited());
  requests.Forget(requests.Add("forgotten", kShort, false));
  EXPECT_FALSE(requests.HasUnawaited());

  // After a return it begins anew.
  constexpr milliseconds kPatience(20);
  const uint32_t again = requests.Add("again", kPatience, true);
  requests.Suspend();
  std::this_thread::sleep_for(kPatience);
  const auto back = steady_clock::now();
  requests.Resume();
  const auto late = requests.Await(again);
  EXPECT_GE(steady_clock::now() - back, kPatience);
  ASSERT_TRUE(late);
  EXPECT_EQ(late->kind, BqrErrorCode::kChreUsfOperationTimedOutError);
}

TEST(HubDumpTest, IsWholeWhenNothingIsMissingWhateverTheOrder) {
  HubDump dump;
  const Bytes event{0xFF, 0x02, 0x58, 0x14};
  EXPECT_FALSE(dump.Add({0, false, event}));
  bool complete = false;
  ASSERT_TRUE(dump.Begin());
  EXPECT_FALSE(dump.Begin());
  EXPECT_TRUE(dump.Add({1, true, event}));
  EXPECT_EQ(dump.Collect(kShort, &complete).size(), 1U);
  EXPECT_FALSE(complete);
  ASSERT_TRUE(dump.Begin());
  EXPECT_TRUE(dump.Add({1, true, event}));
  EXPECT_TRUE(dump.Add({0, false, event}));
  EXPECT_FALSE(dump.Add({4096, false, event}));
  EXPECT_EQ(dump.Collect(kLong, &complete).size(), 2U);
  EXPECT_TRUE(complete);
  ASSERT_TRUE(dump.Begin());
  auto collected = std::async(std::launch::async, [&] { return dump.Collect(kLong, &complete); });
  EXPECT_EQ(collected.wait_for(milliseconds(20)), std::future_status::timeout);
  EXPECT_TRUE(dump.Add({0, true, event}));
  EXPECT_EQ(collected.wait_for(kLong / 3), std::future_status::ready) << "waits for what has come";
}

}  // namespace
}  // namespace android::hardware::bluetooth::hci::hub
