// Parcels that serve again.
#include <array>
#include <utility>

#include "parcel.h"

namespace bthal::binder {
namespace {

// Calls that came together, and as many as two calls, one from within the other, take besides.
constexpr size_t kKeptParcels = 16 + 4;
// Of what is larger, the memory is not kept.
constexpr size_t kKeptBytes = 4096;

// A thread's own. Has no destructor, so that it is there for parcels that go with the thread's other objects.
struct Spares {
  std::array<AParcel*, kKeptParcels> parcels;
  size_t count;
  bool closed;  // the thread is ending
};
thread_local Spares t_spares{};

struct Closer {
  Closer() = default;
  Closer(const Closer&) = delete;
  Closer& operator=(const Closer&) = delete;
  ~Closer() {
    t_spares.closed = true;
    while (t_spares.count != 0) delete t_spares.parcels[--t_spares.count];
  }
  void Arm() const {}
};
thread_local const Closer t_closer;

}  // namespace

AParcel* TakeParcel() { return t_spares.count == 0 ? new AParcel : t_spares.parcels[--t_spares.count]; }

void GiveParcelBack(AParcel* parcel) {
  if (parcel == nullptr) return;
  parcel->objects.clear();  // may run foreign code, which may take and give parcels
  if (t_spares.closed || t_spares.count == kKeptParcels) {
    delete parcel;
    return;
  }
  t_closer.Arm();
  parcel->data.clear();
  if (parcel->data.capacity() > kKeptBytes) parcel->data.shrink_to_fit();
  parcel->position = 0;
  t_spares.parcels[t_spares.count++] = parcel;
}

}  // namespace bthal::binder
