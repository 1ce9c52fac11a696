#define LOG_TAG "bthal.debug_central"

#include "debug_central/debug_central.h"

#include <algorithm>
#include <utility>

#include <android-base/logging.h>
#include <android-base/stringprintf.h>

#include "conf/conf.h"
#include "conf/properties.h"
#include "hci/hci_command.h"

namespace android::hardware::bluetooth::V1_1::qnlbtlinux::debug {
namespace {

using ::android::base::StringPrintf;

constexpr char kScopeBegins[] = " [ IN]";
constexpr char kScopeEnds[] = " [OUT]";

constexpr char kUartLogBufferPrefix[] = "/dev/logbuffer_tty";
constexpr std::string_view kTty = "tty";

}  // namespace

DebugCentral& DebugCentral::Get() {
  static auto& central = *new DebugCentral;
  return central;
}

void DebugCentral::RegisterDumpSource(DumpSection section, DumpSource source) {
  dump_sources_.emplace_back(section, std::move(source));
}

void DebugCentral::SetHooks(DebugHooks hooks) { hooks_ = std::move(hooks); }

void DebugCentral::UpdateRecord(AnchorType type, std::string_view text) { Append(type, text, {}); }

void DebugCentral::Append(AnchorType type, std::string_view text, std::string_view suffix) {
  const std::lock_guard lock(mutex_);
  records_.Append(type, std::chrono::system_clock::now(), text, suffix);
}

void DebugCentral::HasClientConnectWith(bool has_client) {
  has_client_ = has_client;
  LOG(INFO) << StringPrintf("%s: has_client: %d", __func__, has_client);
}

void DebugCentral::SetBtUartDebugPort(const std::string& port) {
  if (port.empty()) {
    LOG(ERROR) << __func__ << ": uart port is empty!";
    return;
  }
  const size_t tty = port.rfind(kTty);
  if (tty == std::string::npos) {
    LOG(ERROR) << __func__ << ": cannot found uart port!";
    return;
  }
  const std::string debug_port = kUartLogBufferPrefix + port.substr(tty + kTty.size());
  LOG(INFO) << StringPrintf("%s: serial debug port: %s", __func__, debug_port.c_str());
  const std::lock_guard lock(mutex_);
  uart_debug_port_ = debug_port;
}

std::string DebugCentral::uart_debug_port() const {
  const std::lock_guard lock(mutex_);
  return uart_debug_port_;
}

void DebugCentral::SetNotifyCallback(NotifyCallback callback) {
  const std::lock_guard lock(mutex_);
  notify_cb_.swap(callback);
}

bool DebugCentral::IsControllerDebugDumpOpcode(const hci::HciPacket& command) {
  if (hci::ReadOpcode(command, 0) != hci::kOpcodeDebugInformation) return false;
  const std::string text = StringPrintf("%s: Sending Controller Debug Info command!", __func__);
  LOG(INFO) << text;
  UpdateRecord(AnchorType::kDebugInfoCommand, text);
  return true;
}

bool DebugCentral::hw_stage_firmware_no_longer_supported() const {
  const auto& unsupported = conf::Config::GetInstance().hw_stages_with_old_chip_fw_no_longer_supported;
  return std::find(unsupported.begin(), unsupported.end(), conf::HardwareStage()) != unsupported.end();
}

DebugAnchor::DebugAnchor(AnchorType type, std::string_view text, DebugCentral& central)
    : type_(type), length_(std::min(text.size(), kMaxText)), central_(&central) {
  std::copy_n(text.data(), length_, text_.data());
  central_->Append(type_, this->text(), kScopeBegins);
}

DebugAnchor::DebugAnchor(DebugAnchor&& other) noexcept
    : type_(other.type_), length_(other.length_), central_(std::exchange(other.central_, nullptr)) {
  std::copy_n(other.text_.data(), length_, text_.data());
}

DebugAnchor::~DebugAnchor() {
  if (central_ != nullptr) central_->Append(type_, text(), kScopeEnds);
}

}  // namespace android::hardware::bluetooth::V1_1::qnlbtlinux::debug
