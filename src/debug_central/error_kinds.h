// One function a kind of fatal error, so that the stack trace of a crash names the kind without any decoding.
#pragma once

#include <string>

namespace android::hardware::bluetooth::V1_1::qnlbtlinux::debug {

// void UartParsing(const std::string& message), ...: each logs `message` as fatal, which ends the process, and returns
// only when a test has replaced that ending.
#define ERROR_KIND(name, reason) void name(const std::string& message);
#include "debug_central/error_kinds.inc"
#undef ERROR_KIND

}  // namespace android::hardware::bluetooth::V1_1::qnlbtlinux::debug
