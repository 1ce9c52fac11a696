// Objects that are called across processes. All functions may be called from any thread.
#pragma once

#include <stdbool.h>
#include <stdint.h>

#include <android/binder_parcel.h>
#include <android/binder_status.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef uint32_t transaction_code_t;
// No flag is supported: every call waits for its answer.
typedef uint32_t binder_flags_t;

enum {
  FIRST_CALL_TRANSACTION = 0x00000001,
  LAST_CALL_TRANSACTION = 0x00ffffff,
};

// A local object, or a proxy of one in another process.
struct AIBinder;
typedef struct AIBinder AIBinder;
struct AIBinder_Class;
typedef struct AIBinder_Class AIBinder_Class;
struct AIBinder_Weak;
typedef struct AIBinder_Weak AIBinder_Weak;
struct AIBinder_DeathRecipient;
typedef struct AIBinder_DeathRecipient AIBinder_DeathRecipient;

// Makes the user data of a new local object out of what AIBinder_new was given.
typedef void* (*AIBinder_Class_onCreate)(void* args);
// Frees it, after the last strong reference is gone.
typedef void (*AIBinder_Class_onDestroy)(void* userData);
// Serves a call: reads `in`, writes `out`. Codes it does not know get STATUS_UNKNOWN_TRANSACTION.
typedef binder_status_t (*AIBinder_Class_onTransact)(AIBinder* binder, transaction_code_t code, const AParcel* in,
                                                     AParcel* out);
// Writes a report for people to `fd`, which belongs to the caller.
typedef binder_status_t (*AIBinder_onDump)(AIBinder* binder, int fd, const char** args, uint32_t numArgs);

// A class is never freed.
AIBinder_Class* AIBinder_Class_define(const char* interfaceDescriptor, AIBinder_Class_onCreate onCreate,
                                      AIBinder_Class_onDestroy onDestroy, AIBinder_Class_onTransact onTransact)
    __attribute__((warn_unused_result));
// Before the first object of the class is made.
void AIBinder_Class_setOnDump(AIBinder_Class* clazz, AIBinder_onDump onDump);
const char* AIBinder_Class_getDescriptor(const AIBinder_Class* clazz);

// A local object with one strong reference, the caller's.
AIBinder* AIBinder_new(const AIBinder_Class* clazz, void* args) __attribute__((warn_unused_result));
void AIBinder_incStrong(AIBinder* binder);
void AIBinder_decStrong(AIBinder* binder);  // null is ignored
int32_t AIBinder_debugGetRefCount(AIBinder* binder);
bool AIBinder_isRemote(const AIBinder* binder);
// A local object is alive; a remote one until its process is seen to be gone.
bool AIBinder_isAlive(const AIBinder* binder);
// Asks the object's process for a sign of life.
binder_status_t AIBinder_ping(AIBinder* binder);
// Has the object report to `fd`, and waits until it has.
binder_status_t AIBinder_dump(AIBinder* binder, int fd, const char** args, uint32_t numArgs);

// Whether the object is of this class (a remote one: of a class with this descriptor). A remote object belongs to the
// first class it was associated with. False for null.
bool AIBinder_associateClass(AIBinder* binder, const AIBinder_Class* clazz);
const AIBinder_Class* AIBinder_getClass(AIBinder* binder);
void* AIBinder_getUserData(AIBinder* binder);  // null for a remote object

// Begins a call of `binder`, which must have a class: sets `*in` to a parcel of the caller's, with the interface named.
binder_status_t AIBinder_prepareTransaction(AIBinder* binder, AParcel** in);
// Calls, and waits for the answer; meanwhile this thread serves the calls that the called object makes back. Takes
// `*in` (sets it to null) and sets `*out` to a parcel of the caller's, null when this does not return STATUS_OK.
// STATUS_DEAD_OBJECT: the other process is gone. STATUS_FAILED_TRANSACTION: too large. `flags` must be 0.
binder_status_t AIBinder_transact(AIBinder* binder, transaction_code_t code, AParcel** in, AParcel** out,
                                  binder_flags_t flags);

AIBinder_Weak* AIBinder_Weak_new(AIBinder* binder) __attribute__((warn_unused_result));
void AIBinder_Weak_delete(AIBinder_Weak* weakBinder);
// A strong reference of the caller's, or null when the object is gone.
AIBinder* AIBinder_Weak_promote(AIBinder_Weak* weakBinder) __attribute__((warn_unused_result));

typedef void (*AIBinder_DeathRecipient_onBinderDied)(void* cookie);
typedef void (*AIBinder_DeathRecipient_onBinderUnlinked)(void* cookie);

AIBinder_DeathRecipient* AIBinder_DeathRecipient_new(AIBinder_DeathRecipient_onBinderDied onBinderDied)
    __attribute__((warn_unused_result));
// Called once a link, with its cookie, when nothing more will be told through it.
void AIBinder_DeathRecipient_setOnUnlinked(AIBinder_DeathRecipient* recipient,
                                           AIBinder_DeathRecipient_onBinderUnlinked onUnlinked);
// Ends all its links. A notice that is being told meanwhile is not waited for.
void AIBinder_DeathRecipient_delete(AIBinder_DeathRecipient* recipient);

// Has the recipient called with `cookie` when the object's process dies, once, on a thread that does nothing else.
// STATUS_INVALID_OPERATION for a local object, STATUS_DEAD_OBJECT when it is dead already. A link lasts no longer than
// the proxy: keep a strong reference.
binder_status_t AIBinder_linkToDeath(AIBinder* binder, AIBinder_DeathRecipient* recipient, void* cookie);
// Ends one such link, of this recipient and cookie. STATUS_NAME_NOT_FOUND when there is none, STATUS_DEAD_OBJECT when
// the death has been or is being told.
binder_status_t AIBinder_unlinkToDeath(AIBinder* binder, AIBinder_DeathRecipient* recipient, void* cookie);

#ifdef __cplusplus
}
#endif
