// What every interface of this tree has in common: the two sides of its calls. An interface lists its methods in the
// order of its AIDL file; the place in that list is the transaction code.
#pragma once

#include <android/binder_interface_utils.h>
#include <android/binder_parcel_utils.h>

#include <memory>
#include <tuple>
#include <type_traits>

namespace bthal::host {

template <typename I, typename... Args>
using Method = ::ndk::ScopedAStatus (I::*)(Args...);

// Reads the arguments of one method, calls it, and writes its outcome.
template <typename I, typename... Args>
binder_status_t Serve(I& object, Method<I, Args...> method, const AParcel* in, AParcel* out) {
  std::tuple<std::decay_t<Args>...> values{};
  binder_status_t status = STATUS_OK;
  [[maybe_unused]] const auto read = [&](auto* value) {
    if (status == STATUS_OK) status = ::ndk::AParcel_readData(in, value);
  };
  std::apply([&](auto&... value) { (read(&value), ...); }, values);
  if (status != STATUS_OK) return status;
  const ::ndk::ScopedAStatus outcome = std::apply([&](auto&... value) { return (object.*method)(value...); }, values);
  return AParcel_writeStatusHeader(out, outcome.get());
}

template <auto... METHODS>
struct Methods {
  template <auto METHOD>
  static constexpr transaction_code_t Code() {
    static_assert((IsSame<METHOD, METHODS>() || ...));
    transaction_code_t code = FIRST_CALL_TRANSACTION;
    static_cast<void>(((IsSame<METHOD, METHODS>() || (++code, false)) || ...));
    return code;
  }

  template <typename I>
  static binder_status_t Dispatch([[maybe_unused]] I& object, [[maybe_unused]] transaction_code_t code,
                                  [[maybe_unused]] const AParcel* in, [[maybe_unused]] AParcel* out) {
    binder_status_t status = STATUS_UNKNOWN_TRANSACTION;
    static_cast<void>(((code == Code<METHODS>() && (status = Serve(object, METHODS, in, out), true)) || ...));
    return status;
  }

 private:
  template <auto A, auto B>
  static constexpr bool IsSame() {
    return std::is_same_v<std::integral_constant<decltype(A), A>, std::integral_constant<decltype(B), B>>;
  }
};

// The binder class of interface I, one per process.
template <typename I>
AIBinder_Class* ClassOf() {
  static AIBinder_Class* clazz = ::ndk::ICInterface::defineClass(
      I::descriptor, [](AIBinder* binder, transaction_code_t code, const AParcel* in, AParcel* out) {
        const auto object = std::static_pointer_cast<I>(::ndk::ICInterface::asInterface(binder));
        return I::Methods::Dispatch(*object, code, in, out);
      });
  return clazz;
}

// An object that implements I derives from this.
template <typename I>
class Stub : public ::ndk::BnCInterface<I> {
 protected:
  ::ndk::SpAIBinder createBinder() override {
    return ::ndk::SpAIBinder(AIBinder_new(ClassOf<I>(), static_cast<::ndk::ICInterface*>(this)));
  }
};

// The proxy of an object elsewhere derives from this.
template <typename I>
class Proxy : public ::ndk::BpCInterface<I> {
 public:
  using ::ndk::BpCInterface<I>::BpCInterface;

 protected:
  template <auto METHOD, typename... Args>
  ::ndk::ScopedAStatus Call(const Args&... args) {
    AIBinder* binder = this->asBinderReference().get();
    ::ndk::ScopedAParcel in;
    ::ndk::ScopedAParcel out;
    binder_status_t status = AIBinder_prepareTransaction(binder, in.getR());
    [[maybe_unused]] const auto write = [&](const auto& value) {
      if (status == STATUS_OK) status = ::ndk::AParcel_writeData(in.get(), value);
    };
    (write(args), ...);
    AParcel* request = in.release();
    if (status == STATUS_OK) {
      status = AIBinder_transact(binder, I::Methods::template Code<METHOD>(), &request, out.getR(), 0);
    }
    in.set(request);
    ::ndk::ScopedAStatus outcome;
    if (status == STATUS_OK) status = AParcel_readStatusHeader(out.get(), outcome.getR());
    return status == STATUS_OK ? std::move(outcome) : ::ndk::ScopedAStatus::fromStatus(status);
  }
};

// The interface of a binder object: its implementation when it lives in this process, a PROXY otherwise; null when the
// object is null or of another interface.
template <typename I, typename PROXY>
std::shared_ptr<I> FromBinder(const ::ndk::SpAIBinder& binder) {
  if (!AIBinder_associateClass(binder.get(), ClassOf<I>())) return nullptr;
  const auto local = ::ndk::ICInterface::asInterface(binder.get());
  if (local != nullptr) return std::static_pointer_cast<I>(local);
  return ::ndk::SharedRefBase::make<PROXY>(binder);
}

}  // namespace bthal::host
