// What interfaces, the objects that implement them (BnCInterface) and their proxies (BpCInterface) are built on.
#pragma once

#include <android/binder_auto_utils.h>
#include <android/binder_ibinder.h>

#include <memory>
#include <mutex>
#include <utility>

#include <log/log.h>

namespace ndk {

// An object that is owned by shared pointers and can hand one out itself. Made with SharedRefBase::make only.
class SharedRefBase {
 public:
  SharedRefBase() = default;
  virtual ~SharedRefBase() {
    std::call_once(mMade, [] { LOG_ALWAYS_FATAL("SharedRefBase: no ref created during lifetime"); });
  }
  SharedRefBase(const SharedRefBase&) = delete;
  SharedRefBase& operator=(const SharedRefBase&) = delete;

  // A shared pointer to this object; null once its destruction has begun.
  std::shared_ptr<SharedRefBase> ref() {
    std::shared_ptr<SharedRefBase> self = mThis.lock();
    std::call_once(mMade, [&] {
      self.reset(this);
      mThis = self;
    });
    return self;
  }
  template <typename CHILD>
  std::shared_ptr<CHILD> ref() {
    return std::static_pointer_cast<CHILD>(ref());
  }

  template <class T, class... Args>
  static std::shared_ptr<T> make(Args&&... args) {
    // NOLINTNEXTLINE(clang-analyzer-cplusplus.NewDeleteLeaks): the first call of ref() makes the object's owner
    return (new T(std::forward<Args>(args)...))->template ref<T>();
  }

 private:
  std::once_flag mMade;
  std::weak_ptr<SharedRefBase> mThis;
};

class ICInterface : public SharedRefBase {
 public:
  // The object to send to other processes; for a proxy, the one it stands for.
  virtual SpAIBinder asBinder() = 0;
  virtual bool isRemote() = 0;
  // Writes a report for people to `fd`, which belongs to the caller.
  virtual binder_status_t dump(int /*fd*/, const char** /*args*/, uint32_t /*numArgs*/) { return STATUS_OK; }

  // The implementation behind a local binder object made by a BnCInterface; null for a remote or a foreign one.
  static inline std::shared_ptr<ICInterface> asInterface(AIBinder* binder);
  // A class whose objects are BnCInterfaces.
  static inline AIBinder_Class* defineClass(const char* interfaceDescriptor, AIBinder_Class_onTransact onTransact);

 private:
  // A binder object owns its implementation through one of these.
  struct UserData {
    std::shared_ptr<ICInterface> interface;

    static void* onCreate(void* args) { return new UserData{static_cast<ICInterface*>(args)->ref<ICInterface>()}; }
    static void onDestroy(void* userData) { delete static_cast<UserData*>(userData); }
    static binder_status_t onDump(AIBinder* binder, int fd, const char** args, uint32_t numArgs) {
      return static_cast<UserData*>(AIBinder_getUserData(binder))->interface->dump(fd, args, numArgs);
    }
  };
};

std::shared_ptr<ICInterface> ICInterface::asInterface(AIBinder* binder) {
  void* data = AIBinder_getUserData(binder);
  return data == nullptr ? nullptr : static_cast<UserData*>(data)->interface;
}

AIBinder_Class* ICInterface::defineClass(const char* interfaceDescriptor, AIBinder_Class_onTransact onTransact) {
  AIBinder_Class* clazz =
      AIBinder_Class_define(interfaceDescriptor, UserData::onCreate, UserData::onDestroy, onTransact);
  AIBinder_Class_setOnDump(clazz, UserData::onDump);
  return clazz;
}

// The local side. The binder object owns this one as long as anybody refers to it, and is made anew when asked for
// again.
template <typename INTERFACE>
class BnCInterface : public INTERFACE {
 public:
  SpAIBinder asBinder() final {
    const std::lock_guard lock(mMutex);
    SpAIBinder binder = mWeakBinder.promote();
    if (binder.get() == nullptr) {
      binder = createBinder();
      mWeakBinder.set(AIBinder_Weak_new(binder.get()));
    }
    return binder;
  }
  bool isRemote() override { return false; }

 protected:
  virtual SpAIBinder createBinder() = 0;

 private:
  std::mutex mMutex;
  ScopedAIBinder_Weak mWeakBinder;
};

// The remote side.
template <typename INTERFACE>
class BpCInterface : public INTERFACE {
 public:
  explicit BpCInterface(const SpAIBinder& binder) : mBinder(binder) {}
  SpAIBinder asBinder() final { return mBinder; }
  const SpAIBinder& asBinderReference() const { return mBinder; }
  bool isRemote() override { return AIBinder_isRemote(mBinder.get()); }
  binder_status_t dump(int fd, const char** args, uint32_t numArgs) override {
    return AIBinder_dump(mBinder.get(), fd, args, numArgs);
  }

 private:
  SpAIBinder mBinder;
};

}  // namespace ndk
