#include "parcel.h"

#include <android/binder_ibinder.h>

#include <string.h>

#include <algorithm>

#include "object.h"

using bthal::binder::kNullLength;
using bthal::binder::ObjectKind;

namespace {

constexpr size_t Padded(size_t size) { return (size + 3) & ~size_t{3}; }

void Append(AParcel* parcel, const void* bytes, size_t size) {
  const auto* begin = static_cast<const uint8_t*>(bytes);
  parcel->data.insert(parcel->data.end(), begin, begin + size);
  if (size % 4 != 0) parcel->data.resize(Padded(parcel->data.size()));
}

// The next `size` bytes and their padding, or null.
const uint8_t* Take(const AParcel* parcel, size_t size) {
  if (parcel->position > parcel->data.size() || Padded(size) > parcel->data.size() - parcel->position) return nullptr;
  const uint8_t* bytes = parcel->data.data() + parcel->position;
  parcel->position += Padded(size);
  return bytes;
}

template <typename T>
binder_status_t Read(const AParcel* parcel, T* value) {
  const uint8_t* bytes = Take(parcel, sizeof(T));
  if (bytes == nullptr) return STATUS_NOT_ENOUGH_DATA;
  memcpy(value, bytes, sizeof(T));
  return STATUS_OK;
}

binder_status_t WriteBytes(AParcel* parcel, const void* bytes, int32_t length) {
  if (length < -1 || (length == -1 && bytes != nullptr) || (length > 0 && bytes == nullptr)) return STATUS_BAD_VALUE;
  const auto size = static_cast<uint32_t>(length);
  Append(parcel, &size, sizeof(size));
  if (length > 0) Append(parcel, bytes, size);
  return STATUS_OK;
}

// Sets `*bytes` to null for a null string or array.
binder_status_t ReadBytes(const AParcel* parcel, const uint8_t** bytes, uint32_t* size) {
  const size_t begin = parcel->position;
  binder_status_t status = Read(parcel, size);
  if (status != STATUS_OK) return status;
  *bytes = nullptr;
  if (*size == kNullLength) return STATUS_OK;
  *bytes = Take(parcel, *size);
  if (*bytes != nullptr) return STATUS_OK;
  parcel->position = begin;
  return STATUS_NOT_ENOUGH_DATA;
}

}  // namespace

void bthal::binder::WriteText(AParcel* parcel, std::string_view text) {
  WriteBytes(parcel, text.data() == nullptr ? "" : text.data(), static_cast<int32_t>(text.size()));
}

bool bthal::binder::ReadText(const AParcel& parcel, std::string_view* text) {
  const uint8_t* bytes = nullptr;
  uint32_t size = 0;
  if (ReadBytes(&parcel, &bytes, &size) != STATUS_OK || bytes == nullptr) return false;
  *text = {reinterpret_cast<const char*>(bytes), size};
  return true;
}

AParcel* AParcel_create() { return bthal::binder::TakeParcel(); }
void AParcel_delete(AParcel* parcel) { bthal::binder::GiveParcelBack(parcel); }
int32_t AParcel_getDataSize(const AParcel* parcel) { return static_cast<int32_t>(parcel->data.size()); }
int32_t AParcel_getDataPosition(const AParcel* parcel) { return static_cast<int32_t>(parcel->position); }

binder_status_t AParcel_setDataPosition(const AParcel* parcel, int32_t position) {
  if (position < 0) return STATUS_BAD_VALUE;
  parcel->position = static_cast<size_t>(position);
  return STATUS_OK;
}

binder_status_t AParcel_writeInt32(AParcel* parcel, int32_t value) {
  Append(parcel, &value, sizeof(value));
  return STATUS_OK;
}
binder_status_t AParcel_readInt32(const AParcel* parcel, int32_t* value) { return Read(parcel, value); }

binder_status_t AParcel_writeBool(AParcel* parcel, bool value) { return AParcel_writeInt32(parcel, value ? 1 : 0); }
binder_status_t AParcel_readBool(const AParcel* parcel, bool* value) {
  int32_t number = 0;
  const binder_status_t status = Read(parcel, &number);
  if (status == STATUS_OK) *value = number != 0;
  return status;
}

binder_status_t AParcel_writeByte(AParcel* parcel, int8_t value) { return AParcel_writeInt32(parcel, value); }
binder_status_t AParcel_readByte(const AParcel* parcel, int8_t* value) {
  int32_t number = 0;
  const binder_status_t status = Read(parcel, &number);
  if (status == STATUS_OK) *value = static_cast<int8_t>(number);
  return status;
}

binder_status_t AParcel_writeString(AParcel* parcel, const char* string, int32_t length) {
  return WriteBytes(parcel, string, length);
}
binder_status_t AParcel_writeByteArray(AParcel* parcel, const int8_t* arrayData, int32_t length) {
  return WriteBytes(parcel, arrayData, length);
}

