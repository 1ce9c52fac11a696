#include "bthal/run/process.h"

#include <android-base/file.h>
#include <android-base/stringprintf.h>
#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <string.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

namespace bthal::tool {
namespace {

using ::android::base::StringPrintf;
using ::android::base::unique_fd;

// Everything that the child needs is laid out before the fork: between fork and exec only async-signal-safe calls are
// allowed, for other threads may have held any lock.
struct Prepared {
  std::vector<std::string> environment;
  std::vector<char*> arguments;
  std::vector<char*> variables;
};

Prepared Prepare(const SpawnOptions& options) {
  Prepared prepared;
  for (char** variable = environ; *variable != nullptr; ++variable) {
    const std::string_view text(*variable);
    const std::string_view name = text.substr(0, text.find('='));
    bool replaced = false;
    for (const auto& [set, value] : options.environment) replaced |= set == name;
    if (!replaced) prepared.environment.emplace_back(text);
  }
  for (const auto& [name, value] : options.environment)
    prepared.environment.push_back(StringPrintf("%s=%s", name.c_str(), value.c_str()));
  for (std::string& variable : prepared.environment) prepared.variables.push_back(variable.data());
  for (const std::string& argument : options.arguments) {
    prepared.arguments.push_back(const_cast<char*>(argument.c_str()));
  }
  prepared.variables.push_back(nullptr);
  prepared.arguments.push_back(nullptr);
  return prepared;
}

void MoveTo(int from, int to) {
  if (from < 0) return;
  if (from == to) {
    fcntl(from, F_SETFD, 0);
  } else {
    dup2(from, to);
  }
}

[[noreturn]] void RunChild(const SpawnOptions& options, const Prepared& prepared, pid_t parent, int report_fd) {
  setpgid(0, 0);
  prctl(PR_SET_PDEATHSIG, options.signal_on_our_death);
  if (getppid() != parent) _exit(127);  // the parent died before the line above
  sigset_t none;
  sigemptyset(&none);
  sigprocmask(SIG_SETMASK, &none, nullptr);
  signal(SIGPIPE, SIG_DFL);
  signal(SIGXFSZ, SIG_DFL);
  MoveTo(options.standard_input, STDIN_FILENO);
  MoveTo(options.standard_output, STDOUT_FILENO);
  MoveTo(options.standard_error, STDERR_FILENO);
  execvpe(prepared.arguments[0], prepared.arguments.data(), prepared.variables.data());
  const int error = errno;
  (void)!write(report_fd, &error, sizeof(error));
  _exit(127);
}

}  // namespace

Child& Child::operator=(Child&& other) noexcept {
  if (this == &other) return *this;
  Kill();
  pid_ = std::exchange(other.pid_, -1);
  pidfd_ = std::move(other.pidfd_);
  return *this;
}

Child::~Child() { Kill(); }

Child Child::Spawn(const SpawnOptions& options, std::string* error) {
  Child child;
  // The child's end closes by itself when the exec succeeds; otherwise errno comes through it.
  unique_fd report_read;
  unique_fd report_write;
  if (!::android::base::Pipe(&report_read, &report_write)) {
    *error = StringPrintf("cannot make a pipe: %s", strerror(errno));
    return child;
  }
  const Prepared prepared = Prepare(options);
  const pid_t parent = getpid();
  const pid_t pid = fork();
  if (pid == 0) RunChild(options, prepared, parent, report_write.get());
  if (pid < 0) {
    *error = StringPrintf("cannot start %s: %s", options.arguments[0].c_str(), strerror(errno));
    return child;
  }
  setpgid(pid, pid);  // here as well: whoever comes first, the group exists when Spawn returns
  report_write.reset();
  int exec_error = 0;
  if (TEMP_FAILURE_RETRY(read(report_read.get(), &exec_error, sizeof(exec_error))) == sizeof(exec_error)) {
    waitpid(pid, nullptr, 0);
    *error = StringPrintf("cannot run %s: %s", options.arguments[0].c_str(), strerror(exec_error));
    return child;
  }
  child.pid_ = pid;
  child.pidfd_.reset(static_cast<int>(syscall(SYS_pidfd_open, pid, 0)));
  return child;
}

void Child::Signal(int signal) const {
  if (running()) kill(pid_, signal);
}

std::optional<int> Child::Wait(std::chrono::milliseconds timeout) {
  if (!running()) return std::nullopt;
  pollfd ended = {pidfd_.get(), POLLIN, 0};
  if (pidfd_.ok() && poll(&ended, 1, static_cast<int>(timeout.count())) <= 0) return std::nullopt;
  int status = 0;
  if (TEMP_FAILURE_RETRY(waitpid(pid_, &status, pidfd_.ok() ? 0 : WNOHANG)) != pid_) return std::nullopt;
  kill(-pid_, SIGKILL);
  pid_ = -1;
  pidfd_.reset();
  return status;
}

void Child::Kill() {
  if (!running()) return;
  kill(-pid_, SIGKILL);
  kill(pid_, SIGKILL);
  TEMP_FAILURE_RETRY(waitpid(pid_, nullptr, 0));
  pid_ = -1;
  pidfd_.reset();
}

std::string ExitWords(int wait_status) {
  if (WIFEXITED(wait_status)) return StringPrintf("exited with status %d", WEXITSTATUS(wait_status));
  if (!WIFSIGNALED(wait_status)) return StringPrintf("ended with wait status 0x%x", wait_status);
  const char* name = sigabbrev_np(WTERMSIG(wait_status));
  std::string text = name != nullptr ? StringPrintf("was killed by SIG%s", name)
                                     : StringPrintf("was killed by signal %d", WTERMSIG(wait_status));
  if (WCOREDUMP(wait_status)) text += ", core dumped";
  return text;
}

std::string ProgramBeside(const std::string& name) {
  const std::string folder = ::android::base::Dirname(::android::base::GetExecutablePath());
  const std::string installed = folder + "/../libexec/bthal/" + name;
  const std::string beside = folder + "/" + name;
  return access(beside.c_str(), X_OK) != 0 && access(installed.c_str(), X_OK) == 0 ? installed : beside;
}

}  // namespace bthal::tool
