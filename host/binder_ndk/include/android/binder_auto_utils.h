// Owners of what the C functions hand out.
#pragma once

#include <android/binder_ibinder.h>
#include <android/binder_parcel.h>
#include <android/binder_status.h>

#include <fcntl.h>
#include <unistd.h>

#include <cstddef>
#include <string>
#include <utility>

#include <log/log.h>

namespace ndk {

// A strong reference to a binder object, or none.
class SpAIBinder {
 public:
  SpAIBinder() = default;
  explicit SpAIBinder(AIBinder* binder) : mBinder(binder) {}  // takes the caller's reference
  SpAIBinder(std::nullptr_t) {}                               // NOLINT(google-explicit-constructor)
  SpAIBinder(const SpAIBinder& other) { *this = other; }
  SpAIBinder(SpAIBinder&& other) noexcept : mBinder(std::exchange(other.mBinder, nullptr)) {}
  ~SpAIBinder() { set(nullptr); }

  SpAIBinder& operator=(const SpAIBinder& other) {
    if (this == &other) return *this;
    if (other.mBinder != nullptr) AIBinder_incStrong(other.mBinder);
    set(other.mBinder);
    return *this;
  }
  SpAIBinder& operator=(SpAIBinder&& other) noexcept {
    if (this != &other) set(std::exchange(other.mBinder, nullptr));
    return *this;
  }

  void set(AIBinder* binder) {
    AIBinder* old = *const_cast<AIBinder* volatile*>(&mBinder);
    if (old != nullptr) AIBinder_decStrong(old);
    LOG_ALWAYS_FATAL_IF(old != *const_cast<AIBinder* volatile*>(&mBinder), "Race detected.");
    mBinder = binder;
  }
  AIBinder* get() const { return mBinder; }
  // For functions that hand out a reference.
  AIBinder** getR() {
    set(nullptr);
    return &mBinder;
  }

  bool operator==(const SpAIBinder& other) const { return mBinder == other.mBinder; }
  bool operator!=(const SpAIBinder& other) const { return mBinder != other.mBinder; }
  bool operator<(const SpAIBinder& other) const { return mBinder < other.mBinder; }

 private:
  AIBinder* mBinder = nullptr;
};

namespace impl {

// Owns a T; DEFAULT is none. getR() is for functions that hand one out.
template <typename T, void (*Destroy)(T), T DEFAULT>
class ScopedAResource {
 public:
  ScopedAResource() = default;
  explicit ScopedAResource(T resource) : mT(resource) {}
  ScopedAResource(const ScopedAResource&) = delete;
  ScopedAResource& operator=(const ScopedAResource&) = delete;
  ScopedAResource(ScopedAResource&& other) noexcept : mT(other.release()) {}
  ScopedAResource& operator=(ScopedAResource&& other) noexcept {
    if (this != &other) set(other.release());
    return *this;
  }
  ~ScopedAResource() { set(DEFAULT); }

  T get() const { return mT; }
  void set(T resource) {
    if (mT != DEFAULT) Destroy(mT);
    mT = resource;
  }
  T* getR() {
    set(DEFAULT);
    return &mT;
  }
  T release() { return std::exchange(mT, DEFAULT); }

 private:
  T mT = DEFAULT;
};

inline void CloseDescriptor(int fd) { close(fd); }

}  // namespace impl

class ScopedAParcel : public impl::ScopedAResource<AParcel*, AParcel_delete, nullptr> {
 public:
  using ScopedAResource::ScopedAResource;
};

class ScopedAIBinder_DeathRecipient
    : public impl::ScopedAResource<AIBinder_DeathRecipient*, AIBinder_DeathRecipient_delete, nullptr> {
 public:
  using ScopedAResource::ScopedAResource;
};

class ScopedAIBinder_Weak : public impl::ScopedAResource<AIBinder_Weak*, AIBinder_Weak_delete, nullptr> {
 public:
  using ScopedAResource::ScopedAResource;
  SpAIBinder promote() const { return SpAIBinder(get() == nullptr ? nullptr : AIBinder_Weak_promote(get())); }
};

class ScopedFileDescriptor : public impl::ScopedAResource<int, impl::CloseDescriptor, -1> {
 public:
  using ScopedAResource::ScopedAResource;
  ScopedFileDescriptor dup() const { return ScopedFileDescriptor(get() < 0 ? -1 : fcntl(get(), F_DUPFD_CLOEXEC, 0)); }
};

// The outcome of a call.
class ScopedAStatus : public impl::ScopedAResource<AStatus*, AStatus_delete, nullptr> {
 public:
  using ScopedAResource::ScopedAResource;

  static ScopedAStatus ok() { return ScopedAStatus(AStatus_newOk()); }
  static ScopedAStatus fromExceptionCode(binder_exception_t exception) {
    return ScopedAStatus(AStatus_fromExceptionCode(exception));
  }
  static ScopedAStatus fromExceptionCodeWithMessage(binder_exception_t exception, const char* message) {
    return ScopedAStatus(AStatus_fromExceptionCodeWithMessage(exception, message));
  }
  static ScopedAStatus fromServiceSpecificError(int32_t error) {
    return ScopedAStatus(AStatus_fromServiceSpecificError(error));
  }
  static ScopedAStatus fromServiceSpecificErrorWithMessage(int32_t error, const char* message) {
    return ScopedAStatus(AStatus_fromServiceSpecificErrorWithMessage(error, message));
  }
  static ScopedAStatus fromStatus(binder_status_t status) { return ScopedAStatus(AStatus_fromStatus(status)); }

  // A status that was never set, as one moved from, is ok and without message.
  bool isOk() const { return get() == nullptr || AStatus_isOk(get()); }
  binder_exception_t getExceptionCode() const { return get() == nullptr ? EX_NONE : AStatus_getExceptionCode(get()); }
  int32_t getServiceSpecificError() const { return get() == nullptr ? 0 : AStatus_getServiceSpecificError(get()); }
  binder_status_t getStatus() const { return get() == nullptr ? STATUS_OK : AStatus_getStatus(get()); }
  const char* getMessage() const { return get() == nullptr ? "" : AStatus_getMessage(get()); }
  std::string getDescription() const {
    if (get() == nullptr) return "(ok)";
    const char* text = AStatus_getDescription(get());
    std::string description(text);
    AStatus_deleteDescription(text);
    return description;
  }
};

}  // namespace ndk
