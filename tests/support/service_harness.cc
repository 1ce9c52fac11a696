#include "support/service_harness.h"

#include <android/binder_auto_utils.h>
#include <android/binder_manager.h>

#include "support/test.h"

namespace bthal::test {
namespace {

constexpr size_t kComplaintSize = 4000;
constexpr char kHciInstance[] = "android.hardware.bluetooth.IBluetoothHci/default";

}  // namespace

ServiceProcess::ServiceProcess(const std::string& program, const std::string& root, const std::string& log_level)
    : log_path_(root + "/service.log") {
  const unique_fd log(open(log_path_.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644));
  std::string error;
  process_ = tool::Child::Spawn({.arguments = {program},
                                 .environment = {{"BTHAL_ROOT", root}, {"BTHAL_LOG", log_level}},
                                 .standard_output = log.get(),
                                 .standard_error = log.get()},
                                &error);
  if (!process_.running()) throw std::runtime_error(error);
}

ServiceProcess::~ServiceProcess() {
  process_.Kill();
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

std::optional<int> ServiceProcess::WaitForEnd(milliseconds patience) {
  if (!status_) status_ = process_.Wait(patience);
  return status_;
}

std::string ServiceProcess::WaitForEndText() {
  const std::optional<int> status = WaitForEnd(seconds(20));
  if (!status) return "alive";
  return WIFSIGNALED(*status) ? "signal " + std::to_string(WTERMSIG(*status))
                              : "exit " + std::to_string(WEXITSTATUS(*status));
}

std::string ServiceProcess::Log() const { return ContentOf(log_path_); }

size_t ServiceProcess::CountInLog(const std::string& text) const { return CountIn(Log(), text); }

bool ServiceProcess::WaitForLog(const std::string& text, size_t times) const {
  return WaitFor([&] { return CountInLog(text) >= times; });
}

}  // namespace bthal::test
