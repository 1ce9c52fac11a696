// Calls that travel to another process together.
#pragma once

#include <android/binder_auto_utils.h>

#include <cstddef>
#include <memory>
#include <optional>
#include <utility>
#include <vector>

namespace bthal::host {

// Many small calls in a row cost two changes of process each. A batch keeps them, sends them in one go and waits for
// all their answers. The other process serves them one after the other, in their order; a call that it makes from
// within one of them runs on the thread that waits here, as with a single call.
//
// One thread's, but for Abandon.
class CallBatch {
 public:
  struct Kept;

  CallBatch();
  CallBatch(const CallBatch&) = delete;
  CallBatch& operator=(const CallBatch&) = delete;
  ~CallBatch();

  // Runs `function`, which makes one call of `target`. Where the call can be kept, it is not made: it returns Ok, and
  // so nothing is returned here. Otherwise it is made, and what it returned is. A call can be kept that goes to another
  // process, the same as those kept already, takes and gives no objects, and is made on behalf of none of that
  // process's own calls.
  template <typename F>
  std::optional<::ndk::ScopedAStatus> Keep(AIBinder* target, F&& function) {
    const Keeping keeping(*this, target);
    ::ndk::ScopedAStatus outcome = std::forward<F>(function)();
    if (keeping.HasKept()) return std::nullopt;
    return outcome;
  }

  // How many are kept.
  size_t size() const;

  // Makes the calls that were kept, and leaves none. Returns how each went, valid until the next Send. What was
  // abandoned went wrong, with STATUS_INVALID_OPERATION.
  const std::vector<::ndk::ScopedAStatus>& Send();

  // During or before a Send, from any thread: of its calls none is begun from now on. Those that have begun are waited
  // for as before. Waits for nothing.
  void Abandon();

 private:
  // While it lives, this thread's calls of `target` are kept.
  class Keeping {
   public:
    Keeping(CallBatch& batch, AIBinder* target);
    Keeping(const Keeping&) = delete;
    Keeping& operator=(const Keeping&) = delete;
    ~Keeping();
    bool HasKept() const { return batch_.size() != before_; }

   private:
    CallBatch& batch_;
    const size_t before_;
  };

  const std::unique_ptr<Kept> kept_;
};

}  // namespace bthal::host
