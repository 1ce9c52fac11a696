// What an AParcel is made of.
#pragma once

#include <android/binder_auto_utils.h>
#include <android/binder_parcel.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

// Every item begins at a multiple of four bytes. A binder object is laid out as
//
//    0  u32 kind         0 null, else whose it is; set when it is sent, because that depends on the receiver
//    4  u64 id           of the object, in the table of the process it lives in
//   12  string           its class's interface descriptor
//
// A string or byte array is a u32 length in bytes (2^32 - 1: null) and the bytes, padded with zeros.
struct AParcel {
  struct Object {
    uint32_t offset;  // into `data`
    ndk::SpAIBinder binder;
  };

  std::vector<uint8_t> data;
  std::vector<Object> objects;  // those that are not null, by offset
  mutable size_t position = 0;  // of the next read
};

namespace bthal::binder {

// A parcel that is done with serves again, with the memory of its data: a thread keeps a few.
AParcel* TakeParcel();
void GiveParcelBack(AParcel* parcel);
struct ParcelGiver {
  void operator()(AParcel* parcel) const { GiveParcelBack(parcel); }
};
using ParcelPtr = std::unique_ptr<AParcel, ParcelGiver>;
inline ParcelPtr NewParcel() { return ParcelPtr(TakeParcel()); }

inline constexpr size_t kObjectKindOffset = 0;
inline constexpr size_t kObjectIdOffset = 4;
inline constexpr size_t kObjectDescriptorOffset = 12;

enum class ObjectKind : uint32_t {
  kNull = 0,
  kSenders = 1,    // lives in the process that sent it
  kReceivers = 2,  // comes home
};

void WriteText(AParcel* parcel, std::string_view text);
// Reads a string that is not null, and lives as long as the parcel's data; false when there is none where it stands.
bool ReadText(const AParcel& parcel, std::string_view* text);

// The length of a null string or array.
inline constexpr uint32_t kNullLength = UINT32_MAX;

}  // namespace bthal::binder