binder_status_t AParcel_readString(const AParcel* parcel, void* stringData, AParcel_stringAllocator allocator) {
  const uint8_t* bytes = nullptr;
  uint32_t size = 0;
  const binder_status_t status = ReadBytes(parcel, &bytes, &size);
  if (status != STATUS_OK) return status;
  char* buffer = nullptr;
  const bool taken = allocator(stringData, bytes == nullptr ? -1 : static_cast<int32_t>(size) + 1, &buffer);
  if (!taken) return bytes == nullptr ? STATUS_UNEXPECTED_NULL : STATUS_NO_MEMORY;
  if (bytes == nullptr) return STATUS_OK;
  std::copy_n(bytes, size, buffer);
  buffer[size] = '\0';
  return STATUS_OK;
}

binder_status_t AParcel_readByteArray(const AParcel* parcel, void* arrayData, AParcel_byteArrayAllocator allocator) {
  const uint8_t* bytes = nullptr;
  uint32_t size = 0;
  const binder_status_t status = ReadBytes(parcel, &bytes, &size);
  if (status != STATUS_OK) return status;
  int8_t* buffer = nullptr;
  const bool taken = allocator(arrayData, bytes == nullptr ? -1 : static_cast<int32_t>(size), &buffer);
  if (!taken) return bytes == nullptr ? STATUS_UNEXPECTED_NULL : STATUS_NO_MEMORY;
  if (bytes != nullptr) std::copy_n(bytes, size, reinterpret_cast<uint8_t*>(buffer));
  return STATUS_OK;
}

binder_status_t AParcel_writeStrongBinder(AParcel* parcel, AIBinder* binder) {
  const auto kind = static_cast<uint32_t>(ObjectKind::kNull);
  const uint64_t id = 0;
  const auto offset = static_cast<uint32_t>(parcel->data.size());
  Append(parcel, &kind, sizeof(kind));
  if (binder == nullptr) return STATUS_OK;
  Append(parcel, &id, sizeof(id));
  bthal::binder::WriteText(parcel, binder->Descriptor());
  AIBinder_incStrong(binder);
  parcel->objects.push_back({offset, ndk::SpAIBinder(binder)});
  return STATUS_OK;
}

binder_status_t AParcel_readStrongBinder(const AParcel* parcel, AIBinder** binder) {
  const size_t begin = parcel->position;
  const auto object = std::find_if(parcel->objects.begin(), parcel->objects.end(),
                                   [&](const AParcel::Object& candidate) { return candidate.offset == begin; });
  uint32_t kind = 0;
  binder_status_t status = Read(parcel, &kind);
  if (status != STATUS_OK) return status;
  *binder = nullptr;
  if (object == parcel->objects.end()) {
    if (kind == static_cast<uint32_t>(ObjectKind::kNull)) return STATUS_OK;
    parcel->position = begin;
    return STATUS_BAD_TYPE;
  }
  uint64_t id = 0;
  const uint8_t* descriptor = nullptr;
  uint32_t size = 0;
  status = Read(parcel, &id);
  if (status == STATUS_OK) status = ReadBytes(parcel, &descriptor, &size);
  if (status != STATUS_OK) return status;
  *binder = object->binder.get();
  AIBinder_incStrong(*binder);
  return STATUS_OK;
}

binder_status_t AParcel_writeStatusHeader(AParcel* parcel, const AStatus* status) {
  const binder_exception_t exception = status == nullptr ? EX_NONE : AStatus_getExceptionCode(status);
  // A failed transport is the caller's own finding; as an answer it is the outcome of the transaction instead.
  if (exception == EX_TRANSACTION_FAILED) return AStatus_getStatus(status);
  AParcel_writeInt32(parcel, exception);
  if (exception == EX_NONE) return STATUS_OK;
  const char* message = AStatus_getMessage(status);
  const binder_status_t result = AParcel_writeString(parcel, message, static_cast<int32_t>(strlen(message)));
  if (result != STATUS_OK || exception != EX_SERVICE_SPECIFIC) return result;
  return AParcel_writeInt32(parcel, AStatus_getServiceSpecificError(status));
}

binder_status_t AParcel_readStatusHeader(const AParcel* parcel, AStatus** status) {
  int32_t exception = EX_NONE;
  binder_status_t result = Read(parcel, &exception);
  if (result != STATUS_OK) return result;
  if (exception == EX_NONE) {
    *status = AStatus_newOk();
    return STATUS_OK;
  }
  const uint8_t* bytes = nullptr;
  uint32_t size = 0;
  result = ReadBytes(parcel, &bytes, &size);
  if (result != STATUS_OK) return result;
  const std::string message(reinterpret_cast<const char*>(bytes), bytes == nullptr ? 0 : size);
  if (exception != EX_SERVICE_SPECIFIC) {
    *status = AStatus_fromExceptionCodeWithMessage(exception, message.c_str());
    return STATUS_OK;
  }
  int32_t error = 0;
  result = Read(parcel, &error);
  if (result == STATUS_OK) *status = AStatus_fromServiceSpecificErrorWithMessage(error, message.c_str());
  return result;
}
