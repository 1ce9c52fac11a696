// What the diagnostics' tests share: debug central's report as text, files found by prefix, and a flow control that is
// monitored.
#pragma once

#include <android-base/strings.h>
#include <sys/mman.h>

#include "aidl/bluetooth_hci/diagnostics.h"
#include "debug_central/debug_central.h"
#include "hci_flow_control/debug_monitor.h"
#include "hci_flow_control/hci_flow_control.h"
#include "support/test.h"

namespace bthal::test {

// The report that `dump` prints.
inline std::string DumpText() {
  const unique_fd file(memfd_create("report", MFD_CLOEXEC));
  android::hardware::bluetooth::DebugCentral::Get().Dump(file.get());
  lseek(file.get(), 0, SEEK_SET);
  std::string text;
  android::base::ReadFdToString(file.get(), &text);
  return text;
}

// The lines of the report's section with this title, without the rules around it.
inline std::vector<std::string> DumpSection(const std::string& title) {
  const std::string rule = std::string(45, '=') + "\n";
  const std::string report = DumpText();
  const std::string heading = rule + title + "\n" + rule;
  const size_t at = report.find(heading);
  if (at == std::string::npos) return {};
  const std::string rest = report.substr(at + heading.size());
  auto lines = android::base::Split(rest.substr(0, rest.find(rule)), "\n");
  lines.pop_back();  // behind the last line's end
  return lines;
}

// What the record's history gains from here on: lines without their times, after an empty one, as a raw string has
// them.
class Recorded {
 public:
  Recorded() : before_(History().size()) {}
  std::string Text() const { return "\n" + History().substr(before_); }

 private:
  static std::string History() {
    constexpr size_t kTimeSize = 14;  // "09:05:07:042: "
    std::string text;
    for (const std::string& line : DumpSection("Anchors' History")) text.append(line, kTimeSize) += '\n';
    return text;
  }

  size_t before_;
};

// The names of a folder's entries that begin with `prefix`, sorted; none without the folder.
inline std::vector<std::string> NamesIn(const std::string& folder, const std::string& prefix = "") {
  std::vector<std::string> names;
  std::error_code absent;
  for (const auto& entry : std::filesystem::directory_iterator(folder, absent)) {
    const std::string name = entry.path().filename();
    if (name.starts_with(prefix)) names.push_back(name);
  }
  std::ranges::sort(names);
  return names;
}

inline constexpr char kCoreDumps[] = "/data/vendor/ssrdump/coredump/";
inline std::vector<std::string> CoreDumps(const TempRoot& root, const std::string& prefix = "") {
  return NamesIn(root.path() + kCoreDumps, prefix);
}
inline std::vector<std::string> CrashInfos(const TempRoot& root) {
  return NamesIn(root.path() + "/data/vendor/ssrdump", "crashinfo_bt_");
}

// A flow control that the diagnostics watch, and what they leave of the events that it gets.
class MonitoredTest : public LoggedTest {
 protected:
  using HciPacket = android::hardware::bluetooth::hci::HciPacket;
  using Monitor = android::hardware::bluetooth::V1_1::qnlbtlinux::debug::DebugMonitor;

  MonitoredTest() {
    android::hardware::bluetooth::aidl::qnlbtlinux::RegisterDiagnostics();
    Monitor::Get().StartMonitor(flow_.get());
  }
  ~MonitoredTest() override { Monitor::Get().StopMonitor(); }

  static std::shared_ptr<android::hardware::bluetooth::hci::HciFlowControl> MakeFlow() {
    const auto ignore = [](const HciPacket&) {};
    return std::make_shared<android::hardware::bluetooth::hci::HciFlowControl>(
        android::hardware::bluetooth::hci::Consumers{ignore, ignore, ignore, ignore, ignore});
  }
  void MakeFolders() { std::filesystem::create_directories(root_.path() + kCoreDumpDir); }
  // Whether the stack sees the event, as it is.
  bool Reaches(const HciPacket& event) {
    bool seen = false;
    flow_->OnHciEventReady(event, {.event_cb = [&](const HciPacket& delivered) { seen = delivered == event; }});
    return seen;
  }

  static constexpr char kCrashInfoDir[] = "/data/vendor/ssrdump/";
  static constexpr char kCoreDumpDir[] = "/data/vendor/ssrdump/coredump/";

  android::hardware::bluetooth::DebugCentral& central_ = android::hardware::bluetooth::DebugCentral::Get();
  std::shared_ptr<android::hardware::bluetooth::hci::HciFlowControl> flow_ = MakeFlow();
};

}  // namespace bthal::test
