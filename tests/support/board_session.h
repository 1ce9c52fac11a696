// The real service on a virtual board, and a client in the test's process.
#pragma once

#include "support/board_journal.h"
#include "support/hal_client.h"
#include "support/service_harness.h"
#include "support/test.h"

namespace bthal::test {

// Whether Bluetooth-on is accelerated: the controller comes up with the service, not for each client.
void Accelerate(bool on);

// Steps of a session, each of which fails the test when it does not succeed: use ASSERT_NO_FATAL_FAILURE where what
// follows needs it.
class BoardSessionTest : public ::testing::Test {
 protected:
  // A board with a short patch, on the test's own root; `options.root` is set here.
  static sim::BoardOptions SmallBoard(std::vector<std::string> faults = {});
  void StartBoard(sim::BoardOptions options = SmallBoard());
  void AddFault(const std::string& fault);

  // Starts the service; its log holds `log_level` and above.
  void StartService(const std::string& log_level = "verbose");
  // Waits for its Binder name, so that it can be called.
  void FindHal();
  // From starting the service to initializationComplete(SUCCESS) at `client_`.
  void OpenSession(const std::string& log_level = "verbose");
  void Initialize();

  // Sends a command and waits for the event after it; false when none comes.
  bool Exchange(const Bytes& command);

  TempRoot root_;
  std::unique_ptr<Board> board_;
  std::unique_ptr<ServiceProcess> service_;
  std::shared_ptr<RecordingCallbacks> client_ = ndk::SharedRefBase::make<RecordingCallbacks>();
  std::shared_ptr<::aidl::android::hardware::bluetooth::IBluetoothHci> hal_;
};

}  // namespace bthal::test
