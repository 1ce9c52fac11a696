#define LOG_TAG "bthal.usf"

#include "chre/hub_connection.h"

#include <string>
#include <utility>
#include <vector>

#include <android-base/logging.h>

#include "conf/conf.h"
#include "os/error_text.h"
#include "os/log_throttle.h"

namespace android::hardware::bluetooth::hci::hub {
namespace {

using State = HubRecovery::State;
using std::chrono::milliseconds;

constexpr auto kNextTry = milliseconds(50);
constexpr auto kTickInterval = milliseconds(500);

std::chrono::seconds RecoveryTime() {
  return std::chrono::seconds(conf::Config::GetInstance().max_usf_recovery_time_s);
}

}  // namespace

State HubConnection::state() const {
  const std::lock_guard lock(mutex_);
  return recovery_.state();
}

bool HubConnection::IsUp() const { return state() == State::kUp; }

bool HubConnection::StartLocked(bool insist) {
  stop_ = false;
  running_ = true;
  thread_ = os::Thread::Start("bt_hub", [this, insist] { Run(insist); });
  if (thread_.joinable()) return true;
  running_ = false;
  LOG(ERROR) << "no thread for the sensor hub's connection: " << os::ErrorText();
  return false;
}

bool HubConnection::Establish() {
  std::unique_lock lock(mutex_);
  const auto settled = [this] { return !running_ || recovery_.state() == State::kUp; };
  // A try in the background may be under way, and give up sooner than is wanted here.
  changed_.wait(lock, settled);
  if (recovery_.state() != State::kUp && !HubRecovery::IsDead() && StartLocked(true)) changed_.wait(lock, settled);
  return recovery_.state() == State::kUp;
}

void HubConnection::EstablishInBackground() {
  const std::lock_guard lock(mutex_);
  if (!running_ && !HubRecovery::IsDead()) StartLocked(false);
}

void HubConnection::GiveUp() {
  os::Thread ending;
  {
    const std::lock_guard lock(mutex_);
    stop_ = true;
    ending = std::move(thread_);
    changed_.notify_all();
  }
  link_->Interrupt();
  if (ending.joinable()) ending.join();
}

bool HubConnection::AwaitUp(const std::atomic<bool>& give_up) {
  std::unique_lock lock(mutex_);
  while ((recovery_.state() == State::kLost || telling_) && !give_up) changed_.wait_for(lock, kGiveUpInterval);
  return recovery_.state() == State::kUp && !give_up;
}

bool HubConnection::Send(std::span<const uint8_t> message, milliseconds patience, const std::atomic<bool>& give_up) {
  return link_->Send(message, patience, give_up);
}

void HubConnection::Tick() {
  if (!ticking_.exchange(true)) link_->Interrupt();
}

void HubConnection::Run(bool insist) {
  while (Connect(insist)) {
    if (!Read()) break;
    insist = true;
  }
  link_->Disconnect();
  const std::lock_guard lock(mutex_);
  recovery_.GivenUp();
  running_ = false;
  if (thread_.joinable()) thread_.detach();  // nobody waits for it
  changed_.notify_all();
}

bool HubConnection::Connect(bool insist) {
  const bool lost = state() == State::kLost;
  const auto until = lost ? lost_until_ : Clock::now() + (insist ? RecoveryTime() : std::chrono::seconds(0));
  std::string why;
  for (;;) {
    const HubLink::Connected connected = link_->Connect(&why);
    if (connected == HubLink::Connected::kYes) {
      OnConnected();
      return true;
    }
    if (connected == HubLink::Connected::kNever || !WaitForNextTry(until)) break;
  }
  if (stop_) return false;
  LOG(insist ? ::android::base::ERROR : ::android::base::DEBUG) << why;
  // Not for a mere look whether there is one.
  if (lost || (insist && HubRecovery::WasLost())) Die();
  return false;
}

bool HubConnection::WaitForNextTry(Clock::time_point until) {
  std::unique_lock lock(mutex_);
  if (Clock::now() >= until) return false;
  return !changed_.wait_until(lock, std::min(until, Clock::now() + kNextTry), [this] { return stop_.load(); });
}

void HubConnection::OnConnected() {
  const bool renewed = state() == State::kLost;
  LOG(INFO) << (renewed ? "the sensor hub is back" : "connected to the sensor hub");
  if (renewed) listener_.on_back(true);
  const std::lock_guard lock(mutex_);
  recovery_.Connected();
  changed_.notify_all();
}

bool HubConnection::Read() {
  std::vector<uint8_t> message;
  while (!stop_) {
    std::optional<milliseconds> timeout;
    const bool lost = state() == State::kLost;
    if (ticking_ || lost) timeout = kTickInterval;
    if (lost) timeout = std::min(*timeout, std::chrono::ceil<milliseconds>(lost_until_ - Clock::now()));
    switch (link_->Wait(&message, timeout)) {
      case HubLink::Event::kMessage:
        OnMessage(message);
        break;
      case HubLink::Event::kTooLarge:
        OnMessage({});
        break;
      case HubLink::Event::kHungUp:
        LOG(ERROR) << "the sensor hub has hung up";
        link_->Disconnect();
        return lost || Lose();
      case HubLink::Event::kTimeout:
      case HubLink::Event::kInterrupted:
        break;
    }
    if (state() == State::kDead) return false;
    if (lost && state() == State::kLost && Clock::now() >= lost_until_) {
      Die();
      return false;
    }
    if (ticking_) listener_.on_tick();
  }
  return false;
}

void HubConnection::OnMessage(std::span<const uint8_t> message) {
  const auto decoded = Decode(message);
  if (!decoded) {
    ++nonsense_;
    static os::LogThrottle throttle;
    throttle.Log(LOG_TAG, ::android::base::ERROR, [&] {
      return "the sensor hub sent what is no message of its, " + std::to_string(message.size()) + " bytes";
    });
    return;
  }
  if (!OnConnectionEvent(*decoded)) listener_.on_message(*decoded);
}

// An event that does not fit the state says that somebody has lost count.
bool HubConnection::OnConnectionEvent(const FromHub& event) {
  const bool lost = state() == State::kLost;
  if (std::holds_alternative<ConnectionLost>(event)) {
    if (lost) {
      listener_.on_message(BrokenConnectionEvent{});
    } else {
      LOG(ERROR) << "the sensor hub has lost its connection";
      Lose();
    }
    return true;
  }
  if (!std::holds_alternative<ConnectionBack>(event)) return false;
  if (!lost) {
    listener_.on_message(BrokenConnectionEvent{});
    return true;
  }
  LOG(INFO) << "the sensor hub has its connection back";
  {
    const std::lock_guard lock(mutex_);
    recovery_.Connected();
    changed_.notify_all();
  }
  listener_.on_back(false);
  return true;
}

bool HubConnection::Lose() {
  lost_until_ = Clock::now() + RecoveryTime();
  {
    const std::lock_guard lock(mutex_);
    recovery_.Lost(Now());
    telling_ = recovery_.state() == State::kDead;
  }
  listener_.on_lost();
  if (state() != State::kDead) return true;
  TellOfDeath();
  return false;
}

void HubConnection::Die() {
  {
    const std::lock_guard lock(mutex_);
    recovery_.TooLate();
    telling_ = true;
  }
  TellOfDeath();
}

void HubConnection::TellOfDeath() {
  listener_.on_dead();
  const std::lock_guard lock(mutex_);
  telling_ = false;
  changed_.notify_all();
}

}  // namespace android::hardware::bluetooth::hci::hub
