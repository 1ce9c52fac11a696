// Calls to a client that travel together, where Binder is the host's own.
#pragma once

#ifndef __ANDROID__
#include <host/call_batch.h>
#else
#include <android/binder_auto_utils.h>

#include <optional>
#include <utility>
#include <vector>
#endif

namespace android::hardware::bluetooth::os {

#ifndef __ANDROID__
using ::bthal::host::CallBatch;
#else
// The platform's Binder takes one call at a time: none is ever kept.
class CallBatch {
 public:
  template <typename F>
  std::optional<ndk::ScopedAStatus> Keep(AIBinder* /*target*/, F&& function) {
    return std::forward<F>(function)();
  }
  const std::vector<ndk::ScopedAStatus>& Send() { return outcomes_; }
  void Abandon() {}

 private:
  const std::vector<ndk::ScopedAStatus> outcomes_;
};
#endif

}  // namespace android::hardware::bluetooth::os
