// The threads of this process that serve calls.
#pragma once

#include <stdbool.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

// Starts the pool's first thread; more follow when all are busy, up to the maximum. Once; later calls do nothing.
void ABinderProcess_startThreadPool();
// At most `numThreads` threads besides those that join; 15 unless set. To be called before the pool starts. With 0, and
// no thread joined, no call is served. Always true.
bool ABinderProcess_setThreadPoolMaxThreadCount(uint32_t numThreads);
// The calling thread serves calls from now on.
void ABinderProcess_joinThreadPool();

#ifdef __cplusplus
}
#endif
