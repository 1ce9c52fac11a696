#include "support/service_harness.h"

#include <android/binder_auto_utils.h>
#include <android/binder_manager.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstring>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <vector>

#include "support/wait_for.h"

namespace bthal::test {
namespace {

constexpr size_t kComplaintSize = 4000;
constexpr char kHciInstance[] = "android.hardware.bluetooth.IBluetoothHci/default";

// The test's environment with the variables that the service is steered by set for it.
std::vector<std::string> ServiceEnvironment(const std::string& root, const std::string& log_level) {
  std::vector<std::string> environment = {"BTHAL_ROOT=" + root, "BTHAL_LOG=" + log_level};
  for (char** variable = environ; *variable != nullptr; ++variable) {
    if (strncmp(*variable, "BTHAL_", 6) != 0) environment.emplace_back(*variable);
  }
  return environment;
}

// In the child of a process with threads: nothing but system calls.
[[noreturn]] void RunService(const char* program, char* const* arguments, char* const* environment, int log_fd) {
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  dup2(log_fd, STDOUT_FILENO);
  dup2(log_fd, STDERR_FILENO);
  execve(program, arguments, environment);
  _exit(127);
}

}  // namespace

ServiceProcess::ServiceProcess(const std::string& program, const std::string& root, const std::string& log_level)
    : log_path_(root + "/service.log") {
  std::vector<std::string> environment = ServiceEnvironment(root, log_level);
  std::vector<char*> environment_pointers;
  for (std::string& variable : environment) environment_pointers.push_back(variable.data());
  environment_pointers.push_back(nullptr);
  std::string name = program;
  char* const arguments[] = {name.data(), nullptr};

  const int log_fd = open(log_path_.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644);
  if (log_fd < 0) throw std::runtime_error("cannot open " + log_path_);
  pid_ = fork();
  if (pid_ == 0) RunService(program.c_str(), arguments, environment_pointers.data(), log_fd);
  close(log_fd);
  if (pid_ < 0) throw std::runtime_error("cannot fork");
}

ServiceProcess::~ServiceProcess() {
  if (IsAlive()) kill(pid_, SIGKILL);
  WaitForEnd();
  // Nobody else looks at what a sanitizer says in a process that is killed in the end.
  const std::string log = Log();
  for (const char* complaint : {"Sanitizer: ", "runtime error: "}) {
    const size_t at = log.find(complaint);
    if (at != std::string::npos) ADD_FAILURE() << "in the service: " << log.substr(at, kComplaintSize);
  }
}

bool ServiceProcess::WaitUntilPublished() {
  bool found = false;
  WaitFor([&] {
    const ndk::SpAIBinder binder(AServiceManager_checkService(kHciInstance));
    found = binder.get() != nullptr && AIBinder_ping(binder.get()) == STATUS_OK;
    return found || !IsAlive();
  });
  return found;
}

void ServiceProcess::Signal(int signal) const { kill(pid_, signal); }

bool ServiceProcess::IsAlive() {
  int status = 0;
  if (!status_ && waitpid(pid_, &status, WNOHANG) == pid_) status_ = status;
  return !status_;
}

std::optional<int> ServiceProcess::WaitForEnd() {
  WaitFor([this] { return !IsAlive(); });
  return status_;
}

std::string ServiceProcess::WaitForEndText() {
  const std::optional<int> status = WaitForEnd();
  if (!status) return "alive";
  return WIFSIGNALED(*status) ? "signal " + std::to_string(WTERMSIG(*status))
                              : "exit " + std::to_string(WEXITSTATUS(*status));
}

std::string ServiceProcess::Log() const {
  std::ifstream file(log_path_, std::ios::binary);
  std::ostringstream content;
  content << file.rdbuf();
  return content.str();
}

size_t ServiceProcess::CountInLog(const std::string& text) const {
  const std::string log = Log();
  size_t count = 0;
  for (size_t at = log.find(text); at != std::string::npos; at = log.find(text, at + text.size())) ++count;
  return count;
}

bool ServiceProcess::WaitForLog(const std::string& text, size_t times) const {
  return WaitFor([&] { return CountInLog(text) >= times; });
}

}  // namespace bthal::test
