#define LOG_TAG "bthal.usf"

#include "chre/hub_recovery.h"

#include <time.h>

#include <string>

#include <android-base/logging.h>
#include <android-base/properties.h>

#include "conf/conf.h"
#include "conf/userial_type.h"

namespace android::hardware::bluetooth::hci::hub {
namespace {

using ::android::base::GetBoolProperty;
using ::android::base::GetIntProperty;
using ::android::base::SetProperty;

// Ends with the boot.
constexpr char kLastLossProperty[] = "bluetooth.usf.last.loss";  // seconds since the boot
constexpr int64_t kNever = -1;

}  // namespace

BootTime Now() {
  timespec now{};
  clock_gettime(CLOCK_BOOTTIME, &now);
  return BootTime(now.tv_sec);
}

bool HubRecovery::IsDead() { return GetBoolProperty(conf::kSensorHubDeadProperty, false); }

bool HubRecovery::WasLost() { return GetIntProperty(kLastLossProperty, kNever) != kNever; }

void HubRecovery::Connected() {
  if (state_ != State::kDead) state_ = State::kUp;
}

void HubRecovery::Lost(BootTime now) {
  if (state_ != State::kUp) return;
  const int64_t last = GetIntProperty(kLastLossProperty, kNever);
  SetProperty(kLastLossProperty, std::to_string(now.count()));
  state_ = State::kLost;
  const int64_t interval = conf::Config::GetInstance().min_usf_disconnection_interval_s;
  if (last == kNever || now.count() - last >= interval) return;
  LOG(ERROR) << "the sensor hub's connection was lost " << now.count() - last
             << " s after the loss before, which is less than " << interval << " s";
  Die();
}

void HubRecovery::TooLate() {
  if (state_ == State::kUp) return;
  LOG(ERROR) << "the sensor hub's connection has not come back";
  Die();
}

void HubRecovery::GivenUp() {
  if (state_ != State::kDead) state_ = State::kDown;
}

void HubRecovery::Die() {
  state_ = State::kDead;
  SetProperty(conf::kSensorHubDeadProperty, "true");
}

}  // namespace android::hardware::bluetooth::hci::hub
