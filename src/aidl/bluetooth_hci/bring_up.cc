#define LOG_TAG "bthal.aidl.qnlbtlinux"

#include <atomic>
#include <chrono>
#include <string>
#include <thread>
#include <utility>

#include <android-base/logging.h>
#include <android-base/stringprintf.h>

#include "aidl/bluetooth_hci/bluetooth_hci.h"
#include "aidl/bluetooth_hci/callbacks.h"
#include "aidl/bluetooth_hci/client.h"
#include "aidl/bluetooth_hci/termination.h"
#include "bluetooth_Activity.h"
#include "bluetooth_bqr.h"
#include "btqnl_protocol/btqnl_protocol.h"
#include "coex_device/coex_device.h"
#include "conf/conf.h"
#include "debug_central/debug_central.h"
#include "hci_flow_control/debug_monitor.h"
#include "hci_flow_control/hci_channel.h"
#include "os/kill_self.h"
#include "shim/shim.h"
#include "thread/thread_dispatcher.h"

namespace android::hardware::bluetooth::aidl::qnlbtlinux {
namespace {

using ::aidl::android::hardware::bluetooth::Status;
using ::android::base::StringPrintf;
using coex_device::CoexDevice;
using V1_1::qnlbtlinux::debug::DebugMonitor;

constexpr int32_t kErrorInvalid = -22;
constexpr int kCoexOpenAttempts = 30;
constexpr std::chrono::milliseconds kCoexOpenPause{100};
// Nobody waits for the end of this one; it is only never to hang.
constexpr std::chrono::seconds kBigHammerLimit{10};
constexpr std::chrono::milliseconds kAtOnce{0};
constexpr std::chrono::milliseconds kClientPatience{1000};
// What a packet under way gets at the close of a controller that stays up; as much as a command gets for its answer.
constexpr std::chrono::seconds kSenderPatience{2};

// Counts the channels: what a receive thread of an earlier one still delivers is nobody's.
std::atomic<uint64_t> g_channel{0};

hci::HciPacketCallback OfChannel(uint64_t channel, void (*callback)(const hci::HciPacket&)) {
  return [channel, callback](const hci::HciPacket& packet) {
    if (channel == g_channel) callback(packet);
  };
}

::ndk::ScopedAStatus InitFailed() { return ::ndk::ScopedAStatus::fromServiceSpecificError(kErrorInvalid); }

}  // namespace

void BluetoothHci::StartInitThread(Turn turn, std::function<void(Turn&)> routine) {
  LifecycleLock* lifecycle = turn.release();
  const std::lock_guard lock(init_thread_mutex_);
  // Over a thread that nobody has joined this ends the process.
  init_thread_ = os::Thread::StartOrDie("bt_init", [lifecycle, routine = std::move(routine)] {
    Turn inherited(*lifecycle, std::adopt_lock);
    routine(inherited);
  });
}

void BluetoothHci::JoinInitThread() {
  os::Thread init_thread;
  {
    const std::lock_guard lock(init_thread_mutex_);
    init_thread = std::move(init_thread_);
  }
  if (!init_thread.joinable()) return;
  LOG(INFO) << "Init thread is running. Waiting for it to exit";
  init_thread.join();
  LOG(INFO) << "Init thread exited. Continue further processing";
}

void BluetoothHci::thread_perform_init(Turn& turn) {
  DebugCentral::Get().UpdateRecord(AnchorType::kServiceThread, __func__);
  LOG(INFO) << __func__;
  perform_init(turn);
}

::ndk::ScopedAStatus BluetoothHci::perform_init(Turn& turn) {
  LOG(INFO) << __func__;
  const DebugAnchor anchor(AnchorType::kPerformInit, __func__);
  if (hci_handle() != nullptr) return RefuseDoubleAttempt(turn);

  accelerated_ = conf::Config::GetInstance().IsAcceleratedBtOnSupported();
  DebugCentral::Get().SetNotifyCallback(NotifyCallback);
  if (!open_coex_dev()) {
    LOG(ERROR) << "Failed to open coex device";
    DebugCentral::Get().ReportBqrError(BqrErrorCode::kHostCoexDeviceOpenError, "Can't open coex device");
  }
  set_hci_handle(OpenChannel());
  const auto flow_control = hci_handle();
  if (flow_control == nullptr) {
    // The coexistence device stays open here: the next attempt uses it as it is.
    thread_dispatcher_.reset();
    TellFailedInit(turn, "InitializeHciHandle failed, calling kill", /*record_failed_call=*/false);
    return InitFailed();
  }
  DebugMonitor::Get().StartMonitor(flow_control.get());
  if (!BtQnlProtocol::GetInstacne().Initialize(flow_control.get())) {
    LOG(ERROR) << "Initialize() failed";
    DebugMonitor::Get().StopMonitor();
    hci::channel::Deinitialize();
    set_hci_handle(nullptr);
    thread_dispatcher_.reset();
    if (TellFailedInit(turn, "Calling kill due to an error", /*record_failed_call=*/true)) {
      CoexDevice::Get().DeviceClose();
    }
    return InitFailed();
  }
  setup_signal_handler();
  hci::channel::MarkReady();
  LOG(INFO) << __func__ << ": BTQNL controller is ready";
  DebugCentral::Get().UpdateRecord(AnchorType::kControllerReady,
                                   StringPrintf("%s: BTQNL controller is ready", __func__));
  BtActivitiesLogger::Get().StartLogging();
  BtBqrEnergyRecoder::Get().StartLogging();
  return ::ndk::ScopedAStatus::ok();
}

::ndk::ScopedAStatus BluetoothHci::RefuseDoubleAttempt(Turn& turn) {
  LOG(ERROR) << "perform_init: hci_handle != nullptr! -> Double attempt to initialize the HAL";
  if (const auto cb = ConnectedClient()) {
    if (!TellClient(turn, cb, Status::HARDWARE_INITIALIZATION_ERROR)) {
      LOG(ERROR) << "VendorInterface -> Unable to call initializationComplete(ERR)";
    }
  } else {
    LOG(ERROR) << "perform_init: Calling kill due to error";
    os::KillSelf();
  }
  return InitFailed();
}

hci::HciFlowControl* BluetoothHci::OpenChannel() {
  hci::HciPacketCallback thread_cb;
  if (thread_dispatcher_enabled_) {
    thread_dispatcher_ = std::make_shared<hci::ThreadDispatcher>();
    thread_dispatcher_started_ = false;
    // Shared with the receive thread, which may finish its work on a read after the transport has been closed on it.
    thread_cb = [dispatcher = thread_dispatcher_](const hci::HciPacket& packet) {
      ThreadCallback(packet, dispatcher.get());
    };
  }
  const uint64_t channel = ++g_channel;
  const hci::Consumers consumers{.event_cb = OfChannel(channel, EventCallback),
                                 .acl_cb = OfChannel(channel, AclCallback),
                                 .sco_cb = OfChannel(channel, ScoCallback),
                                 .iso_cb = OfChannel(channel, IsoCallback),
                                 .thread_cb = std::move(thread_cb),
                                 .more_to_come_cb = MoreToCome};
  return hci::channel::InitializeHciHandle(consumers, [] { BtQnlProtocol::GetInstacne().Shutdown(); });
}

// A client is told and forgotten; without one the process starts afresh.
bool BluetoothHci::TellFailedInit(Turn& turn, const char* kill_message, bool record_failed_call) {
  const uint64_t session = session_;
  const auto cb = ConnectedClient();
  if (cb == nullptr) {
    LOG(ERROR) << kill_message;
    os::KillSelf();
    return true;
  }
  if (!TellClient(turn, cb, Status::HARDWARE_INITIALIZATION_ERROR)) {
    LOG(ERROR) << "VendorInterface -> Unable to call initializationComplete(ERR)";
    if (record_failed_call) {
      DebugCentral::Get().UpdateRecord(AnchorType::kCallbackFailed,
                                       "perform_init: Unable to call initializationComplete(ERR)");
    }
  }
  if (session != session_) return false;
  ++session_;
  session_client_ = nullptr;
  DisconnectClient();
  return true;
}

void BluetoothHci::setup_signal_handler() {
  LOG(INFO) << __func__ << ":";
  LOG(INFO) << __func__ << ": sigaction(SIGTERM)";
  HandleSigterm([this](int signum) { Terminate(signum); });
}

bool BluetoothHci::open_coex_dev() {
  const int delay_ms = conf::Config::GetInstance().big_hammer_bt_reg_on_delay_ms;
  bool opened = false;
  int failures = 0;
  while (failures < kCoexOpenAttempts) {
    opened = CoexDevice::Get().DeviceOpen([this] { resetBtCallback(); }, delay_ms) >= 0;
    if (opened) break;
    ++failures;
    std::this_thread::sleep_for(kCoexOpenPause);
  }
  LOG(INFO) << StringPrintf("%s: return ret (%d), count:%d", __func__, opened, failures);
  DebugCentral::Get().UpdateRecord(
      AnchorType::kCoexDeviceOpen,
      StringPrintf("%s, open the coex device (%s), count:%d", __func__, opened ? "Success" : "Failed", failures));
  return opened;
}

// The coexistence driver resets the whole chip. On its poll thread, which ends in the restart of the process whatever
// happens here: whoever has the turn just now is not waited for, nor is a client that blocks the receive thread.
void BluetoothHci::resetBtCallback() {
  LOG(ERROR) << "resetBtCallback called";
  DebugCentral::Get().UpdateRecord(AnchorType::kBigHammer, StringPrintf("%s Big Hammer Occurred", __func__));
  const TerminationDeadline deadline(kBigHammerLimit);
  const Turn turn(lifecycle_, std::try_to_lock);
  if (!turn.owns_lock()) {
    LOG(WARNING) << __func__ << ": the HAL is being opened or closed, left as it is";
    return;
  }
  closeHci(kAtOnce);
}

// Whatever follows at a close may wait for a sender, and so never ends behind one whose bytes the controller does not
// take.
void BluetoothHci::FreeTheLine() {
  const bool stays_open = accelerated_ && hci::shim::IsUserialReady();
  if (stays_open && hci::shim::WaitForSenders(kSenderPatience)) return;
  hci::shim::TakeLineAway();
}

void BluetoothHci::closeHci(std::chrono::milliseconds patience) {
  LOG(INFO) << __func__;
  hci::shim::TakeLineAway(patience);
  BtQnlProtocol::GetInstacne().Shutdown();
  DebugMonitor::Get().StopMonitor();
  BtActivitiesLogger::Get().StopLogging();
  BtBqrEnergyRecoder::Get().StopLogging();
  StopThreadDispatcher();
  hci::channel::Deinitialize(patience);
  LOG(INFO) << __func__ << ": hci_handle_ = nullptr";
  set_hci_handle(nullptr);
  thread_dispatcher_.reset();
}

void BluetoothHci::perform_close() {
  DebugCentral::Get().UpdateRecord(AnchorType::kPerformClose, __func__);
  LOG(INFO) << __func__;
  closeHci(kClientPatience);
  CoexDevice::Get().DeviceClose();
}

void BluetoothHci::StopThreadDispatcher() {
  if (thread_dispatcher_ == nullptr || !thread_dispatcher_started_) return;
  thread_dispatcher_started_ = false;
  thread_dispatcher_->OnBluetoothDisabled();
}

}  // namespace android::hardware::bluetooth::aidl::qnlbtlinux
