#define LOG_TAG "bthal.usf"

#include "chre/usf_helper.h"

#include <android-base/logging.h>

namespace android::hardware::bluetooth::hci {
namespace {

bool Refuse(const char* operation) {
  LOG(ERROR) << operation << ": refused, this build has no sensor-hub client";
  return false;
}

}  // namespace

UsfHelper& UsfHelper::Get() {
  static auto& helper = *new UsfHelper;
  return helper;
}

bool UsfHelper::PrepareUsfTransport() { return Refuse(__func__); }

// On the UART path this only spares a later switch of paths some time: nothing is missing when it does nothing.
void UsfHelper::PrepareUsfTransportAsync() { LOG(VERBOSE) << __func__ << ": no sensor-hub client"; }

bool UsfHelper::IsUsfTransportDead() const { return false; }

bool UsfHelper::IsReady() const { return false; }

bool UsfHelper::IsLpmEnabled() const { return false; }

bool UsfHelper::PowerControl(bool, bool) { return Refuse(__func__); }

bool UsfHelper::UserialOpen(bool) { return Refuse(__func__); }

bool UsfHelper::LpmEnable(bool) { return Refuse(__func__); }

bool UsfHelper::BaudrateChange(UartBaudRate) { return Refuse(__func__); }

size_t UsfHelper::SendHciToUsf(uint8_t, const uint8_t*, size_t, bool) {
  Refuse(__func__);
  return 0;
}

size_t UsfHelper::SendHciBatchToUsf(const uint8_t*, size_t, bool) {
  Refuse(__func__);
  return 0;
}

bool UsfHelper::InitializeCallback(const Consumers&) { return Refuse(__func__); }

// Nothing was set up, so there is nothing to undo.
void UsfHelper::DeinitializeCallback() {}

void UsfHelper::Deinitialize() {}

bool UsfHelper::GetChreDebugDump() { return Refuse(__func__); }

}  // namespace android::hardware::bluetooth::hci
