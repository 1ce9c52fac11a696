#include "chre/hub_requests.h"

#include "chre/hub_message.h"

namespace android::hardware::bluetooth::hci::hub {

uint32_t HubRequests::Add(const char* request, std::chrono::milliseconds patience, bool waited) {
  const std::lock_guard lock(mutex_);
  do {
    ++last_id_;
  } while (last_id_ == 0 || requests_.contains(last_id_));
  requests_[last_id_] = {request, patience, waited, Clock::now() + patience, false, std::nullopt};
  return last_id_;
}

std::optional<Refusal> HubRequests::Await(uint32_t id) {
  std::unique_lock lock(mutex_);
  const auto found = requests_.find(id);
  if (found == requests_.end()) return std::nullopt;
  Request& request = found->second;
  while (!request.ended) {
    if (suspended_) {
      changed_.wait(lock);
    } else if (changed_.wait_until(lock, request.deadline) == std::cv_status::timeout && !suspended_ &&
               Clock::now() >= request.deadline && !request.ended) {
      request.ended = true;
      request.failure = BqrErrorCode::kChreUsfOperationTimedOutError;
    }
  }
  std::optional<Refusal> refusal;
  if (request.failure) refusal = {request.name, *request.failure};
  requests_.erase(found);
  return refusal;
}

void HubRequests::Forget(uint32_t id) {
  const std::lock_guard lock(mutex_);
  requests_.erase(id);
}

std::optional<Refusal> HubRequests::OnReply(uint32_t id, uint8_t status) {
  const std::lock_guard lock(mutex_);
  const auto found = requests_.find(id);
  if (found == requests_.end() || found->second.ended) {
    ++stray_replies_;
    return std::nullopt;
  }
  Request& request = found->second;
  if (status != 0) request.failure = ErrorKind(status);
  if (request.waited) {
    request.ended = true;
    changed_.notify_all();
    return std::nullopt;
  }
  std::optional<Refusal> refusal;
  if (request.failure) refusal = {request.name, *request.failure};
  requests_.erase(found);
  return refusal;
}

std::optional<Refusal> HubRequests::Overdue() {
  const std::lock_guard lock(mutex_);
  if (suspended_) return std::nullopt;
  const Clock::time_point now = Clock::now();
  for (auto at = requests_.begin(); at != requests_.end(); ++at) {
    if (at->second.waited || now < at->second.deadline) continue;
    const Refusal refusal{at->second.name, BqrErrorCode::kChreUsfOperationTimedOutError};
    requests_.erase(at);
    return refusal;
  }
  return std::nullopt;
}

bool HubRequests::HasUnawaited() const {
  const std::lock_guard lock(mutex_);
  for (const auto& [id, request] : requests_) {
    if (!request.waited) return true;
  }
  return false;
}

void HubRequests::Suspend() {
  const std::lock_guard lock(mutex_);
  suspended_ = true;
  changed_.notify_all();
}

void HubRequests::Resume() {
  const std::lock_guard lock(mutex_);
  suspended_ = false;
  for (auto& [id, request] : requests_) request.deadline = Clock::now() + request.patience;
  changed_.notify_all();
}

void HubRequests::FailAll(BqrErrorCode kind) {
  const std::lock_guard lock(mutex_);
  for (auto at = requests_.begin(); at != requests_.end();) {
    Request& request = at->second;
    if (!request.waited) {
      at = requests_.erase(at);
      continue;
    }
    if (!request.ended) request.failure = kind;
    request.ended = true;
    ++at;
  }
  suspended_ = false;
  changed_.notify_all();
}

uint64_t HubRequests::StrayReplies() const {
  const std::lock_guard lock(mutex_);
  return stray_replies_;
}

}  // namespace android::hardware::bluetooth::hci::hub
