#include "support/board_session.h"

#include <android/binder_process.h>

namespace bthal::test {

void Accelerate(bool on) { SetProperty("persist.bluetooth.disable.accelerate.bt.on", on ? "false" : "true"); }

sim::BoardOptions BoardSessionTest::SmallBoard(std::vector<std::string> faults) {
  sim::BoardOptions options;
  options.patch_records = 3;
  options.faults = std::move(faults);
  return options;
}

void BoardSessionTest::StartBoard(sim::BoardOptions options) {
  options.root = root_.path();
  board_ = std::make_unique<Board>(std::move(options));
  std::string error;
  ASSERT_TRUE(board_->Start(&error)) << error;
}

void BoardSessionTest::AddFault(const std::string& fault) {
  std::string error;
  ASSERT_TRUE(board_->AddFault(fault, &error)) << error;
}

void BoardSessionTest::StartService(const std::string& log_level) {
  service_.reset();  // the one before, before its successor takes its place
  service_ = std::make_unique<ServiceProcess>(SERVICE_PROGRAM, root_.path(), log_level);
}

void BoardSessionTest::FindHal() {
  ASSERT_TRUE(service_->WaitUntilPublished());
  ABinderProcess_startThreadPool();
  hal_ = FindService<::aidl::android::hardware::bluetooth::IBluetoothHci>();
  ASSERT_NE(hal_, nullptr);
}

void BoardSessionTest::OpenSession(const std::string& log_level) {
  StartService(log_level);
  ASSERT_NO_FATAL_FAILURE(FindHal());
  Initialize();
}

void BoardSessionTest::Initialize() {
  ASSERT_TRUE(hal_->initialize(client_).isOk());
  ASSERT_TRUE(client_->WaitForStatus(HalStatus::SUCCESS));
}

bool BoardSessionTest::Exchange(const Bytes& command) {
  const size_t before = client_->Events().size();
  return hal_->sendHciCommand(command).isOk() && WaitFor([&] { return client_->Events().size() > before; });
}

}  // namespace bthal::test
