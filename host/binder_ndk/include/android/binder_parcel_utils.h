// Reading and writing the types of the interfaces by overload.
#pragma once

#include <android/binder_auto_utils.h>
#include <android/binder_interface_utils.h>
#include <android/binder_parcel.h>

#include <algorithm>
#include <array>
#include <memory>
#include <type_traits>
#include <vector>

namespace ndk {

inline binder_status_t AParcel_writeData(AParcel* parcel, bool value) { return AParcel_writeBool(parcel, value); }
inline binder_status_t AParcel_readData(const AParcel* parcel, bool* value) { return AParcel_readBool(parcel, value); }

inline binder_status_t AParcel_writeData(AParcel* parcel, int8_t value) { return AParcel_writeByte(parcel, value); }
inline binder_status_t AParcel_readData(const AParcel* parcel, int8_t* value) {
  return AParcel_readByte(parcel, value);
}

inline binder_status_t AParcel_writeData(AParcel* parcel, int32_t value) { return AParcel_writeInt32(parcel, value); }
inline binder_status_t AParcel_readData(const AParcel* parcel, int32_t* value) {
  return AParcel_readInt32(parcel, value);
}

// Enumerations are backed by int32_t.
template <typename E, typename = std::enable_if_t<std::is_enum_v<E>>>
binder_status_t AParcel_writeData(AParcel* parcel, E value) {
  return AParcel_writeInt32(parcel, static_cast<int32_t>(value));
}
template <typename E, typename = std::enable_if_t<std::is_enum_v<E>>>
binder_status_t AParcel_readData(const AParcel* parcel, E* value) {
  static_assert(std::is_same_v<std::underlying_type_t<E>, int32_t>);
  int32_t number = 0;
  const binder_status_t status = AParcel_readInt32(parcel, &number);
  if (status == STATUS_OK) *value = static_cast<E>(number);
  return status;
}

// byte[]
inline binder_status_t AParcel_writeData(AParcel* parcel, const std::vector<uint8_t>& bytes) {
  return AParcel_writeByteArray(parcel, reinterpret_cast<const int8_t*>(bytes.data()),
                                static_cast<int32_t>(std::min<size_t>(bytes.size(), INT32_MAX)));
}
inline binder_status_t AParcel_readData(const AParcel* parcel, std::vector<uint8_t>* bytes) {
  return AParcel_readByteArray(parcel, bytes, [](void* data, int32_t length, int8_t** buffer) {
    if (length < 0) return false;
    auto* vector = static_cast<std::vector<uint8_t>*>(data);
    vector->resize(static_cast<size_t>(length));
    *buffer = reinterpret_cast<int8_t*>(vector->data());
    return true;
  });
}

// byte[N]
template <size_t N>
binder_status_t AParcel_writeData(AParcel* parcel, const std::array<uint8_t, N>& bytes) {
  return AParcel_writeByteArray(parcel, reinterpret_cast<const int8_t*>(bytes.data()), static_cast<int32_t>(N));
}
template <size_t N>
binder_status_t AParcel_readData(const AParcel* parcel, std::array<uint8_t, N>* bytes) {
  std::vector<uint8_t> any;
  const binder_status_t status = AParcel_readData(parcel, &any);
  if (status != STATUS_OK) return status;
  if (any.size() != N) return STATUS_BAD_VALUE;
  std::copy(any.begin(), any.end(), bytes->begin());
  return STATUS_OK;
}

// Interfaces; null crosses as null.
template <typename I, typename = std::enable_if_t<std::is_base_of_v<ICInterface, I>>>
binder_status_t AParcel_writeData(AParcel* parcel, const std::shared_ptr<I>& interface) {
  return AParcel_writeStrongBinder(parcel, interface == nullptr ? nullptr : interface->asBinder().get());
}
template <typename I, typename = std::enable_if_t<std::is_base_of_v<ICInterface, I>>>
binder_status_t AParcel_readData(const AParcel* parcel, std::shared_ptr<I>* interface) {
  SpAIBinder binder;
  const binder_status_t status = AParcel_readStrongBinder(parcel, binder.getR());
  if (status != STATUS_OK) return status;
  *interface = I::fromBinder(binder);
  // An object of another interface must not pass for none.
  return *interface == nullptr && binder.get() != nullptr ? STATUS_BAD_TYPE : STATUS_OK;
}

}  // namespace ndk
