// The real service on a virtual board, and a client in the test's process.
#pragma once

#include <aidl/android/hardware/bluetooth/IBluetoothHci.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "sim/board.h"
#include "support/hal_client.h"
#include "support/service_harness.h"
#include "support/temp_root.h"

namespace bthal::test {

// Steps of a session, each of which fails the test when it does not succeed: use ASSERT_NO_FATAL_FAILURE where what
// follows needs it.
class BoardSessionTest : public ::testing::Test {
 protected:
  // A board with a short patch, on the test's own root; `options.root` is set here.
  static sim::BoardOptions SmallBoard();
  void StartBoard(sim::BoardOptions options);

  // Starts the service; its log holds `log_level` and above.
  void StartService(const std::string& log_level = "verbose");
  // Waits for its Binder name, so that it can be called.
  void FindHal();
  // From starting the service to initializationComplete(SUCCESS) at `client_`.
  void OpenSession(const std::string& log_level = "verbose");

  // Sends a command and waits for the event after it; false when none comes.
  bool Exchange(const Bytes& command);

  TempRoot root_;
  std::unique_ptr<sim::Board> board_;
  std::unique_ptr<ServiceProcess> service_;
  std::shared_ptr<RecordingCallbacks> client_ = ndk::SharedRefBase::make<RecordingCallbacks>();
  std::shared_ptr<::aidl::android::hardware::bluetooth::IBluetoothHci> hal_;
};

}  // namespace bthal::test
