#define LOG_TAG "bthal.aidl.qnlbtlinux"

#include "aidl/bluetooth_hci/bluetooth_hci.h"

#include <android/binder_ibinder.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <future>
#include <memory>
#include <string>
#include <thread>
#include <utility>

#include <android-base/logging.h>
#include <android-base/properties.h>
#include <android-base/stringprintf.h>

#include "aidl/bluetooth_hci/client.h"
#include "aidl/bluetooth_hci/controller_activity_watcher.h"
#include "aidl/bluetooth_hci/diagnostics.h"
#include "aidl/bluetooth_hci/termination.h"
#include "aidl/bluetooth_pof.h"
#include "btqnl_protocol/bluetooth_address.h"
#include "btqnl_protocol/btqnl_protocol.h"
#include "conf/conf.h"
#include "debug_central/debug_central.h"
#include "os/kill_self.h"
#include "shim/shim.h"
#include "thread/thread_dispatcher.h"
#include "vnd_snoop_logger.h"

namespace android::hardware::bluetooth::aidl::qnlbtlinux {
namespace {

using ::aidl::android::hardware::bluetooth::Status;
using ::android::base::StringPrintf;
using ::vendor::tovani::bluetooth_ext::finder::aidl::implementation::BluetoothFinder;

constexpr int32_t kErrorInvalid = -22;
constexpr std::chrono::seconds kSelfKillDelay{1};
// How long the refused caller's own call waits for what it is told: no longer than the process lives.
constexpr std::chrono::milliseconds kRefusalPatience{200};

bool IsAlive(const std::shared_ptr<IBluetoothHciCallbacks>& cb) {
  return cb != nullptr && AIBinder_isAlive(cb->asBinder().get());
}

// A caller that has died while it waited is nobody: neither a client nor a second one.
::ndk::ScopedAStatus IgnoreDeadCaller() {
  LOG(WARNING) << "initialize_impl: the caller has died meanwhile, nothing to initialize";
  return ::ndk::ScopedAStatus::ok();
}

}  // namespace

BluetoothHci::BluetoothHci()
    : command_type_(static_cast<uint8_t>(hci::HciPacketType::kCommand)),
      acl_type_(static_cast<uint8_t>(hci::HciPacketType::kAclData)),
      sco_type_(static_cast<uint8_t>(hci::HciPacketType::kScoData)),
      iso_type_(static_cast<uint8_t>(hci::HciPacketType::kIsoData)) {
  activity_watcher_ = ::ndk::SharedRefBase::make<activitywatcher::ControllerActivityWatcher>();
  LOG(INFO) << __func__;
  activity_watcher_->initialize();
  RegisterDiagnostics();
  death_recipient_ = std::make_shared<BluetoothDeathRecipient>(this);
  const conf::Config& config = conf::Config::GetInstance();
  thread_dispatcher_enabled_ = config.IsThreadDispatcherEnabled();
  LOG(INFO) << StringPrintf("%s: [bthal.thread_dispatcher] Thread Dispatcher enabled: %d", __func__,
                            thread_dispatcher_enabled_);
  if (config.IsAcceleratedBtOnSupported()) {
    StartInitThread(Turn(lifecycle_), [this](Turn& turn) { thread_perform_init(turn); });
  }
}

BluetoothHci::~BluetoothHci() {
  ForgetSigterm();
  JoinInitThread();
  const Turn turn(lifecycle_);
  JoinExtensionThread();
  perform_close();
}

::ndk::ScopedAStatus BluetoothHci::initialize(const std::shared_ptr<IBluetoothHciCallbacks>& callbacks) {
  return initialize_impl(callbacks);
}

::ndk::ScopedAStatus BluetoothHci::initialize_impl(const std::shared_ptr<IBluetoothHciCallbacks>& cb) {
  LOG(INFO) << __func__;
  const DebugAnchor anchor(AnchorType::kInitializeImpl, __func__);
  if (cb == nullptr) {
    LOG(ERROR) << "cb == nullptr! -> Unable to call initializationComplete(ERR)";
    return ::ndk::ScopedAStatus::fromServiceSpecificError(kErrorInvalid);
  }
  JoinInitThread();
  // Before waiting for a turn: the first client's initialize may have it for seconds.
  if (IsAlive(ConnectedClient())) return RefuseSecondClient(cb);

  Turn turn(lifecycle_);
  JoinInitThread();  // the one whose bring-up this call has been waiting for
  if (IsAlive(ConnectedClient())) {
    turn.unlock();
    return RefuseSecondClient(cb);
  }
  if (!IsAlive(cb)) return IgnoreDeadCaller();
  EndDeadSession();
  OpenSession(cb);
  const uint64_t session = session_;
  if (!PrepareController(turn)) return ::ndk::ScopedAStatus::ok();
  if (!IsAlive(cb)) {
    AbandonDeadCaller(std::move(turn));
    return IgnoreDeadCaller();
  }
  WatchClient(cb);
  if (const auto flow_control = hci_handle()) hci::ApplyProvisionBDAddress(flow_control.get());
  serving_ = true;
  if (!TellClient(turn, cb, Status::SUCCESS)) {
    LOG(ERROR) << "VendorInterface -> Unable to call initializationComplete(ERR)";
    DebugCentral::Get().UpdateRecord(AnchorType::kCallbackFailed,
                                     StringPrintf("%s: Unable to call initializationComplete(ERR)", __func__));
  }
  // The client may have closed from inside that call, or died.
  if (session == session_) FinishInitialize();
  LOG(INFO) << "BluetoothHci::initialize() completed";
  return ::ndk::ScopedAStatus::ok();
}

// Two stacks in one device are a fault that only a fresh start of both sides mends.
::ndk::ScopedAStatus BluetoothHci::RefuseSecondClient(const std::shared_ptr<IBluetoothHciCallbacks>& cb) {
  if (!IsAlive(cb)) return IgnoreDeadCaller();
  LOG(ERROR) << "initialize_impl: already initialized, don't allow multiple clients to initialize the HAL";
  // On a thread of its own: a client that does not return from this call delays nothing.
  const auto told = std::make_shared<std::promise<void>>();
  os::Thread::StartOrDie("bt_refuse", [cb, told] {
    cb->initializationComplete(Status::ALREADY_INITIALIZED);
    told->set_value();
  }).detach();
  LOG(ERROR) << "initialize_impl: make hal crash for recovering caller's abnormal behavior!";
  static std::atomic<bool> dying{false};
  if (!dying.exchange(true)) os::Thread::StartOrDie("bt_self_kill", thread_perform_self_kill).detach();
  told->get_future().wait_for(kRefusalPatience);
  return ::ndk::ScopedAStatus::ok();
}

void BluetoothHci::thread_perform_self_kill() {
  DebugCentral::Get().UpdateRecord(AnchorType::kServiceThread, __func__);
  LOG(INFO) << __func__;
  std::this_thread::sleep_for(kSelfKillDelay);
  LOG(INFO) << __func__ << " self kill";
  os::KillSelf();
}

// A client's successor may come before the notice of its death does.
void BluetoothHci::EndDeadSession() {
  if (session_client_ == nullptr) return;
  serving_ = false;
  DisconnectClient();
  session_client_ = nullptr;
  hci::shim::TakeLineAway();
  stopVarneHalExtensions();
  perform_close();
}

// The controller is up, but nobody is left to have it. With accelerated Bluetooth-on it is brought up anew for the
// next.
void BluetoothHci::AbandonDeadCaller(Turn turn) {
  EndDeadSession();
  if (!conf::Config::GetInstance().IsAcceleratedBtOnSupported()) return;
  StartInitThread(std::move(turn), [this](Turn& init_turn) { thread_perform_init(init_turn); });
}

void BluetoothHci::OpenSession(const std::shared_ptr<IBluetoothHciCallbacks>& cb) {
  ++session_;
  session_client_ = cb;
  ConnectClient(cb);
  VndSnoopLogger::Get().Start();
}

bool BluetoothHci::PrepareController(Turn& turn) {
  if (!accelerated_ || !hci::shim::IsUserialReady()) return perform_init(turn).isOk();
  if (!BtQnlProtocol::GetInstacne().AcceleratedReset()) {
    LOG(ERROR) << "initialize_impl: Accelerated Init failed";
    DebugCentral::Get().ReportBqrError(BqrErrorCode::kHostAccelatedBtInitFailed, "Accelerated Init failed");
  }
  return true;
}

void BluetoothHci::WatchClient(const std::shared_ptr<IBluetoothHciCallbacks>& cb) {
  death_recipient_->linkToDeath(cb);
  unlink_cb_ = [cb](BluetoothDeathRecipient& death_recipient) {
    if (!death_recipient.has_died()) {
      death_recipient.unlinkToDeath(cb);
      return;
    }
    LOG(INFO) << "Skipping unlink call, service died.";
    DebugCentral::Get().UpdateRecord(AnchorType::kUnlinkSkipped, "operator(): Skipping unlink call, service died");
  };
}

void BluetoothHci::FinishInitialize() {
  JoinExtensionThread();
  extension_thread_ = os::Thread::StartOrDie("bt_extensions", [this] { startVarneHalExtensions(); });
  const auto flow_control = hci_handle();
  if (BluetoothFinder* finder = BluetoothFinder::GetInstance()) finder->OnBluetoothEnabled(flow_control.get());
  if (!thread_dispatcher_enabled_) return;
  LOG(INFO) << "startThreadDispatcher: [bthal.thread_dispatcher] Enabling Thread Dispatcher.";
  if (thread_dispatcher_ == nullptr) return;
  thread_dispatcher_started_ = true;
  thread_dispatcher_->OnBluetoothEnabled(flow_control.get());
}

bool BluetoothHci::TellClient(Turn& turn, const std::shared_ptr<IBluetoothHciCallbacks>& cb, Status status) {
  turn.unlock();
  const bool told = cb->initializationComplete(status).isOk();
  turn.lock();
  return told;
}

::ndk::ScopedAStatus BluetoothHci::close() {
  if (!IsCallingClient()) return CloseSession(Turn(lifecycle_));
  // From inside a packet callback, on the receive thread. Whoever has the turn may be waiting for that thread, so the
  // close then waits for its turn elsewhere, for as long as it is this client's.
  Turn turn(lifecycle_, std::try_to_lock);
  if (turn.owns_lock()) return CloseSession(std::move(turn));
  os::Thread::StartOrDie("bt_close", [self = ref<BluetoothHci>(), session = session_.load()] {
    Turn later_turn(self->lifecycle_);
    if (session == self->session_) self->CloseSession(std::move(later_turn));
  }).detach();
  return ::ndk::ScopedAStatus::ok();
}

::ndk::ScopedAStatus BluetoothHci::CloseSession(Turn turn) {
  DebugCentral::Get().UpdateRecord(AnchorType::kClose, "close");
  LOG(INFO) << "BluetoothHci::close()";
  if (!unlink_cb_) LOG(FATAL) << "BluetoothHci::close() called before any initialize() succeeded";
  unlink_cb_(*death_recipient_);
  serving_ = false;
  ++session_;
  session_client_ = nullptr;
  FreeTheLine();
  stopVarneHalExtensions();
  if (thread_dispatcher_enabled_) {
    LOG(INFO) << "stopThreadDispatcher: [bthal.thread_dispatcher] Disabling Thread Dispatcher.";
    StopThreadDispatcher();
  }
  if (!accelerated_ || !hci::shim::IsUserialReady()) {
    perform_close();
  } else if (IsCallingClient()) {
    // The client closes from inside a packet callback: the receive thread waits for us and could not read the answer to
    // the reset. Another thread finishes the close, and keeps our turn until it has.
    DisconnectClient();
    StartInitThread(std::move(turn), [this](Turn&) {
      AcceleratedClose();
      FinishClose();
    });
    return ::ndk::ScopedAStatus::ok();
  } else {
    AcceleratedClose();
  }
  FinishClose();
  return ::ndk::ScopedAStatus::ok();
}

void BluetoothHci::AcceleratedClose() {
  if (BtQnlProtocol::GetInstacne().AcceleratedReset()) return;
  LOG(ERROR) << "Accelerated shutdown failed";
  DebugCentral::Get().ReportBqrError(BqrErrorCode::kHostAccelatedBtShutdownFailed, "Accelerated shutdown failed");
}

void BluetoothHci::FinishClose() {
  DisconnectClient();
  VndSnoopLogger::Get().Stop();
  LOG(INFO) << "BluetoothHci::close() Done";
}

void BluetoothHci::OnClientDied(const std::shared_ptr<IBluetoothHciCallbacks>& dead) {
  if (DisconnectClient(dead)) serving_ = false;
  const std::string shutdown = ::android::base::GetProperty("sys.shutdown.requested", "");
  LOG(ERROR) << "BluetoothDeathRecipient::serviceDied - shutdown = " << shutdown;
  if (!shutdown.empty()) {
    LOG(ERROR) << "BluetoothDeathRecipient::serviceDied - skipped re-init during device shutting down.";
    return;
  }
  Turn turn(lifecycle_);
  if (session_client_ != dead) return;  // it had closed, or its successor has come already
  if (!accelerated_) {
    CloseSession(std::move(turn));
    return;
  }
  ++session_;
  session_client_ = nullptr;
  hci::shim::TakeLineAway();
  stopVarneHalExtensions();
  perform_close();
  // Asked anew: the fallback to the direct UART switches accelerated Bluetooth-on off for good.
  if (!conf::Config::GetInstance().IsAcceleratedBtOnSupported()) return;
  StartInitThread(std::move(turn), [this](Turn& init_turn) { thread_perform_init(init_turn); });
}

binder_status_t BluetoothHci::dump(int fd, const char** /*args*/, uint32_t /*num_args*/) {
  LOG(INFO) << __func__ << ": Dump debug log";
  DebugCentral::Get().Dump(fd);
  fsync(fd);  // fails on a pipe, where there is nothing to do
  return STATUS_OK;
}

std::shared_ptr<hci::HciFlowControl> BluetoothHci::hci_handle() const {
  const std::lock_guard lock(handle_mutex_);
  return hci_handle_.lock();
}

void BluetoothHci::set_hci_handle(hci::HciFlowControl* flow_control) {
  const std::lock_guard lock(handle_mutex_);
  hci_handle_ = hci::MakeHandle(flow_control);
}

}  // namespace android::hardware::bluetooth::aidl::qnlbtlinux
