#include "os/process_setup.h"

#include <log/log.h>
#include <sys/resource.h>
#include <termios.h>

#include "os/interrupt.h"
#include "support/child_process.h"
#include "support/pty.h"
#include "support/test.h"

namespace process_setup_test {

// With external linkage, as the functions are that a trace shall name.
__attribute__((noinline)) void FailOnPurpose(const std::string& why) { LOG(FATAL) << why; }

}  // namespace process_setup_test

namespace android::hardware::bluetooth::os {
namespace {

using namespace ::bthal::test;

class ProcessSetupRootTest : public ::testing::Test {
 protected:
  TempRoot root_;
};

TEST(ProcessSetupTest, FatalLogAbortsWithTheFunctionsNameInItsTrace) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(
      {
        SetUpProcess();
        process_setup_test::FailOnPurpose("the reason");
      },
      KilledBySignal(SIGABRT),
      AllOf(ContainsRegex(" F .*: the reason\n"),
            ContainsRegex("#0[0-9] .*\\(process_setup_test::FailOnPurpose\\(.*\\)\\+0x[0-9a-f]+\\)")));
  EXPECT_EXIT(
      {
        SetUpProcess();
        LOG_ALWAYS_FATAL("from the C interface");
      },
      KilledBySignal(SIGABRT), "from the C interface.*backtrace of thread");
}

TEST(ProcessSetupTest, LinesCarryTimeThreadSeverityAndTag) {
  setenv("BTHAL_LOG", "debug", 1);
  SetUpProcess();
  ::testing::internal::CaptureStderr();
  __android_log_print(ANDROID_LOG_DEBUG, "bthal.test", "seen");
  __android_log_print(ANDROID_LOG_VERBOSE, "bthal.test", "not seen");
  LOG(WARNING) << "first\nsecond";
  const std::string text = ::testing::internal::GetCapturedStderr();
  EXPECT_THAT(text, ContainsRegex("[0-9]{2}-[0-9]{2} [0-9]{2}:[0-9]{2}:[0-9]{2}\\.[0-9]{3} +[0-9]+ +" +
                                  std::to_string(gettid()) + " D bthal.test: seen\n"));
  EXPECT_THAT(text, ContainsRegex(" W [^\n]*: first\n[^\n]* W [^\n]*: second\n"));
  EXPECT_THAT(text, Not(HasSubstr("not seen")));
}

TEST(ProcessSetupTest, UnknownSeverityIsNamedAndInfoUsed) {
  setenv("BTHAL_LOG", "chatty", 1);
  ::testing::internal::CaptureStderr();
  SetUpProcess();
  LOG(INFO) << "informed";
  LOG(DEBUG) << "debugged";
  const std::string text = ::testing::internal::GetCapturedStderr();
  EXPECT_THAT(text,
              AllOf(HasSubstr("BTHAL_LOG=chatty is not one of verbose, debug, info, warning, error; using info\n"),
                    HasSubstr("informed"), Not(HasSubstr("debugged"))));
}

// A pager that waits, a terminal that is stopped.
TEST(ProcessSetupTest, WhoeverLogsDoesNotWaitForWhoeverReads) {
  constexpr int kLines = 2000;
  int ends[2];
  ASSERT_EQ(pipe(ends), 0);
  const Gate drained;
  const Gate logged;
  ChildProcess child([&] {
    dup2(ends[1], STDERR_FILENO);
    SetUpProcess();
    for (int i = 0; i < kLines; ++i) LOG(INFO) << std::string(100, 'x');
    logged.Open();
    drained.Pass();
    LOG(INFO) << "read again";
    LOG(INFO) << std::string(10000, 'y') << "whole";
    return 0;
  });
  close(ends[1]);
  logged.Pass();
  std::string text(size_t{1} << 16, '\0');
  text.resize(static_cast<size_t>(read(ends[0], text.data(), text.size())));
  const auto written = std::ranges::count(text, '\n');
  drained.Open();
  EXPECT_EQ(child.Wait(), 0);
  android::base::ReadFdToString(ends[0], &text);
  close(ends[0]);
  EXPECT_THAT(text, HasSubstr(std::to_string(kLines - written) + " lines were left out here: nothing read them.\n"));
  EXPECT_THAT(text, AllOf(HasSubstr(": read again\n"), HasSubstr("ywhole\n")));
}

// A terminal counts as writable as soon as it takes anything, and where it makes two characters of a line's end, not
// even that is true.
TEST(ProcessSetupTest, NorForWhoeverReadsATerminal) {
  for (const tcflag_t output : {0, OPOST | ONLCR}) {
    const Pty terminal;
    const Gate logged;
    const Gate seen;
    ChildProcess child([&] {
      const int end = open(terminal.host_path().c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC);
      termios attributes{};
      tcgetattr(end, &attributes);
      attributes.c_oflag = output;
      tcsetattr(end, TCSANOW, &attributes);
      dup2(end, STDERR_FILENO);
      SetUpProcess();
      for (size_t i = 0; i < 2000; ++i) LOG(INFO) << std::string(i % 200, 'x');
      logged.Open();
      pollfd enough{seen.reader(), POLLIN, 0};
      do {
        LOG(INFO) << "read again";
      } while (poll(&enough, 1, 1) == 0);
      return 0;
    });
    pollfd done{logged.reader(), POLLIN, 0};
    ASSERT_EQ(poll(&done, 1, 20000), 1) << "stuck in a write";
    std::string text;
    EXPECT_TRUE(WaitFor([&] {
      char some[4096];
      const ssize_t count = read(terminal.controller(), some, sizeof(some));
      text.append(some, static_cast<size_t>(std::max<ssize_t>(count, 0)));
      return text.find(": read again") != std::string::npos;
    }));
    seen.Open();
    EXPECT_EQ(child.Wait(), 0);
    EXPECT_THAT(text, ContainsRegex("\n[0-9]+ lines were left out here: nothing read them.\r?\n"));
  }
}

// As a supervisor may start it. What is opened first would otherwise take the log's place, and get its lines.
TEST_F(ProcessSetupRootTest, ClosedStandardDescriptorsAreNobodyElses) {
  const std::string path = root_.Below("/opened");
  ChildProcess child([&] {
    for (const int fd : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) close(fd);
    SetUpProcess();
    const int opened = open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    LOG(ERROR) << "a line";
    return opened > STDERR_FILENO ? 0 : 1;
  });
  EXPECT_EQ(child.Wait(), 0);
  EXPECT_EQ(root_.Read("/opened"), "");
}

// A log that may not grow any more is a full disk, and no reason to die.
TEST_F(ProcessSetupRootTest, ALimitOfAFilesSizeIsAnErrorOfItsWrite) {
  const std::string path = root_.Below("/log");
  ChildProcess child([&] {
    SetUpProcess();
    const rlimit limit{10, 10};
    setrlimit(RLIMIT_FSIZE, &limit);
    const unique_fd file(open(path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600));
    if (write(file.get(), "0123456789ABC", 13) != 10) return 1;
    return write(file.get(), "ABC", 3) == -1 && errno == EFBIG ? 0 : 2;
  });
  EXPECT_EQ(child.Wait(), 0);
}

// Whoever starts it may block the signals that end it, or that get a writer out of its system call.
TEST(ProcessSetupTest, InheritedBlocksHoldNoSignalBack) {
  ChildProcess child([] {
    sigset_t blocked;
    sigfillset(&blocked);
    sigprocmask(SIG_BLOCK, &blocked, nullptr);
    SetUpProcess();
    int ends[2];
    if (pipe(ends) != 0) return 1;
    std::atomic<bool> interrupted = false;
    std::thread reader([&] {
      char byte = 0;
      interrupted = read(ends[0], &byte, 1) < 0 && errno == EINTR;
      if (!interrupted) return;
      raise(SIGTERM);
    });
    const bool in_time = WaitFor([&] {
      InterruptThread(reader.native_handle());
      return interrupted.load();
    });
    if (in_time) reader.join();
    _exit(in_time ? 2 : 3);
  });
  EXPECT_EQ(child.Wait(), -SIGTERM);
}

}  // namespace
}  // namespace android::hardware::bluetooth::os
