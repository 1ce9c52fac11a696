// The one way in which the service ends itself without a word.
#pragma once

namespace android::hardware::bluetooth::os {

// Sends SIGKILL to the own process; where that does not end it (process 1 of a PID namespace ignores its own SIGKILL),
// leaves with _exit(137). Returns only when a test has put another ending in its place. Any thread.
void KillSelf();

// Replaces the ending; nullptr restores the real one. For tests that look at what a caller does after its own end.
void SetKillSelfForTest(void (*ending)());

}  // namespace android::hardware::bluetooth::os
