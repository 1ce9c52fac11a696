// The sensor hub dies at random moments, of bring-up, use and teardown, and stays away for a while or too long. The
// service recovers or falls back, as its settings say, and the next client is served. HUB_DEATHS=N dies N times.
#include <iostream>
#include <random>

#include <android/binder_process.h>

#include "support/board_session.h"
#include "support/test.h"

namespace bthal::test {
namespace {

constexpr int kDeaths = 6;
constexpr int kAttempts = 4;
constexpr milliseconds kMoments(700);
constexpr milliseconds kShortlyAway(300);
constexpr milliseconds kTooLongAway(2500);
const Bytes kReadLocalVersion = {0x01, 0x10, 0x00};

class HubDeathsTest : public BoardSessionTest {
 protected:
  // Whether a service, started as often as it dies, comes to serve a client.
  bool Serve(int attempts) {
    for (int attempt = 0; attempt < attempts; ++attempt) {
      hal_.reset();
      client_ = ndk::SharedRefBase::make<RecordingCallbacks>();
      StartService("info");
      if (!service_->WaitUntilPublished()) continue;
      hal_ = FindService<::aidl::android::hardware::bluetooth::IBluetoothHci>();
      if (hal_ == nullptr || !hal_->initialize(client_).isOk()) continue;
      if (WaitFor([&] { return !client_->Statuses().empty() || !service_->IsAlive(); }) && Works()) return true;
    }
    return false;
  }

  bool Works() {
    const size_t before = client_->Events().size();
    return hal_->sendHciCommand(kReadLocalVersion).isOk() &&
           WaitFor([&] { return client_->Events().size() > before || !service_->IsAlive(); }) && service_->IsAlive();
  }

  milliseconds Below(milliseconds limit) {
    return milliseconds(static_cast<int64_t>(random_() % static_cast<uint64_t>(limit.count())));
  }

  std::mt19937_64 random_{GTEST_FLAG_GET(random_seed) != 0 ? static_cast<uint64_t>(GTEST_FLAG_GET(random_seed)) : 11};
};

TEST_F(HubDeathsTest, IsRecoveredFromOrFallenBackAsWritten) {
  root_.Write("/vendor/etc/bluetooth/bt_vendor_overlay.conf",
              "MaxUsfRecoveryTimeInSeconds = 1\nMinUsfDisconnectionIntervalInSeconds = 0\n");
  sim::BoardOptions options = SmallBoard();
  options.hub = true;
  options.journal_data_bytes = 65536;
  StartBoard(options);
  ABinderProcess_startThreadPool();
  const char* wanted = getenv("HUB_DEATHS");
  const int deaths = wanted == nullptr ? kDeaths : atoi(wanted);
  int fallen_back = 0;
  for (int death = 0; death < deaths; ++death) {
    const bool too_long = death % 5 == 4;
    const milliseconds moment = Below(kMoments);
    const milliseconds away = too_long ? kTooLongAway : Below(kShortlyAway);
    SCOPED_TRACE("death " + std::to_string(death) + ", after " + std::to_string(moment.count()) + " ms, for " +
                 std::to_string(away.count()) + " ms");
    Accelerate(death % 2 == 0);
    std::thread killer([&] {
      std::this_thread::sleep_for(moment);
      board_->RestartHub(away);
    });
    // Used until it dies, or long enough to have noticed; every third is closed meanwhile.
    if (Serve(kAttempts) && death % 3 == 2) (void)hal_->close().isOk();
    killer.join();
    const auto noticed = steady_clock::now() + milliseconds(50);
    while (death % 3 != 2 && steady_clock::now() < noticed && Works()) {
    }
    ASSERT_TRUE(Serve(kAttempts)) << service_->Log();
    const bool fallback = GetProperty("bluetooth.uart.fallback", "") == "true";
    EXPECT_EQ(fallback, GetProperty("bluetooth.usf.dead", "") == "true");
    if (fallback) {
      EXPECT_TRUE(too_long);
      EXPECT_EQ(GetProperty("persist.bluetooth.disable.accelerate.bt.on", ""), "true");
      ++fallen_back;
      SetProperty("bluetooth.uart.fallback", "false");
      SetProperty("bluetooth.usf.dead", "false");
    }
    EXPECT_EQ(GetProperty("bluetooth.usf.dead", "false"), "false");
    service_.reset();
    ASSERT_TRUE(WaitFor([&] { return std::filesystem::exists(root_.Below("/run/bthal/sensor-hub")); }));
  }
  std::cout << deaths << " deaths, fallen back after " << fallen_back << '\n';
}

}  // namespace
}  // namespace bthal::test
