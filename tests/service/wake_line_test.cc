// The low-power link of the real service, judged by the order of events at the board.
#include "support/board_session.h"
#include "support/test.h"

namespace bthal::test {
namespace {

const Bytes kReadAddress = {0x09, 0x10, 0};
constexpr size_t kSleeps = 3;

using WakeLineTest = BoardSessionTest;

TEST_F(WakeLineTest, TheLineIsUpBeforeEveryByteAndTheLockIsHeldExactlyWhileItIs) {
  StartBoard(SmallBoard());
  ASSERT_NO_FATAL_FAILURE(OpenSession());
  for (size_t sleep = 1; sleep <= kSleeps; ++sleep) {
    for (int i = 0; i < 5; ++i) ASSERT_TRUE(Exchange(kReadAddress));
    ASSERT_TRUE(WaitFor([&] { return Count(*board_, WireEvent::kWakeLine, 0) >= sleep; }));
  }
  EXPECT_THAT(ReportOf(*hal_), ContainsRegex("Transmissions in the link's awake periods: [1-9][0-9]*; the last from "
                                             "[^:]+:.* ms, [1-9][0-9]* transmissions\n"));
  ASSERT_TRUE(Exchange(kReadAddress));

  bool up = false;
  bool slept = false;
  bool locked = false;
  for (const JournalEntry& entry : board_->Journal()) {
    if (entry.event == WireEvent::kLostBytes || entry.event == WireEvent::kProtocolError) ADD_FAILURE() << entry.text;
    if (entry.event == WireEvent::kWakeLock) {
      EXPECT_TRUE(!slept || !locked) << "not released while the line was low";
      locked = true;
    }
    if (entry.event == WireEvent::kWakeUnlock) {
      EXPECT_TRUE(!slept || !up) << "released while the line was up";
      locked = false;
    }
    if (entry.event == WireEvent::kWakeLine) {
      up = entry.value == 1;
      EXPECT_TRUE(!slept || !up || locked) << "raised without the lock";
      slept = slept || !up;
    }
    EXPECT_TRUE(entry.event != WireEvent::kReceived || !slept || (up && locked)) << "a byte came to a sleeping link";
  }
}

}  // namespace
}  // namespace bthal::test
