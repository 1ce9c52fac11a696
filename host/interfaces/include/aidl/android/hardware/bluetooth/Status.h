// How the opening of the HAL ended.
#pragma once

#include <cstdint>
#include <string>

namespace aidl::android::hardware::bluetooth {

enum class Status : int32_t {
  SUCCESS = 0,
  ALREADY_INITIALIZED = 1,
  UNABLE_TO_OPEN_INTERFACE = 2,
  HARDWARE_INITIALIZATION_ERROR = 3,
  TRANSPORT_ERROR = 4,
  UNKNOWN = 5,
};

[[nodiscard]] inline std::string toString(Status status) {
  switch (status) {
    case Status::SUCCESS:
      return "SUCCESS";
    case Status::ALREADY_INITIALIZED:
      return "ALREADY_INITIALIZED";
    case Status::UNABLE_TO_OPEN_INTERFACE:
      return "UNABLE_TO_OPEN_INTERFACE";
    case Status::HARDWARE_INITIALIZATION_ERROR:
      return "HARDWARE_INITIALIZATION_ERROR";
    case Status::TRANSPORT_ERROR:
      return "TRANSPORT_ERROR";
    case Status::UNKNOWN:
      return "UNKNOWN";
  }
  return std::to_string(static_cast<int32_t>(status));
}

}  // namespace aidl::android::hardware::bluetooth
