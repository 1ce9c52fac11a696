#include "support/hal.h"

#include <android/binder_manager.h>
#include <android/binder_process.h>
#include <stdlib.h>

#include <chrono>
#include <filesystem>

namespace bthal::bench {

ndk::ScopedAStatus Client::initializationComplete(Status status) {
  initialized_ = status == Status::SUCCESS;
  initialized_.notify_all();
  return ndk::ScopedAStatus::ok();
}

ndk::ScopedAStatus Client::hciEventReceived(const Bytes& event) {
  if (on_event) on_event(event);
  Count();
  return ndk::ScopedAStatus::ok();
}

ndk::ScopedAStatus Client::aclDataReceived(const Bytes& /*data*/) {
  Count();
  return ndk::ScopedAStatus::ok();
}

// Who waits is woken once, not for every packet.
void Client::Count() {
  if (++packets_ == awaited_) packets_.notify_all();
}

void Client::WaitFor(uint64_t packets) {
  awaited_ = packets;
  for (uint64_t seen = packets_; seen < packets; seen = packets_) packets_.wait(seen);
}

std::string NewRoot() {
  std::string root = (std::filesystem::temp_directory_path() / "bthal-bench-XXXXXX").string();
  return mkdtemp(root.data()) == nullptr ? "" : root;
}

Hal::Hal(sim::BoardOptions options, std::vector<std::pair<std::string, std::string>> environment) : root_(NewRoot()) {
  setenv("BTHAL_ROOT", root_.c_str(), 1);
  options.root = root_;
  options.patch_records = 3;
  options.journal_data_bytes = 0;
  board_ = std::make_unique<sim::Board>(options);
  if (!board_->Start(&error_)) return;
  tool::SpawnOptions spawn;
  spawn.arguments = {SERVICE_PROGRAM};
  spawn.environment = std::move(environment);
  spawn.environment.emplace_back("BTHAL_LOG", "error");
  service_ = tool::Child::Spawn(spawn, &error_);
  const std::string instance = std::string(IBluetoothHci::descriptor) + "/default";
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
  while (hal_ == nullptr && error_.empty() && std::chrono::steady_clock::now() < deadline) {
    hal_ = IBluetoothHci::fromBinder(ndk::SpAIBinder(AServiceManager_checkService(instance.c_str())));
  }
  if (hal_ == nullptr && error_.empty()) error_ = "the service does not appear";
}

void Hal::Initialize() {
  if (!error_.empty()) return;
  ABinderProcess_startThreadPool();
  hal_->initialize(client_);
  if (!client_->initialized()) error_ = "the HAL could not be initialised";
}

Hal::~Hal() {
  if (hal_ != nullptr && client_->initialized()) hal_->close();
  service_.Kill();
  board_.reset();
  std::filesystem::remove_all(root_);
}

}  // namespace bthal::bench
