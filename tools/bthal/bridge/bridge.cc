#include "bthal/bridge/bridge.h"

#include <poll.h>
#include <pthread.h>
#include <signal.h>
#include <sys/eventfd.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include "bthal/run/interrupt.h"
#include "bthal/show/journal_words.h"
#include "bthal/show/terminal.h"

namespace bthal::tool {
namespace {

using ::android::base::unique_fd;

constexpr std::chrono::seconds kBringUpPatience{60};
constexpr std::chrono::hours kForEver{24 * 365};
// Between two bring-ups that fail.
constexpr std::chrono::seconds kPause{1};

unique_fd ReportRequests() {
  sigset_t usr1;
  sigemptyset(&usr1);
  sigaddset(&usr1, SIGUSR1);
  pthread_sigmask(SIG_BLOCK, &usr1, nullptr);
  return unique_fd(signalfd(-1, &usr1, SFD_NONBLOCK | SFD_CLOEXEC));
}

}  // namespace

Bridge::Bridge(std::unique_ptr<Backend> backend, const BridgeOptions& options)
    : backend_(std::move(backend)),
      options_(options),
      asked_(ReportRequests()),
      alarm_(eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC)),
      out_(STDOUT_FILENO, "bridge"),
      client_({.on_packet = [this](const ReceivedPacket& packet) { OnPacket(packet); },
               .on_death = [this] { Alarm(); },
               .keep_packets = false}) {}

int Bridge::Run() {
  std::string error;
  if (!backend_->Check(&error)) return Complain(error);
  End end = ServeService();
  while (end == End::kServiceGone && !options_.once) {
    Tell("the service has gone, waiting for the next one");
    end = ServeService();
  }
  SayReport();
  if (end == End::kSignal) return 128 + InterruptSignal();
  return end == End::kFailed ? 1 : 0;
}

// From the bring-up to the end of the session, of the service or of the program.
Bridge::End Bridge::ServeService() {
  std::string error;
  if (!TakeHal(&error)) {
    if (Interrupted()) return End::kSignal;
    Complain(error);
    return End::kFailed;
  }
  ledger_.NewSession();
  const End end = ServePeers();
  backend_->Close();
  GiveHalBack();
  return end;
}

bool Bridge::FindService() {
  std::string error;
  if (client_.Connect(std::chrono::milliseconds(0), &error)) return true;
  Tell("waiting for the service: " + error);
  return client_.Connect(kForEver, &error);
}

// A service that is there but does not bring its controller up ends and is started again: it is given another try.
bool Bridge::TakeHal(std::string* error) {
  for (;;) {
    if (!claim_.Take(options_.take_over, error) || !FindService()) return false;
    if (client_.Initialize(kBringUpPatience, error)) break;
    if (options_.once || Interrupted()) return false;
    Tell(*error);
    if (!SleepUnlessInterrupted(kPause)) return false;
  }
  Tell("the HAL is initialised");
  return true;
}

void Bridge::GiveHalBack() {
  std::string error;
  if (client_.initialized() && !client_.ServiceDied()) Tell(client_.Close(&error) ? "the HAL is closed" : error);
  claim_.Release();
}

Bridge::End Bridge::ServePeers() {
  std::string error;
  if (!backend_->Open(&error)) {
    Complain(error);
    return End::kFailed;
  }
  Tell(backend_->Name() + " is there");
  for (;;) {
    if (const std::optional<End> end = AwaitReadable(backend_->ready_fd(), /*serving=*/false)) return *end;
    std::optional<Peer> peer = backend_->Accept();
    if (!peer) continue;
    const End end = ServePeer(std::move(*peer));
    if (end != End::kPeerGone) return end;
    // Told only when the next one may come.
    const bool released = options_.once || backend_->Release(&error);
    Tell("the host has gone" + (reason().empty() ? "" : ": " + reason()));
    if (options_.once) return end;
    if (!released) {
      Complain(error);
      return End::kFailed;
    }
  }
}

std::optional<Bridge::End> Bridge::AwaitReadable(int fd, bool serving) {
  enum { kWanted, kAlarm, kInterrupt, kAsked, kOthers };
  for (;;) {
    if (Interrupted()) return End::kSignal;
    if (client_.ServiceDied()) return End::kServiceGone;
    if (serving && !reason().empty()) return End::kPeerGone;
    pollfd fds[] = {{fd, POLLIN, 0},
                    {alarm_.get(), POLLIN, 0},
                    {InterruptFd(), POLLIN, 0},
                    {asked_.get(), POLLIN, 0},
                    {serving ? backend_->ready_fd() : -1, POLLIN, 0}};
    if (poll(fds, std::size(fds), -1) < 0) continue;
    if (fds[kAlarm].revents != 0) {
      Silence();
      continue;
    }
    signalfd_siginfo ignored;
    if (fds[kAsked].revents != 0 && read(asked_.get(), &ignored, sizeof(ignored)) > 0) SayReport();
    if (fds[kOthers].revents != 0) backend_->Refuse();
    if (fds[kWanted].revents != 0) return std::nullopt;
  }
}

void Bridge::Alarm() const {
  constexpr uint64_t kOnce = 1;
  (void)!write(alarm_.get(), &kOnce, sizeof(kOnce));
}

void Bridge::Silence() const {
  uint64_t ignored = 0;
  (void)!read(alarm_.get(), &ignored, sizeof(ignored));
}

void Bridge::GiveUp(const std::string& why) {
  {
    const std::lock_guard lock(reason_mutex_);
    if (!reason_.empty()) return;
    reason_ = why;
  }
  Alarm();
}

std::string Bridge::reason() const {
  const std::lock_guard lock(reason_mutex_);
  return reason_;
}

void Bridge::OnPacket(const ReceivedPacket& packet) {
  const bool for_this_host = ledger_.Received(packet.kind, packet.bytes);
  if (options_.verbose) SayPacket(Direction::kFromController, packet.kind, packet.bytes);
  if (!for_this_host) return ledger_.NobodyThere();
  if (outbox_.Put(packet.kind, packet.bytes)) return;
  if (outbox_.full()) {
    GiveUp("it does not read what the controller sends");
  } else {
    ledger_.NobodyThere();
  }
}

std::string Bridge::Time() const { return Elapsed(start_, std::chrono::steady_clock::now()) + "  "; }

void Bridge::Say(const std::string& line) { out_.Put(Time() + line + "\n"); }

void Bridge::SayPacket(Direction direction, uint8_t kind, std::span<const uint8_t> packet) {
  out_.Put(PacketText({}, Time(), direction, kind, packet));
}

void Bridge::Tell(const std::string& what) { Say(Note("bridge", what)); }

void Bridge::SayReport() { out_.Put(ledger_.Report()); }

}  // namespace bthal::tool
