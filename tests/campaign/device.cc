#include "campaign/device.h"

#include <android-base/file.h>
#include <android-base/properties.h>
#include <android-base/strings.h>
#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <utility>

#include "bthal/run/device_names.h"
#include "bthal/run/device_root.h"
#include "support/test.h"

namespace bthal::campaign {
namespace {

namespace fs = std::filesystem;
using test::WaitFor;

constexpr char kSettings[] = "UartPort = /dev/ttySAC16\nUserialType = 1\nThreadDispatcherEnabled = true\n";
constexpr const char* kLogs[] = {"service", "board", "client"};
constexpr size_t kShownLines = 25;

// Of the same build, wherever that has been put.
std::string Bthal() { return tool::ProgramBeside("../bthal"); }

}  // namespace

Device::Device(std::string folder) : folder_(std::move(folder)), root_(folder_ + "/root") {
  setenv(tool::kRootVariable, root_.c_str(), 1);
  setenv("BTHAL_LOG", "info", 1);
}

void Device::SwitchOn() {
  SwitchOff();
  fs::remove_all(root_);
  for (const char* name : kLogs) android::base::WriteStringToFile("", folder_ + "/" + name + ".log");
  fs::create_directories(root_ + "/vendor/etc/bluetooth");
  fs::permissions(root_, fs::perms::owner_all);
  android::base::WriteStringToFile(kSettings, root_ + "/vendor/etc/bluetooth/bt_vendor.conf");
  StartBoard();
  android::base::SetProperty(tool::kSnoopProperty, "true");
  android::base::SetProperty("persist.bluetooth.thread_dispatcher.enabled", "true");
  Accelerate(true);
  StartService();
}

void Device::SwitchOff() {
  KillService();
  board_.Kill();
}

tool::Child Device::Start(const std::vector<std::string>& arguments, const std::string& log) const {
  const android::base::unique_fd output(
      open((folder_ + "/" + log + ".log").c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644));
  std::string error;
  tool::Child child = tool::Child::Spawn({.arguments = arguments,
                                          .environment = {},
                                          .standard_output = output.get(),
                                          .standard_error = output.get(),
                                          .signal_on_our_death = SIGTERM},
                                         &error);
  if (!child.running()) throw Problem{.what = error};
  return child;
}

size_t Device::BoardsInLog() const { return test::CountIn(Log("board"), "playing below"); }

void Device::StartBoard() {
  const size_t before = BoardsInLog();
  board_ = Start({Bthal(), "board", "--root", root_, "--patch-records", "40"}, "board");
  WaitFor([&] { return BoardsInLog() > before || board_.Wait(milliseconds(0)); });
  if (!board_.running()) throw Problem{.what = "the board does not start"};
  // It has booted the device anew: what does not outlive that is set once more.
  android::base::SetProperty(tool::kBuildTypeProperty, "userdebug");
}

void Device::StartService() {
  supervisor_ = Start({Bthal(), "supervise", "--once"}, "service");
  // Not before it is itself: until then a signal meets a part of the supervisor.
  const bool started = WaitFor([&] {
    std::string program;
    return android::base::Readlink("/proc/" + std::to_string(service()) + "/exe", &program) &&
           program.ends_with(tool::kServiceProgram);
  });
  if (!started) throw Problem{.what = "the supervisor does not start the service"};
}

tool::Child Device::StartClient(const std::vector<std::string>& arguments) {
  std::vector<std::string> all = {Bthal(), "hci"};
  all.insert(all.end(), arguments.begin(), arguments.end());
  return Start(all, "client");
}

void Device::Accelerate(bool accelerate) const {
  android::base::SetProperty(tool::kAccelerateDisableProperty, accelerate ? "false" : "true");
}

pid_t Device::service() const {
  if (!supervisor_.running()) return 0;
  const std::string pid = std::to_string(supervisor_.pid());
  return atoi(test::ContentOf("/proc/" + pid + "/task/" + pid + "/children").c_str());
}

std::optional<int> Device::ServiceEnd(milliseconds patience) {
  const std::optional<int> status = supervisor_.Wait(patience);
  if (!status) return std::nullopt;
  return WIFSIGNALED(*status) ? -WTERMSIG(*status) : WEXITSTATUS(*status);
}

void Device::KillService() {
  if (const pid_t pid = service(); pid > 0) kill(pid, SIGKILL);
  if (!supervisor_.Wait(milliseconds(5000))) supervisor_.Kill();
}

std::string Device::Log(const std::string& name) const { return test::ContentOf(folder_ + "/" + name + ".log"); }

void Device::Forget() const {
  for (const char* name : kLogs) {
    [[maybe_unused]] const int status = truncate((folder_ + "/" + name + ".log").c_str(), 0);
  }
}

std::string Device::LastLines() const {
  std::string last;
  for (const char* name : kLogs) {
    std::vector<std::string> lines = android::base::Split(android::base::Trim(Log(name)), "\n");
    if (lines.size() > kShownLines) lines.erase(lines.begin(), lines.end() - kShownLines);
    for (const std::string& line : lines) last += "    " + std::string(name) + ": " + line + "\n";
  }
  return last;
}

std::set<std::string> Device::Nodes() const {
  std::set<std::string> nodes;
  const std::string service_prefix = std::to_string(service()) + "-";
  for (const auto& entry : fs::recursive_directory_iterator(root_)) {
    const fs::file_status status = entry.symlink_status();
    std::string path = entry.path().string().substr(root_.size());
    const std::string name = entry.path().filename();
    const bool unfinished = name.ends_with(".new") || name.starts_with(".new-") || name.ends_with(".tmp");
    if (!unfinished && (fs::is_regular_file(status) || fs::is_directory(status))) continue;
    if (name.starts_with(service_prefix)) path = entry.path().parent_path().filename().string() + "/(service)";
    nodes.insert(path);
  }
  return nodes;
}

std::string Device::Leftovers() const {
  std::string text;
  const std::set<std::string> now = Nodes();
  for (const std::string& path : now) {
    if (!stock_.contains(path)) text += "; left behind: " + path;
  }
  for (const std::string& path : stock_) {
    if (!now.contains(path)) text += "; gone: " + path;
  }
  return text;
}

bool Device::WakeLockGoes(milliseconds patience) const {
  return WaitFor(
      [&] {
        const std::string log = Log("board");
        const size_t boot = log.rfind("playing below");
        const size_t taken = log.rfind(std::string("acquired ") + tool::kWakeLockName);
        const size_t released = log.rfind(std::string("released ") + tool::kWakeLockName);
        const auto at = [](size_t found) { return found == std::string::npos ? 0 : found + 1; };
        return at(taken) <= at(boot) || at(taken) < at(released);
      },
      patience);
}

}  // namespace bthal::campaign
