// Which of the two grounds the service stands on.
#pragma once

namespace android::hardware::bluetooth::os {

#ifdef __ANDROID__
inline constexpr bool kOnAndroid = true;
#else
inline constexpr bool kOnAndroid = false;
#endif

}  // namespace android::hardware::bluetooth::os
