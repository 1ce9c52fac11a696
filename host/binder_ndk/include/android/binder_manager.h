// Finding services by name. A name is an interface descriptor, "/", and an instance: "default", as a rule.
#pragma once

#include <android/binder_ibinder.h>
#include <android/binder_status.h>

#ifdef __cplusplus
extern "C" {
#endif

// Publishes an object of this process; a service of the same name is replaced. EX_NONE, EX_ILLEGAL_ARGUMENT for null, a
// proxy or an unusable name, EX_ILLEGAL_STATE when the entry cannot be made.
binder_exception_t AServiceManager_addService(AIBinder* binder, const char* instance)
    __attribute__((warn_unused_result));

// The service with one strong reference of the caller's, or null: at once, after five seconds, or never null.
AIBinder* AServiceManager_checkService(const char* instance) __attribute__((warn_unused_result));
AIBinder* AServiceManager_getService(const char* instance) __attribute__((warn_unused_result));
AIBinder* AServiceManager_waitForService(const char* instance) __attribute__((warn_unused_result));

#ifdef __cplusplus
}
#endif
