// Wake locks as the platform's libhardware_legacy declares them.
#pragma once

#ifdef __cplusplus
extern "C" {
#endif

enum { PARTIAL_WAKE_LOCK = 1 };

// Writes `id` to /sys/power/wake_lock (acquire) or /sys/power/wake_unlock (release) below the device root. A wake lock
// outlives the process that took it. Returns a positive number on success, a negative errno otherwise. Any thread.
int acquire_wake_lock(int lock, const char* id);
int release_wake_lock(const char* id);

#ifdef __cplusplus
}
#endif
