// The catalogue of fatal errors: what each is called, and how it ends the process.
#pragma once

#include <string>

#include "debug_central/bqr_error_code.h"

namespace android::hardware::bluetooth::V1_1::qnlbtlinux::debug {

// The reason text of a kind, empty for a code that has none.
std::string ReasonText(BqrErrorCode code);

// The reason text, else the kind's name, else the number of a code that no kind has.
std::string ReasonTextOrName(BqrErrorCode code);

// Ends the process with a fatal message, logged from inside the kind's own function. `info` is free-form detail and may
// be empty. Returns only when a test has replaced the ending.
void LogFatal(BqrErrorCode code, const std::string& info);

}  // namespace android::hardware::bluetooth::V1_1::qnlbtlinux::debug
