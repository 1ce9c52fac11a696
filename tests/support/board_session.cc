#include "support/board_session.h"

#include <android/binder_process.h>

#include <utility>

#include "support/wait_for.h"

namespace bthal::test {

using HalStatus = ::aidl::android::hardware::bluetooth::Status;

sim::BoardOptions BoardSessionTest::SmallBoard() {
  sim::BoardOptions options;
  options.patch_records = 3;
  return options;
}

void BoardSessionTest::StartBoard(sim::BoardOptions options) {
  options.root = root_.path();
  board_ = std::make_unique<sim::Board>(std::move(options));
  std::string error;
  ASSERT_TRUE(board_->Start(&error)) << error;
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
  ASSERT_TRUE(hal_->initialize(client_).isOk());
  ASSERT_TRUE(client_->WaitForStatus(HalStatus::SUCCESS));
}

bool BoardSessionTest::Exchange(const Bytes& command) {
  const size_t before = client_->Events().size();
  return hal_->sendHciCommand(command).isOk() && WaitFor([&] { return client_->Events().size() > before; });
}

}  // namespace bthal::test
