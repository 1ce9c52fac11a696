// Calls between real processes.
#include <host/service_registry.h>
#include <sys/un.h>
#include <time.h>

#include "host/binder_objects.h"
#include "support/child_process.h"
#include "support/test.h"

namespace bthal::test {
namespace {

ScopedAStatus Refuse(const std::string& why) {
  return ScopedAStatus::fromExceptionCodeWithMessage(EX_ILLEGAL_STATE, why.c_str());
}

std::string ReadAll(int fd) {
  std::string text;
  char piece[256];
  for (ssize_t n = 0; (n = read(fd, piece, sizeof(piece))) > 0;) text.append(piece, static_cast<size_t>(n));
  return text;
}

TEST_F(BinderTest, ArgumentsAndStatusesCross) {
  const ChildProcess service([] {
    const auto hci = SharedRefBase::make<FakeHci>();
    hci->on_command = [](const Bytes& command) {
      switch (command.empty() ? 0 : command[0]) {
        case 0:
          return ScopedAStatus::ok();
        case 1:
          return ScopedAStatus::fromServiceSpecificError(-22);
        case 2:
          return ScopedAStatus::fromServiceSpecificErrorWithMessage(7, "seven");
        case 3:
          return ScopedAStatus::fromExceptionCodeWithMessage(EX_ILLEGAL_ARGUMENT, "Wrong Command Size!");
        case 4:
          return ScopedAStatus::fromExceptionCode(EX_UNSUPPORTED_OPERATION);
        case 5:
          return ScopedAStatus::fromStatus(STATUS_NO_INIT);
        default:
          return Refuse(std::to_string(command.size()) + " ending in " + std::to_string(command.back()));
      }
    };
    hci->on_initialize = [](const auto& callbacks) {
      return callbacks == nullptr ? ScopedAStatus::fromServiceSpecificError(-22) : ScopedAStatus::ok();
    };
    return ServeHci(hci);
  });
  const auto hci = FindHci();
  ASSERT_NE(hci, nullptr);
  EXPECT_TRUE(hci->isRemote());
  EXPECT_TRUE(hci->sendHciCommand({}).isOk());
  EXPECT_EQ(hci->sendHciCommand({1}).getServiceSpecificError(), -22);
  const auto seven = hci->sendHciCommand({2});
  EXPECT_EQ(seven.getExceptionCode(), EX_SERVICE_SPECIFIC);
  EXPECT_EQ(seven.getServiceSpecificError(), 7);
  EXPECT_STREQ(seven.getMessage(), "seven");
  EXPECT_EQ(seven.getDescription(), "Status(-8, EX_SERVICE_SPECIFIC): '7: seven'");
  const auto illegal = hci->sendHciCommand({3});
  EXPECT_EQ(illegal.getExceptionCode(), -3);
  EXPECT_STREQ(illegal.getMessage(), "Wrong Command Size!");
  EXPECT_EQ(hci->sendHciCommand({4}).getExceptionCode(), EX_UNSUPPORTED_OPERATION);
  EXPECT_EQ(hci->sendHciCommand({5}).getStatus(), STATUS_NO_INIT);
  // Beyond what a socket takes at once.
  Bytes large(1000 * 1000, 9);
  large.back() = 77;
  EXPECT_STREQ(hci->sendHciCommand(large).getMessage(), "1000000 ending in 77");
  // Beyond the limit: refused, and nothing else suffers.
  EXPECT_EQ(hci->sendHciCommand(Bytes(1 << 20, 9)).getStatus(), STATUS_FAILED_TRANSACTION);
  EXPECT_EQ(hci->initialize(nullptr).getServiceSpecificError(), -22);
  EXPECT_EQ(AIBinder_ping(hci->asBinder().get()), STATUS_OK);
}

TEST_F(BinderTest, ParcelsAreReadAsFarAsTheyGo) {
  const ::ndk::ScopedAParcel parcel(AParcel_create());
  AParcel_writeByte(parcel.get(), -7);
  ::ndk::AParcel_writeData(parcel.get(), Bytes{1, 2, 3});
  AParcel_writeString(parcel.get(), nullptr, -1);
  AParcel_setDataPosition(parcel.get(), 0);
  int8_t byte = 0;
  std::array<uint8_t, 4> four{};
  EXPECT_EQ(AParcel_readByte(parcel.get(), &byte), STATUS_OK);
  EXPECT_EQ(byte, -7);
  const int32_t at_array = AParcel_getDataPosition(parcel.get());
  EXPECT_EQ(::ndk::AParcel_readData(parcel.get(), &four), STATUS_BAD_VALUE);
  Bytes bytes;
  AParcel_setDataPosition(parcel.get(), at_array);
  EXPECT_EQ(::ndk::AParcel_readData(parcel.get(), &bytes), STATUS_OK);
  EXPECT_THAT(bytes, ElementsAre(1, 2, 3));
  EXPECT_EQ(::ndk::AParcel_readData(parcel.get(), &bytes), STATUS_UNEXPECTED_NULL);
  EXPECT_EQ(AParcel_readByte(parcel.get(), &byte), STATUS_NOT_ENOUGH_DATA);
  // A length that the parcel does not hold, and an object where there is none.
  AParcel_setDataPosition(parcel.get(), AParcel_getDataSize(parcel.get()));
  const int32_t end = AParcel_getDataPosition(parcel.get());
  AParcel_writeInt32(parcel.get(), 0x7FFFFFFF);
  EXPECT_EQ(::ndk::AParcel_readData(parcel.get(), &bytes), STATUS_NOT_ENOUGH_DATA);
  AIBinder* object = nullptr;
  AParcel_setDataPosition(parcel.get(), end);
  EXPECT_EQ(AParcel_readStrongBinder(parcel.get(), &object), STATUS_BAD_TYPE);
  AParcel_setDataPosition(parcel.get(), INT32_MAX);
  EXPECT_EQ(AParcel_readByte(parcel.get(), &byte), STATUS_NOT_ENOUGH_DATA);
}

TEST_F(BinderTest, ACallBackIsServedByTheThreadThatAwaitsTheReply) {
  const ChildProcess service([] {
    const auto hci = SharedRefBase::make<FakeHci>();
    static std::thread::id serving;
    hci->on_initialize = [](const auto& callbacks) {
      serving = std::this_thread::get_id();
      const auto outcome = callbacks->initializationComplete(HciStatus::TRANSPORT_ERROR);
      return outcome.isOk() ? callbacks->hciEventReceived({1, 2}) : Refuse(outcome.getDescription());
    };
    hci->on_close = [] {
      return std::this_thread::get_id() == serving ? ScopedAStatus::ok() : Refuse("served by another thread");
    };
    return ServeHci(hci, 3);
  });
  const auto hci = FindHci();
  const auto callbacks = SharedRefBase::make<FakeCallbacks>();
  const auto caller = std::this_thread::get_id();
  std::vector<std::string> heard;
  callbacks->on_complete = [&](HciStatus status) {
    heard.push_back(toString(status) + (std::this_thread::get_id() == caller ? "" : " elsewhere"));
    return ScopedAStatus::ok();
  };
  callbacks->on_event = [&](const Bytes& event) {
    heard.push_back(std::to_string(event.size()) + (std::this_thread::get_id() == caller ? "" : " elsewhere"));
    return hci->close();
  };
  // This process has no thread pool at all; with one, its threads would keep out of it as well.
  const auto first = hci->initialize(callbacks);
  EXPECT_TRUE(first.isOk()) << first.getDescription();
  ABinderProcess_startThreadPool();
  const auto second = hci->initialize(callbacks);
  EXPECT_TRUE(second.isOk()) << second.getDescription();
  EXPECT_THAT(heard, ElementsAre("TRANSPORT_ERROR", "2", "TRANSPORT_ERROR", "2"));
}

TEST_F(BinderTest, AThreadOfTheServicesOwnIsCalledBackToo) {
  const ChildProcess service([] {
    // One thread serves, and it is busy: only the thread that calls out is left to be called back.
    const auto hci = SharedRefBase::make<FakeHci>();
    static std::thread::id receiver;
    hci->on_initialize = [](const auto& callbacks) {
      auto outcome = ScopedAStatus::ok();
      std::thread([&] {
        receiver = std::this_thread::get_id();
        outcome = callbacks->hciEventReceived({4});
      }).join();
      return outcome;
    };
    hci->on_close = [] {
      return std::this_thread::get_id() == receiver ? ScopedAStatus::ok() : Refuse("served by another thread");
    };
    return ServeHci(hci, 0);
  });
  const auto hci = FindHci();
  ABinderProcess_startThreadPool();
  const auto callbacks = SharedRefBase::make<FakeCallbacks>();
  callbacks->on_event = [&](const Bytes&) { return hci->close(); };
  const auto outcome = hci->initialize(callbacks);
  EXPECT_TRUE(outcome.isOk()) << outcome.getDescription();
}

TEST_F(BinderTest, ThePoolHasNoMoreThreadsThanItMay) {
  const Gate go;
  const Gate arrived;
  const auto client = [&] {
    arrived.Open();
    return FindHci()->sendHciCommand({1}).isOk() ? 0 : 1;
  };
  std::vector<std::unique_ptr<ChildProcess>> clients;
  for (int i = 0; i < 4; ++i) clients.push_back(std::make_unique<ChildProcess>(client));
  std::atomic<int> running{0};
  std::atomic<int> most{0};
  hci_->on_command = [&](const Bytes&) {
    const int now = ++running;
    for (int seen = most; now > seen && !most.compare_exchange_weak(seen, now);) continue;
    go.Pass();
    --running;
    return ScopedAStatus::ok();
  };
  ASSERT_NO_FATAL_FAILURE(Serve(2));
  EXPECT_TRUE(WaitFor([&] { return running == 2; }));
  for (int i = 0; i < 4; ++i) arrived.Pass();
  for (int i = 0; i < 4; ++i) go.Open();
  for (auto& each : clients) EXPECT_EQ(each->Wait(), 0);
  EXPECT_TRUE(WaitFor([&] { return running == 0; }));  // nobody is at a gate any more
  EXPECT_EQ(most, 2);
}

TEST_F(BinderTest, ADumpGoesToTheCallersDescriptor) {
  const ServiceChild service;
  const auto hci = FindHci();
  int ends[2];
  ASSERT_EQ(pipe(ends), 0);
  const char* args[] = {"-v", "all of it"};
  EXPECT_EQ(hci->dump(ends[1], args, 2), STATUS_OK);
  EXPECT_EQ(hci->dump(ends[1], nullptr, 0), STATUS_OK);
  // Nobody else keeps the pipe open, or this would not end.
  close(ends[1]);
  EXPECT_EQ(ReadAll(ends[0]), "dumped -v all of itdumped");
  close(ends[0]);
  EXPECT_EQ(hci->dump(-1, nullptr, 0), STATUS_BAD_VALUE);
}

TEST_F(BinderTest, LocalObjectsNeedNoOtherProcess) {
  EXPECT_EQ(AServiceManager_checkService("nobody"), nullptr);
  const auto hci = SharedRefBase::make<FakeHci>();
  hci->on_command = [](const Bytes& command) { return Refuse(std::to_string(command.size())); };
  const ::ndk::SpAIBinder binder = hci->asBinder();
  ASSERT_EQ(Publish(hci), EX_NONE);
  EXPECT_EQ(FindHci(), hci);
  EXPECT_FALSE(hci->isRemote());
  EXPECT_TRUE(AIBinder_isAlive(binder.get()));
  EXPECT_EQ(AIBinder_ping(binder.get()), STATUS_OK);
  const ::ndk::ScopedAIBinder_DeathRecipient recipient(AIBinder_DeathRecipient_new([](void*) {}));
  EXPECT_EQ(AIBinder_linkToDeath(binder.get(), recipient.get(), nullptr), STATUS_INVALID_OPERATION);
  // A call that goes the whole way all the same.
  AParcel* in = nullptr;
  ::ndk::ScopedAParcel out;
  ASSERT_EQ(AIBinder_prepareTransaction(binder.get(), &in), STATUS_OK);
  ::ndk::AParcel_writeData(in, Bytes(3));
  EXPECT_EQ(AIBinder_transact(binder.get(), FIRST_CALL_TRANSACTION + 3, &in, out.getR(), 0), STATUS_OK);
  EXPECT_EQ(in, nullptr);
  ScopedAStatus status;
  EXPECT_EQ(AParcel_readStatusHeader(out.get(), status.getR()), STATUS_OK);
  EXPECT_STREQ(status.getMessage(), "3");
  ASSERT_EQ(AIBinder_prepareTransaction(binder.get(), &in), STATUS_OK);
  EXPECT_EQ(AIBinder_transact(binder.get(), 99, &in, out.getR(), 0), STATUS_UNKNOWN_TRANSACTION);
  for (const char* name : {"", "/default", "a//b", "../a", "a/../b", "a b", "a/"}) {
    EXPECT_EQ(AServiceManager_addService(binder.get(), name), EX_ILLEGAL_ARGUMENT) << name;
    EXPECT_EQ(AServiceManager_checkService(name), nullptr) << name;
  }
  EXPECT_EQ(AServiceManager_addService(nullptr, "a"), EX_ILLEGAL_ARGUMENT);
}

TEST_F(BinderTest, AnObjectOfAThirdProcessIsNotSentOn) {
  const ServiceChild service;
  const ChildProcess third([] {
    const auto callbacks = SharedRefBase::make<FakeCallbacks>();
    if (AServiceManager_addService(callbacks->asBinder().get(), "third") != EX_NONE) return 1;
    ABinderProcess_joinThreadPool();
    return 1;
  });
  const auto foreign = Callbacks::fromBinder(::ndk::SpAIBinder(AServiceManager_waitForService("third")));
  const auto hci = FindHci();
  EXPECT_EQ(hci->initialize(foreign).getStatus(), STATUS_INVALID_OPERATION);
  EXPECT_TRUE(hci->initialize(SharedRefBase::make<FakeCallbacks>()).isOk());
}

TEST_F(BinderTest, AServiceThatComesBackIsFound) {
  const auto serve = [] { return ServeHci(SharedRefBase::make<FakeHci>()); };
  const auto sockets = [&] {
    const std::filesystem::directory_iterator entries(root_.path() + "/run/bthal/binder");
    return std::distance(begin(entries), end(entries));
  };
  ChildProcess first(serve);
  const Gate go;
  ChildProcess second([&] {
    go.Pass();
    return serve();
  });
  auto hci = FindHci();
  EXPECT_TRUE(hci->close().isOk());
  ASSERT_EQ(host::ListServices().size(), 1u);
  EXPECT_EQ(host::ListServices()[0].instance, HciInstance());
  EXPECT_EQ(host::ListServices()[0].pid, first.pid());
  EXPECT_TRUE(host::ListServices()[0].alive);
  first.Kill();
  EXPECT_EQ(hci->close().getStatus(), STATUS_DEAD_OBJECT);
  // Its entry and its socket are still there, and lead nowhere.
  EXPECT_EQ(AServiceManager_checkService(HciInstance().c_str()), nullptr);
  EXPECT_FALSE(host::ListServices()[0].alive);
  EXPECT_EQ(sockets(), 1);
  // So does what a process has left that was killed before it listened, long ago, but not what is about to listen.
  const auto unfinished = [&](const char* name, time_t age) {
    const unique_fd socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    snprintf(address.sun_path, sizeof(address.sun_path), "%s/run/bthal/binder/%s", root_.path().c_str(), name);
    const timespec times[2] = {{0, UTIME_OMIT}, {time(nullptr) - age, 0}};
    return bind(socket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)) == 0 &&
           utimensat(AT_FDCWD, address.sun_path, times, 0) == 0;
  };
  ASSERT_TRUE(unfinished("1-1.new", 3600) && unfinished("1-2.new", 1));
  go.Open();
  hci = FindHci();
  EXPECT_TRUE(hci->close().isOk());
  EXPECT_EQ(host::ListServices()[0].pid, second.pid());
  EXPECT_TRUE(WaitFor([&] { return sockets() == 2; }));
}

TEST_F(BinderTest, ALongDeviceRootIsNoHindrance) {
  const std::string deep = root_.path() + "/" + std::string(120, 'd') + "/" + std::string(120, 'e');
  setenv("BTHAL_ROOT", deep.c_str(), 1);
  const ServiceChild service;
  EXPECT_TRUE(FindHci()->close().isOk());
}

}  // namespace
}  // namespace bthal::test
