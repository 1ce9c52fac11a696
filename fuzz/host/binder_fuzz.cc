// A peer's bytes, whatever they are, against a served object: once read by the pool, once by a thread that stays, once
// by one that waits for an answer. The peer hangs up at the end, so that nothing waits for more.
#include <aidl/android/hardware/bluetooth/BnBluetoothHci.h>
#include <android/binder_manager.h>
#include <fcntl.h>
#include <stdlib.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <utility>
#include <vector>

#include <android-base/logging.h>
#include <android-base/unique_fd.h>

#include "connection/connection.h"
#include "process.h"

namespace {

using android::base::unique_fd;
using bthal::binder::Connection;
using bthal::binder::Sockets;
using ::ndk::ScopedAStatus;

// What a socket takes of small answers without anybody reading them; the same holds for the input.
constexpr size_t kMaxInput = 4096;

class Hci : public ::aidl::android::hardware::bluetooth::BnBluetoothHci {
 public:
  using Callbacks = ::aidl::android::hardware::bluetooth::IBluetoothHciCallbacks;
  ScopedAStatus close() override {
    callbacks_ = nullptr;
    return ScopedAStatus::ok();
  }
  ScopedAStatus initialize(const std::shared_ptr<Callbacks>& callbacks) override {
    if (callbacks != nullptr) callbacks->hciEventReceived({1});
    callbacks_ = callbacks;
    return ScopedAStatus::ok();
  }
  ScopedAStatus sendAclData(const std::vector<uint8_t>& data) override {
    return ScopedAStatus::fromServiceSpecificErrorWithMessage(static_cast<int32_t>(data.size()), "acl");
  }
  ScopedAStatus sendHciCommand(const std::vector<uint8_t>&) override { return ScopedAStatus::ok(); }
  ScopedAStatus sendIsoData(const std::vector<uint8_t>&) override { return ScopedAStatus::ok(); }
  ScopedAStatus sendScoData(const std::vector<uint8_t>&) override { return ScopedAStatus::ok(); }

 private:
  std::shared_ptr<Callbacks> callbacks_;
};

char g_root[] = "/tmp/bthal-fuzz-XXXXXX";

bool Prepare() {
  if (mkdtemp(g_root) == nullptr) abort();
  atexit([] {
    std::error_code ignored;
    std::filesystem::remove_all(g_root, ignored);
  });
  setenv("BTHAL_ROOT", g_root, 1);
  android::base::SetMinimumLogSeverity(android::base::FATAL_WITHOUT_ABORT);
  static const auto& hci = *new std::shared_ptr<Hci>(::ndk::SharedRefBase::make<Hci>());
  if (AServiceManager_addService(hci->asBinder().get(), "s") != EX_NONE) abort();
  return true;
}

// A socket whose peer, returned in `*peer`, has said `data` and hung up.
unique_fd Said(const uint8_t* data, size_t size, unique_fd* peer) {
  unique_fd own;
  if (!android::base::Socketpair(SOCK_STREAM, &own, peer)) abort();
  if (size != 0 && send(peer->get(), data, size, 0) != static_cast<ssize_t>(size)) abort();
  shutdown(peer->get(), SHUT_WR);
  return own;
}

// A connection whose peer, returned in `*peer`, has said `data` over `count` sockets and hung up.
std::shared_ptr<Connection> Connect(const uint8_t* data, size_t size, Sockets* peer, size_t count = Sockets().size()) {
  Sockets own;
  for (size_t i = 0; i < count; ++i) own[i] = Said(data, size, &(*peer)[i]);
  return std::make_shared<Connection>(1, std::move(own));
}

void ServeAll(const std::shared_ptr<Connection>& connection) {
  for (;;) {
    std::vector<bthal::binder::Job> jobs;
    connection->OnReadable(&jobs);
    if (jobs.empty()) return;
    for (auto& job : jobs) job.Run();
  }
}

void ServeExpress(const std::shared_ptr<Connection>& connection) {
  std::vector<bthal::binder::Job> jobs;
  while (connection->AwaitExpress(&jobs)) {
    for (auto& job : jobs) job.Run();
    jobs.clear();
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static const bool prepared = Prepare();
  if (!prepared || size > kMaxInput) return 0;
  Sockets peer;
  {
    const auto connection = Connect(data, size, &peer);
    ServeAll(connection);
    connection->OnHangUp();
  }
  {
    const auto connection = Connect(data, size, &peer);
    ServeExpress(connection);
    connection->OnHangUp();
  }
  {
    // The peer's first bytes.
    const auto connection = Connect(data, size, &peer, 1);
    ServeAll(connection);
    connection->OnHangUp();
  }
  const auto connection = Connect(data, size, &peer);
  AParcel question;
  bthal::binder::ParcelPtr answer;
  connection->Call(1, FIRST_CALL_TRANSACTION, &question, -1, &answer);
  if (answer != nullptr) {
    ::ndk::ScopedAStatus status;
    AParcel_readStatusHeader(answer.get(), status.getR());
    ::ndk::SpAIBinder object;
    AParcel_readStrongBinder(answer.get(), object.getR());
  }
  bthal::binder::CallRun run;
  for (int i = 0; i < 3; ++i) Connection::Add(1, FIRST_CALL_TRANSACTION, question, &run);
  connection->Call(&run);
  ServeAll(connection);
  bthal::binder::Process::Get().pool().Unwatch(*connection);
  connection->OnHangUp();
  return 0;
}
