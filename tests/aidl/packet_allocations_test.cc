// A packet costs no memory: once the buffers have found their size, neither direction allocates.
#include <aidl/android/hardware/bluetooth/BnBluetoothHciCallbacks.h>

#include <cstdlib>
#include <new>

#include "aidl/bluetooth_hci/bluetooth_hci.h"
#include "aidl/bluetooth_hci/callbacks.h"
#include "aidl/bluetooth_hci/client.h"
#include "hci_flow_control/hci_channel.h"
#include "support/board_session.h"
#include "support/pty.h"
#include "support/test.h"

namespace {

std::atomic<bool> g_counting{false};
std::atomic<int> g_allocations{0};

}  // namespace

#ifndef BTHAL_SANITIZED  // the sanitizers bring operators of their own
void* operator new(size_t size) {
  if (g_counting.load(std::memory_order_relaxed)) ++g_allocations;
  if (void* memory = malloc(size == 0 ? 1 : size)) return memory;
  throw std::bad_alloc();
}
void operator delete(void* memory) noexcept { free(memory); }
void operator delete(void* memory, size_t) noexcept { free(memory); }
#endif

namespace android::hardware::bluetooth::aidl::qnlbtlinux {
namespace {

using namespace ::bthal::test;

class CountingClient : public ::aidl::android::hardware::bluetooth::BnBluetoothHciCallbacks {
 public:
  ndk::ScopedAStatus initializationComplete(::aidl::android::hardware::bluetooth::Status) override {
    return ndk::ScopedAStatus::ok();
  }
  ndk::ScopedAStatus hciEventReceived(const std::vector<uint8_t>&) override { return Count(); }
  ndk::ScopedAStatus aclDataReceived(const std::vector<uint8_t>&) override { return Count(); }
  ndk::ScopedAStatus scoDataReceived(const std::vector<uint8_t>&) override { return Count(); }
  ndk::ScopedAStatus isoDataReceived(const std::vector<uint8_t>&) override { return Count(); }

  void WaitFor(int packets) {
    for (int seen = packets_; seen < packets; seen = packets_) packets_.wait(seen);
  }

 private:
  ndk::ScopedAStatus Count() {
    ++packets_;
    packets_.notify_one();
    return ndk::ScopedAStatus::ok();
  }

  std::atomic<int> packets_{0};
};

// What a round sends up: a completion, an advertising report, credits, and data of three kinds.
constexpr std::array<uint8_t, 58> kUp = {
    4, 0x0E, 4,    1,  0x03, 0x0C, 0,                           // of the command that the round sends
    4, 0x3E, 12,   2,  1,    3,    0, 1, 2, 3, 4, 5, 6, 0, 60,  // LE Advertising Report
    4, 0x13, 5,    1,  0x40, 0,    1, 0,                        // Number Of Completed Packets
    2, 0x40, 0x20, 10, 0,    1,    2, 3, 4, 5, 6, 7, 8, 9, 10,  // ACL
    3, 0x41, 0,    3,  1,    2,    3,                           // SCO
    5, 0x42, 0,    1,  0,    9,                                 // ISO
};
constexpr int kPacketsUp = 6;

TEST(PacketAllocationsTest, NeitherDirectionAllocates) {
#ifdef BTHAL_SANITIZED
  GTEST_SKIP() << "a sanitizer's allocations cannot be counted";
#endif
  constexpr int kWarmUp = 700;  // the debug record keeps some hundred texts
  constexpr int kRounds = 300;
  constexpr std::array<uint8_t, 3> kReset = {0x03, 0x0C, 0x00};
  const std::vector<uint8_t> acl = {0x40, 0x00, 2, 0, 1, 2};
  const std::vector<uint8_t> command(kReset.begin(), kReset.end());

  ::android::base::SetMinimumLogSeverity(::android::base::WARNING);
  const TempRoot root;
  const Pty uart;
  ASSERT_EQ(symlink(uart.host_path().c_str(), root.Below("/dev/ttySAC16").c_str()), 0);
  const auto client = ndk::SharedRefBase::make<CountingClient>();
  ConnectClient(client);
  Accelerate(false);
  const auto idle = ndk::SharedRefBase::make<BluetoothHci>();  // serves nobody: its packets end behind the record
  hci::HciFlowControl* const flow =
      hci::channel::InitializeHciHandle({EventCallback, AclCallback, ScoCallback, IsoCallback, nullptr, MoreToCome});
  ASSERT_NE(flow, nullptr);

  std::array<uint8_t, 64> wire;
  for (int round = 1; round <= kWarmUp + kRounds; ++round) {
    g_counting = round > kWarmUp;
    idle->sendHciCommand(command);
    idle->sendAclData(acl);
    flow->Send(2, acl.data(), acl.size());
    flow->Send(1, kReset.data(), kReset.size());
    size_t left = 2 + acl.size() + kReset.size();
    while (left != 0) {
      const ssize_t count = read(uart.controller(), wire.data(), left);
      ASSERT_GT(count, 0);
      left -= static_cast<size_t>(count);
    }
    ASSERT_EQ(write(uart.controller(), kUp.data(), kUp.size()), static_cast<ssize_t>(kUp.size()));
    client->WaitFor(round * kPacketsUp);
  }
  g_counting = false;
  EXPECT_EQ(g_allocations, 0) << "in " << kRounds << " rounds of " << kPacketsUp << " packets up and 4 down";
  hci::channel::Deinitialize();
  DisconnectClient();
}

}  // namespace
}  // namespace android::hardware::bluetooth::aidl::qnlbtlinux
