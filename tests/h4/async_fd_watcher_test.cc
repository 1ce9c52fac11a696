#include "h4/async_fd_watcher.h"

#include <sys/resource.h>

#include "support/test.h"

namespace android::hardware::bluetooth::async {
namespace {

using namespace ::bthal::test;

using namespace std::chrono_literals;

struct Pipe {
  Pipe() { CHECK(::android::base::Pipe(&read_end, &write_end, O_CLOEXEC | O_NONBLOCK)); }
  void Write() const { ASSERT_EQ(write(write_end.get(), "x", 1), 1); }
  int fd() const { return read_end.get(); }

  unique_fd read_end;
  unique_fd write_end;
};

void Take(int fd) {
  char byte;
  (void)!read(fd, &byte, 1);
}

// Stops at the end of its scope, so declared behind what its callbacks use.
class Watcher : public AsyncFdWatcher {
 public:
  ~Watcher() { StopWatchingFileDescriptors(); }
};

using AsyncFdWatcherTest = LoggedTest;

TEST_F(AsyncFdWatcherTest, CallsTheLowerDescriptorFirst) {
  Pipe gate;
  Pipe pipes[2];
  std::promise<void> open;
  std::mutex mutex;
  std::vector<int> called;
  const auto note = [&](int fd) {
    Take(fd);
    const std::lock_guard lock(mutex);
    called.push_back(fd);
  };
  Watcher watcher;
  watcher.WatchFdForNonBlockingReads(gate.fd(), [&, opened = open.get_future().share()](int fd) {
    opened.wait();
    Take(fd);
  });
  gate.Write();
  // While the thread is held up, both become readable, the higher one first.
  for (Pipe* pipe : {&pipes[1], &pipes[0]}) {
    ASSERT_EQ(watcher.WatchFdForNonBlockingReads(pipe->fd(), note), 0);
    pipe->Write();
  }
  open.set_value();
  ASSERT_TRUE(WaitFor([&] { return (std::lock_guard(mutex), called.size() == 2); }));
  EXPECT_THAT(called, ElementsAre(std::min(pipes[0].fd(), pipes[1].fd()), std::max(pipes[0].fd(), pipes[1].fd())));
}

TEST_F(AsyncFdWatcherTest, WatchingAgainReplacesTheCallback) {
  Pipe pipe;
  std::atomic<int> first = 0;
  std::atomic<int> second = 0;
  Watcher watcher;
  watcher.WatchFdForNonBlockingReads(pipe.fd(), [&](int fd) { Take(fd), ++first; });
  watcher.WatchFdForNonBlockingReads(pipe.fd(), [&](int fd) { Take(fd), ++second; });
  pipe.Write();
  ASSERT_TRUE(WaitFor([&] { return second == 1; }));
  EXPECT_EQ(first, 0);
}

TEST_F(AsyncFdWatcherTest, RefusesDescriptorsThatSelectCannotTake) {
  Watcher watcher;
  EXPECT_EQ(watcher.WatchFdForNonBlockingReads(-1, [](int) {}), -1);
  EXPECT_EQ(watcher.WatchFdForNonBlockingReads(1024, [](int) {}), -1);
}

TEST_F(AsyncFdWatcherTest, EveryStopReturnsAfterTheEnd) {
  Pipe pipe;
  pipe.Write();
  for (int round = 0; round < 20; ++round) {
    std::promise<void> waiting;
    std::atomic<bool> ended = false;
    Watcher watcher;
    watcher.WatchFdForNonBlockingReads(pipe.fd(), [&](int) {
      waiting.set_value();
      AsyncFdWatcher::WaitOnWatcherThread(1h);
      ended = true;
    });
    waiting.get_future().wait();
    std::vector<std::thread> stoppers;
    for (int i = 0; i < 3; ++i) {
      stoppers.emplace_back([&] {
        watcher.StopWatchingFileDescriptors();
        EXPECT_TRUE(ended);
      });
    }
    for (auto& stopper : stoppers) stopper.join();
    watcher.StopWatchingFileDescriptors();
  }
}

TEST_F(AsyncFdWatcherTest, StopFromInsideEndsTheRunAndALaterStartIsANewOne) {
  Pipe pipe;
  std::atomic<int> calls = 0;
  Watcher watcher;
  // The first thread of a process may bring others with it (a sanitizer's, say), which are not meant here.
  watcher.WatchFdForNonBlockingReads(pipe.fd(), [](int) {});
  watcher.StopWatchingFileDescriptors();
  const size_t threads = CountEntries("/proc/self/task");
  const size_t descriptors = CountEntries("/proc/self/fd");
  for (int round = 0; round < 20; ++round) {
    watcher.WatchFdForNonBlockingReads(pipe.fd(), [&](int) {  // leaves the byte: would be called again and again
      watcher.StopWatchingFileDescriptors();
      ++calls;
    });
    pipe.Write();
    ASSERT_TRUE(WaitFor([&] { return calls == round + 1; }));
    if (round % 2 == 0) watcher.StopWatchingFileDescriptors();
    ASSERT_TRUE(WaitFor([&] { return CountEntries("/proc/self/task") == threads; }));
    EXPECT_EQ(calls, round + 1);
    EXPECT_EQ(CountEntries("/proc/self/fd"), descriptors);
    Take(pipe.fd());
  }
}

TEST_F(AsyncFdWatcherTest, ANewRunDoesNotWaitForTheCallbackThatStoppedTheOldOne) {
  Pipe first;
  Pipe second;
  std::promise<void> stopped;
  std::promise<void> leave;
  std::atomic<bool> left = false;
  std::atomic<int> heard = 0;
  Watcher watcher;
  watcher.WatchFdForNonBlockingReads(first.fd(), [&](int) {
    watcher.StopWatchingFileDescriptors();
    stopped.set_value();
    leave.get_future().wait();
    left = true;
  });
  first.Write();
  stopped.get_future().wait();
  ASSERT_EQ(watcher.WatchFdForNonBlockingReads(second.fd(), [&](int fd) { Take(fd), ++heard; }), 0);
  second.Write();
  EXPECT_TRUE(WaitFor([&] { return heard == 1; }));
  watcher.StopWatchingFileDescriptors();
  leave.set_value();
  EXPECT_TRUE(WaitFor([&] { return left.load(); }));
}

TEST_F(AsyncFdWatcherTest, UnwatchingWaitsForTheCallbackEvenOfAnEverReadableDescriptor) {
  Pipe pipe;
  pipe.Write();
  std::atomic<bool> running = false;
  std::atomic<int> calls = 0;
  std::atomic<int> heard = 0;
  Pipe other;
  Watcher watcher;
  for (int round = 0; round < 20; ++round) {
    watcher.WatchFdForNonBlockingReads(pipe.fd(), [&](int) {
      running = true;
      ++calls;
      running = false;
    });
    WaitFor([&, before = calls.load()] { return calls > before; });
    watcher.StopWatchingFd(pipe.fd());
    const int calls_before = calls;
    EXPECT_FALSE(running);
    // The thread goes on serving others meanwhile.
    watcher.WatchFdForNonBlockingReads(other.fd(), [&](int fd) { Take(fd), ++heard; });
    other.Write();
    ASSERT_TRUE(WaitFor([&] { return heard == round + 1; }));
    EXPECT_EQ(calls, calls_before);
  }

  std::promise<void> entered, leave;
  std::atomic<bool> left = false;
  watcher.WatchFdForNonBlockingReads(pipe.fd(),
                                     [&](int) { entered.set_value(), leave.get_future().wait(), left = true; });
  entered.get_future().wait();
  auto unwatched = std::async(std::launch::async, [&] { return watcher.StopWatchingFd(pipe.fd()), left.load(); });
  unwatched.wait_for(20ms);  // whoever does not wait has returned by then
  leave.set_value();
  EXPECT_TRUE(unwatched.get());
}

// As when a port is closed and opened again: the number is the same, and the first line had bytes to read.
TEST_F(AsyncFdWatcherTest, AReusedNumberIsHeardAndNotCalledForItsPredecessor) {
  std::atomic<bool> was_empty = false;
  std::atomic<int> heard = 0;
  Watcher watcher;
  for (int round = 0; round < 50; ++round) {
    auto old_line = std::make_unique<Pipe>();
    const int number = old_line->fd();
    watcher.WatchFdForNonBlockingReads(number, [](int) {});
    old_line->Write();
    watcher.StopWatchingFd(number);
    Pipe new_line;
    ASSERT_EQ(dup3(new_line.fd(), number, O_CLOEXEC), number);
    const int heard_before = heard;
    watcher.WatchFdForNonBlockingReads(number, [&](int fd) {
      char byte;
      if (read(fd, &byte, 1) != 1) was_empty = true;
      ++heard;
    });
    new_line.Write();
    ASSERT_TRUE(WaitFor([&] { return heard > heard_before; }));
    watcher.StopWatchingFd(number);
  }
  EXPECT_FALSE(was_empty);
}

TEST_F(AsyncFdWatcherTest, AWaitInACallbackEndsWithItsDescriptorOrItsTime) {
  Pipe pipe;
  pipe.Write();
  std::promise<void> waiting;
  std::promise<bool> passed;
  std::promise<bool> whole;
  Watcher watcher;
  watcher.WatchFdForNonBlockingReads(pipe.fd(), [&](int fd) {
    Take(fd);
    waiting.set_value();
    passed.set_value(AsyncFdWatcher::WaitOnWatcherThread(1h));
  });
  waiting.get_future().wait();
  watcher.StopWatchingFd(pipe.fd());
  EXPECT_FALSE(passed.get_future().get());

  watcher.WatchFdForNonBlockingReads(pipe.fd(), [&](int fd) {
    Take(fd);
    whole.set_value(AsyncFdWatcher::WaitOnWatcherThread(1ms));
  });
  pipe.Write();
  EXPECT_TRUE(whole.get_future().get());

  const auto start = steady_clock::now();
  EXPECT_TRUE(AsyncFdWatcher::WaitOnWatcherThread(20ms));
  EXPECT_GE(steady_clock::now() - start, 20ms) << "elsewhere it sleeps";
}

TEST_F(AsyncFdWatcherTest, TimeoutsAreForOneRun) {
  Pipe pipe;
  std::atomic<int> timeouts = 0;
  std::atomic<bool> heard = false;
  Watcher watcher;
  watcher.ConfigureTimeout(1ms, [&] { ++timeouts; });
  watcher.WatchFdForNonBlockingReads(pipe.fd(), [](int) {});
  ASSERT_TRUE(WaitFor([&] { return timeouts > 2; }));
  watcher.StopWatchingFileDescriptors();
  const int before = timeouts;
  watcher.WatchFdForNonBlockingReads(pipe.fd(), [&](int fd) {
    Take(fd);
    AsyncFdWatcher::WaitOnWatcherThread(5ms);
    heard = true;
  });
  pipe.Write();
  ASSERT_TRUE(WaitFor([&] { return heard.load(); }));
  EXPECT_EQ(timeouts, before);
}

TEST_F(AsyncFdWatcherTest, AFailedStartCountsAsRunningUntilItIsStopped) {
  Pipe pipe;
  pipe.Write();
  // With all lower descriptors taken, the wake-up pipe is one that select cannot take.
  rlimit limit{};
  ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &limit), 0);
  const rlimit more{.rlim_cur = std::min<rlim_t>(limit.rlim_max, 2 * FD_SETSIZE), .rlim_max = limit.rlim_max};
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &more), 0);
  std::vector<unique_fd> taken;
  do {
    taken.emplace_back(fcntl(pipe.fd(), F_DUPFD_CLOEXEC, 0));
    ASSERT_GE(taken.back().get(), 0);
  } while (taken.back().get() < FD_SETSIZE);
  std::atomic<int> calls = 0;
  Watcher watcher;
  const auto count = [&](int fd) { Take(fd), ++calls; };
  const int without_pipe = watcher.WatchFdForNonBlockingReads(pipe.fd(), count);
  taken.clear();
  EXPECT_EQ(without_pipe, -1);
  EXPECT_EQ(watcher.WatchFdForNonBlockingReads(pipe.fd(), count), 0);
  watcher.StopWatchingFileDescriptors();
  EXPECT_EQ(calls, 0);
  EXPECT_EQ(watcher.WatchFdForNonBlockingReads(pipe.fd(), count), 0);
  EXPECT_TRUE(WaitFor([&] { return calls == 1; }));
}

// Starts, stops and changes of watches from everywhere at once: nothing is called after its unwatching, nothing hangs.
TEST_F(AsyncFdWatcherTest, StartsAndStopsFromEverywhere) {
  constexpr int kRounds = 100;
  Watcher watcher;
  std::vector<std::thread> users;
  for (int user = 0; user < 4; ++user) {
    users.emplace_back([&, user] {
      Pipe pipe;
      pipe.Write();
      for (int round = 0; round < kRounds; ++round) {
        watcher.WatchFdForNonBlockingReads(pipe.fd(), [&, user](int) {
          if (user == 0) watcher.StopWatchingFileDescriptors();
          if (user == 1) AsyncFdWatcher::WaitOnWatcherThread(1h);
        });
        if (user == 2) watcher.StopWatchingFileDescriptors();
        watcher.StopWatchingFd(pipe.fd());
      }
      watcher.StopWatchingFileDescriptors();
    });
  }
  for (auto& user : users) user.join();
}

}  // namespace
}  // namespace android::hardware::bluetooth::async
