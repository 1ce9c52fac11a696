#include "conf/properties.h"

#include <android-base/properties.h>

namespace android::hardware::bluetooth::conf {
namespace {

constexpr char kHardwareStageProperty[] = "ro.boot.hardware.revision";
constexpr char kDefaultHardwareStage[] = "default";

}  // namespace

bool IsBtUartFallback() { return ::android::base::GetBoolProperty(kUartFallbackProperty, false); }

std::string HardwareStage() { return ::android::base::GetProperty(kHardwareStageProperty, kDefaultHardwareStage); }

}  // namespace android::hardware::bluetooth::conf
