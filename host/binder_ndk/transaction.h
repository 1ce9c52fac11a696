// Running a call on a local object, or on this process's list of services.
#pragma once

#include <android/binder_ibinder.h>

#include <cstdint>

namespace bthal::binder {

// Runs call `code` on `object`, null for the list of services. `descriptor` is that of a dump, and stays the caller's.
// Runs foreign code; no lock may be held.
binder_status_t Execute(AIBinder* object, int32_t code, const AParcel& in, int descriptor, AParcel* out);

// Whether a batch of the calling thread has kept the call, which is then not to be made.
bool KeepInBatch(AIBinder* binder, int32_t code, const AParcel& in);

}  // namespace bthal::binder
