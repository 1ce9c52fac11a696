#include "os/process_setup.h"

#ifdef __ANDROID__

namespace android::hardware::bluetooth::os {

void SetUpProcess() {}
void EndUnlessOnlyService() {}

}  // namespace android::hardware::bluetooth::os

#else

#include <android-base/logging.h>
#include <cxxabi.h>
#include <dlfcn.h>
#include <errno.h>
#include <execinfo.h>
#include <fcntl.h>
#include <host/device_root.h>
#include <host/role.h>
#include <limits.h>
#include <paths.h>
#include <poll.h>
#include <signal.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string>
#include <string_view>
#include <thread>

#include <android-base/file.h>
#include <android-base/stringprintf.h>

namespace android::hardware::bluetooth::os {
namespace {

using ::android::base::LogSeverity;

constexpr char kLogVariable[] = "BTHAL_LOG";
constexpr size_t kMaxFrames = 64;

struct SeverityName {
  std::string_view name;
  LogSeverity severity;
};
constexpr SeverityName kSeverityNames[] = {{"verbose", ::android::base::VERBOSE},
                                           {"debug", ::android::base::DEBUG},
                                           {"info", ::android::base::INFO},
                                           {"warning", ::android::base::WARNING},
                                           {"error", ::android::base::ERROR}};

std::string Now() {
  timespec now{};
  clock_gettime(CLOCK_REALTIME, &now);
  tm local{};
  localtime_r(&now.tv_sec, &local);
  return ::android::base::StringPrintf("%02d-%02d %02d:%02d:%02d.%03ld", local.tm_mon + 1, local.tm_mday, local.tm_hour,
                                       local.tm_min, local.tm_sec, now.tv_nsec / 1000000);
}

// A pager that waits, or a terminal that is stopped, must not stop the service: stderr is waited for once, and from
// then on gets what it takes. The lines that it did not take are counted.
class StandardError {
 public:
  // A terminal that takes anything is writable, and a blocking write of more than it takes waits for its reader. Whose
  // descriptor it is keeps its flags: it is opened anew.
  static void ReopenTerminal() {
    if (isatty(STDERR_FILENO) == 0) return;
    const int anew = TEMP_FAILURE_RETRY(open("/proc/self/fd/2", O_WRONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
    if (anew < 0) return;
    dup2(anew, STDERR_FILENO);
    close(anew);
  }

  // One write for each line, so that lines of several threads and processes do not mix; beyond what a pipe takes whole
  // or not at all, or a terminal has room for, several.
  static void Write(std::string_view line) {
    const uint64_t left_out = left_out_.exchange(0);
    const std::string note = Note(left_out);
    const std::string text = note + std::string(line);
    const size_t given = GiveAll(text);
    const bool noted = given >= note.size();
    if (noted) torn_ = false;
    if (given == text.size()) return;
    left_out_ += noted ? 1 : left_out + 1;
    if (given > 0) torn_ = true;
  }

 private:
  static constexpr std::chrono::milliseconds kPatience{1000};
  static constexpr std::chrono::milliseconds kLookAgain{1};
  static constexpr size_t kPiece = PIPE_BUF;

  static std::string Note(uint64_t left_out) {
    if (left_out == 0) return {};
    return (torn_ ? "\n" : "") + std::to_string(left_out) + " lines were left out here: nothing read them.\n";
  }

  // How much of it was taken.
  static size_t GiveAll(std::string_view text) {
    size_t given = 0;
    while (given < text.size()) {
      const size_t taken = Give(text.substr(given, kPiece));
      if (taken == 0) break;
      given += taken;
    }
    return given;
  }

  // How much of it was taken; 0 where nothing reads.
  static size_t Give(std::string_view piece) {
    using Clock = std::chrono::steady_clock;
    const auto until = Clock::now() + (stalled_ ? std::chrono::milliseconds(0) : kPatience);
    for (;;) {
      const auto left =
          std::max<int64_t>(std::chrono::ceil<std::chrono::milliseconds>(until - Clock::now()).count(), 0);
      pollfd error{STDERR_FILENO, POLLOUT, 0};
      if (TEMP_FAILURE_RETRY(poll(&error, 1, static_cast<int>(left))) != 0) {
        const ssize_t written = TEMP_FAILURE_RETRY(write(STDERR_FILENO, piece.data(), piece.size()));
        if (written > 0) return static_cast<size_t>(written);
        if (written == 0 || errno != EAGAIN) return piece.size();  // what cannot be written is waited for no more
        // Room for one character, and the terminal makes two of a line's end.
        std::this_thread::sleep_for(std::min(kLookAgain, std::chrono::milliseconds(left)));
      }
      if (left > 0) continue;
      stalled_ = true;
      return 0;
    }
  }

  static inline std::atomic<bool> stalled_ = false;
  static inline std::atomic<bool> torn_ = false;  // since the last note, in the middle of a line
  static inline std::atomic<uint64_t> left_out_ = 0;
};

void LogToStderr(::android::base::LogId, LogSeverity severity, const char* tag, const char*, unsigned int,
                 const char* message) {
  constexpr std::string_view kLetters = "VDIWEFF";
  const std::string head = ::android::base::StringPrintf("%s %5d %5d %c %s: ", Now().c_str(), getpid(), gettid(),
                                                         kLetters[severity], tag == nullptr ? "" : tag);
  std::string_view rest(message);
  while (!rest.empty() && rest.back() == '\n') rest.remove_suffix(1);
  size_t end = 0;
  do {
    end = rest.find('\n');
    StandardError::Write(head + std::string(rest.substr(0, end)) + '\n');
    rest.remove_prefix(end == std::string_view::npos ? rest.size() : end + 1);
  } while (end != std::string_view::npos);
}

std::string Demangle(const char* symbol) {
  int status = 0;
  const std::unique_ptr<char, void (*)(void*)> name(abi::__cxa_demangle(symbol, nullptr, nullptr, &status), std::free);
  return status == 0 ? name.get() : symbol;
}

// "#03 program(function+0x1c)"; without a known function the offset is into the program, as addr2line takes it.
std::string DescribeFrame(size_t number, void* address) {
  Dl_info info{};
  if (dladdr(address, &info) == 0) return ::android::base::StringPrintf("  #%02zu %p\n", number, address);
  const std::string program = ::android::base::Basename(info.dli_fname == nullptr ? "?" : info.dli_fname);
  const auto pc = reinterpret_cast<uintptr_t>(address);
  if (info.dli_sname == nullptr) {
    return ::android::base::StringPrintf("  #%02zu %s(+0x%zx)\n", number, program.c_str(),
                                         pc - reinterpret_cast<uintptr_t>(info.dli_fbase));
  }
  return ::android::base::StringPrintf("  #%02zu %s(%s+0x%zx)\n", number, program.c_str(),
                                       Demangle(info.dli_sname).c_str(),
                                       pc - reinterpret_cast<uintptr_t>(info.dli_saddr));
}

// The message itself has been logged by now.
[[noreturn]] void AbortWithTrace(const char* message) {
  std::array<void*, kMaxFrames> frames{};
  const int count = backtrace(frames.data(), static_cast<int>(frames.size()));
  StandardError::Write(
      ::android::base::StringPrintf("Abort message: '%s'\nbacktrace of thread %d:\n", message, gettid()));
  for (int i = 0; i < count; ++i)
    StandardError::Write(DescribeFrame(static_cast<size_t>(i), frames[static_cast<size_t>(i)]));
  std::abort();
}

void SetSeverityFromEnvironment() {
  ::android::base::SetMinimumLogSeverity(::android::base::INFO);
  const char* wanted = std::getenv(kLogVariable);
  if (wanted == nullptr || *wanted == '\0') return;
  for (const SeverityName& known : kSeverityNames) {
    if (known.name == wanted) {
      ::android::base::SetMinimumLogSeverity(known.severity);
      return;
    }
  }
  LOG(WARNING) << kLogVariable << "=" << wanted << " is not one of verbose, debug, info, warning, error; using info";
}

// Whatever is opened in the place of a closed stderr would get the log: a socket, or the controller's port.
void FillStandardDescriptors() {
  int fd = -1;
  do {
    fd = open(_PATH_DEVNULL, O_RDWR);  // NOLINT(android-cloexec-open): as every standard descriptor
  } while (fd >= 0 && fd <= STDERR_FILENO);
  if (fd >= 0) close(fd);
}

// A process inherits what its starter blocked. Blocked, SIGTERM would end nothing, and SIGUSR2 free no writer.
void UnblockSignals() {
  sigset_t needed;
  sigemptyset(&needed);
  sigaddset(&needed, SIGTERM);
  sigaddset(&needed, SIGUSR2);
  pthread_sigmask(SIG_UNBLOCK, &needed, nullptr);
}

}  // namespace

void SetUpProcess() {
  FillStandardDescriptors();
  UnblockSignals();
  StandardError::ReopenTerminal();
  ::android::base::SetLogger(LogToStderr);
  ::android::base::SetAborter(AbortWithTrace);
  SetSeverityFromEnvironment();
  signal(SIGPIPE, SIG_IGN);
  signal(SIGXFSZ, SIG_IGN);
}

void EndUnlessOnlyService() {
  const pid_t holder = ::bthal::host::ClaimRole(::bthal::host::kServiceRole);
  if (holder == 0) return;
  std::string root = ::bthal::host::BelowDeviceRoot("/");
  if (root.size() > 1) root.pop_back();
  StandardError::Write(::android::base::StringPrintf("%s is already running on %s (pid %d)\n",
                                                     program_invocation_short_name, root.c_str(), holder));
  _exit(::bthal::host::kRoleTakenStatus);
}

}  // namespace android::hardware::bluetooth::os

#endif
