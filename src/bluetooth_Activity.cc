#include "bluetooth_Activity.h"

#include <android-base/stringprintf.h>

#include <algorithm>
#include <cinttypes>

namespace android::hardware::bluetooth {

using ::android::base::StringPrintf;

BtActivitiesLogger& BtActivitiesLogger::Get() {
  static auto& logger = *new BtActivitiesLogger;
  return logger;
}

void BtActivitiesLogger::OnBluetoothEnabled() {
  bluetooth_on_ = true;
  ++times_enabled_;
}

void BtActivitiesLogger::OnBluetoothDisabled() { bluetooth_on_ = false; }

void BtActivitiesLogger::StartLogging() { logging_ = true; }

void BtActivitiesLogger::StopLogging() { logging_ = false; }

void BtActivitiesLogger::LogActivities(Kind kind, const hci::HciPacket& packet) {
  if (!logging_.load(std::memory_order_relaxed) || kind >= kKinds) return;
  counters_[kind].packets.fetch_add(1, std::memory_order_relaxed);
  counters_[kind].bytes.fetch_add(packet.size(), std::memory_order_relaxed);
}

void BtActivitiesLogger::UpdateBthalWakelockStat(const std::string& wall_clock, int64_t duration_ms,
                                                 uint32_t wake_count) {
  const std::lock_guard lock(mutex_);
  wakelock_.last_wall_clock = wall_clock;
  wakelock_.last_duration_ms = duration_ms;
  wakelock_.last_wake_count = wake_count;
  ++wakelock_.periods;
  wakelock_.longest_ms = std::max(wakelock_.longest_ms, duration_ms);
  wakelock_.total_ms += duration_ms;
}

void BtActivitiesLogger::UpdateControllerActivity(const ControllerActivity& activity) {
  const std::lock_guard lock(mutex_);
  ++controller_answers_;
  controller_latest_ = activity;
}

std::string BtActivitiesLogger::Report() {
  static constexpr struct {
    Kind kind;
    const char* name;
  } kLines[] = {{kCommand, "Commands to the controller"},
                {kEvent, "Events from the controller"},
                {kAclToController, "ACL data to the controller"},
                {kAclFromController, "ACL data from the controller"}};

  std::string report = StringPrintf("Bluetooth is %s, enabled %" PRIu64 " times, packets are %scounted\n",
                                    bluetooth_on_ ? "on" : "off", times_enabled_.load(), logging_ ? "" : "not ");
  for (const auto& line : kLines) {
    report += StringPrintf("%s: %" PRIu64 " packets, %" PRIu64 " bytes\n", line.name,
                           counters_[line.kind].packets.load(), counters_[line.kind].bytes.load());
  }
  const std::lock_guard lock(mutex_);
  return report + ReportWakelock() + ReportController();
}

std::string BtActivitiesLogger::ReportWakelock() {
  if (wakelock_.periods == 0) return "No long awake period of the link\n";
  return StringPrintf("Long awake periods of the link: %" PRIu64 ", %" PRId64 " ms together, the longest %" PRId64
                      " ms; the last from %s: %" PRId64 " ms, %u wake-ups\n",
                      wakelock_.periods, wakelock_.total_ms, wakelock_.longest_ms, wakelock_.last_wall_clock.c_str(),
                      wakelock_.last_duration_ms, wakelock_.last_wake_count);
}

std::string BtActivitiesLogger::ReportController() {
  if (controller_answers_ == 0) return "The controller was not asked for its activity\n";
  return StringPrintf("Controller's own account, the latest of %" PRIu64
                      ": sending %u ms, receiving %u ms, idle %u ms, "
                      "energy %u\n",
                      controller_answers_, controller_latest_.tx_ms, controller_latest_.rx_ms,
                      controller_latest_.idle_ms, controller_latest_.energy_used);
}

}  // namespace android::hardware::bluetooth
