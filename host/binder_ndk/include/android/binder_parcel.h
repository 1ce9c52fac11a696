// The arguments and results of a transaction. A parcel is used by one thread at a time. Reads move a cursor; a read
// past the end gives STATUS_NOT_ENOUGH_DATA and leaves the target as it was.
#pragma once

#include <stdbool.h>
#include <stddef.h>
#include <stdint.h>

#include <android/binder_status.h>

#ifdef __cplusplus
extern "C" {
#endif

struct AIBinder;
typedef struct AIBinder AIBinder;
struct AParcel;
typedef struct AParcel AParcel;

AParcel* AParcel_create();
void AParcel_delete(AParcel* parcel);
int32_t AParcel_getDataSize(const AParcel* parcel);      // bytes
int32_t AParcel_getDataPosition(const AParcel* parcel);  // bytes read so far
binder_status_t AParcel_setDataPosition(const AParcel* parcel, int32_t position);

binder_status_t AParcel_writeInt32(AParcel* parcel, int32_t value);
binder_status_t AParcel_readInt32(const AParcel* parcel, int32_t* value);
binder_status_t AParcel_writeBool(AParcel* parcel, bool value);
binder_status_t AParcel_readBool(const AParcel* parcel, bool* value);
binder_status_t AParcel_writeByte(AParcel* parcel, int8_t value);
binder_status_t AParcel_readByte(const AParcel* parcel, int8_t* value);

// `length` -1 with null data is a null string or array. `string` need not end in a zero byte.
binder_status_t AParcel_writeString(AParcel* parcel, const char* string, int32_t length);
binder_status_t AParcel_writeByteArray(AParcel* parcel, const int8_t* arrayData, int32_t length);

// Asked for room of `length` bytes (a string's counts its zero byte; -1 for null), sets `*buffer` to it and returns
// true. False makes the read fail with STATUS_NO_MEMORY. `data` is what was given to the read.
typedef bool (*AParcel_stringAllocator)(void* stringData, int32_t length, char** buffer);
typedef bool (*AParcel_byteArrayAllocator)(void* arrayData, int32_t length, int8_t** outBuffer);
binder_status_t AParcel_readString(const AParcel* parcel, void* stringData, AParcel_stringAllocator allocator);
binder_status_t AParcel_readByteArray(const AParcel* parcel, void* arrayData, AParcel_byteArrayAllocator allocator);

// The parcel holds a reference of its own. `binder` may be null. An object of a third process cannot be sent on: the
// transaction that carries it fails.
binder_status_t AParcel_writeStrongBinder(AParcel* parcel, AIBinder* binder);
// Sets `*binder` to null or to an object of which the caller owns one strong reference.
binder_status_t AParcel_readStrongBinder(const AParcel* parcel, AIBinder** binder);

// The outcome of a call, which comes before its results. The status read is owned by the caller.
binder_status_t AParcel_writeStatusHeader(AParcel* parcel, const AStatus* status);
binder_status_t AParcel_readStatusHeader(const AParcel* parcel, AStatus** status);

#ifdef __cplusplus
}
#endif
