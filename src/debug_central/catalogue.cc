#define LOG_TAG "bthal.debug_central"

#include "debug_central/catalogue.h"

#include <algorithm>
#include <iterator>

#include <android-base/logging.h>
#include <android-base/stringprintf.h>

#include "debug_central/error_kinds.h"

namespace android::hardware::bluetooth::V1_1::qnlbtlinux::debug {
namespace {

struct ErrorKind {
  BqrErrorCode code;
  const char* name;
  void (*end)(const std::string& message);
  const char* reason;  // null: none
};

constexpr ErrorKind kKinds[] = {
#define ERROR_KIND(name, reason) {BqrErrorCode::k##name, #name, name, reason},
#include "debug_central/error_kinds.inc"
#undef ERROR_KIND
};

static_assert(std::size(kKinds) == 53);
static_assert(std::is_sorted(std::begin(kKinds), std::end(kKinds),
                             [](const ErrorKind& a, const ErrorKind& b) { return a.code < b.code; }));

const ErrorKind* Find(BqrErrorCode code) {
  const auto* kind =
      std::find_if(std::begin(kKinds), std::end(kKinds), [code](const ErrorKind& one) { return one.code == code; });
  return kind == std::end(kKinds) ? nullptr : kind;
}

}  // namespace

std::string ReasonText(BqrErrorCode code) {
  const ErrorKind* kind = Find(code);
  return kind == nullptr || kind->reason == nullptr ? std::string() : kind->reason;
}

std::string ReasonTextOrName(BqrErrorCode code) {
  const ErrorKind* kind = Find(code);
  if (kind == nullptr) return ::android::base::StringPrintf("vendor error 0x%02hhX", static_cast<uint8_t>(code));
  return kind->reason == nullptr ? kind->name : kind->reason;
}

void LogFatal(BqrErrorCode code, const std::string& info) {
  std::string message =
      "Bluetooth HAL crash with error code 0, vendor error code " + std::to_string(static_cast<int>(code));
  if (!info.empty()) message += ", extra info: " + info;
  if (const ErrorKind* kind = Find(code)) {
    kind->end(message);
    return;
  }
  LOG(FATAL) << message;
}

}  // namespace android::hardware::bluetooth::V1_1::qnlbtlinux::debug
