// Who takes part in the diagnostics.
#pragma once

namespace android::hardware::bluetooth::aidl::qnlbtlinux {

// Hands to debug central what the components above it contribute to the report and to a crash dump, and what they want
// to hear. Once a process; later calls do nothing.
void RegisterDiagnostics();

}  // namespace android::hardware::bluetooth::aidl::qnlbtlinux
