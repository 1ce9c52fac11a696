#include "sim/board.h"

#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <string.h>
#include <sys/eventfd.h>
#include <sys/file.h>
#include <sys/prctl.h>
#include <sys/resource.h>

#include <atomic>
#include <mutex>
#include <thread>

#include "sim/base/files.h"
#include "sim/base/journal.h"
#include "sim/controller/controller.h"
#include "sim/controller/faults.h"
#include "sim/furnish.h"
#include "sim/nodes/coex.h"
#include "sim/nodes/fifos.h"
#include "sim/nodes/guardian.h"
#include "sim/nodes/ordered_inputs.h"
#include "sim/wire/backend.h"
#include "sim/wire/line.h"

namespace bthal::sim {
namespace {

constexpr char kUart[] = "/dev/ttySAC16";
constexpr int kPacedPriority = -15;
constexpr char kLockFile[] = "/.board.lock";
constexpr char kGuardianLockFile[] = "/.board.guardian.lock";

}  // namespace

// One thread plays the whole board. What others ask of it is queued and done there.
class Board::Impl {
 public:
  explicit Impl(BoardOptions options)
      : options_(std::move(options)),
        journal_(options_.journal_entries, options_.journal_data_bytes),
        coex_(&journal_, &inputs_, &guardian_),
        fifos_(&inputs_, &guardian_),
        line_(&journal_, &guardian_, options_.pace),
        backend_(&journal_),
        controller_(options_, &journal_, &line_, &coex_, &faults_, options_.backend.empty() ? nullptr : &backend_) {}
  ~Impl() { Stop(); }

  bool Start(std::string* error);
  void Stop();
  void Ask(std::function<void()> task);

  EventJournal& journal() { return journal_; }
  Controller& controller() { return controller_; }
  Line& line() { return line_; }
  Coex& coex() { return coex_; }
  Faults& faults() { return faults_; }
  size_t waiting() const { return waiting_.load(); }

 private:
  bool Check(std::string* error);
  bool Lock(std::string* error);
  bool AddFaults(std::string* error);
  bool OpenUart(std::string* error);
  bool OpenNodes(std::string* error);
  void Run();
  void Wait();
  void RunTasks();

  const BoardOptions options_;
  EventJournal journal_;
  Faults faults_;
  // In this order: what plays a node is taken from the inputs before they go, and its guardian goes last.
  Guardian guardian_;
  OrderedInputs inputs_;
  Coex coex_;
  Fifos fifos_;
  Line line_;
  Backend backend_;
  Controller controller_;

  Fd lock_;
  Fd wake_;
  std::atomic<bool> stop_{false};
  std::atomic<size_t> waiting_{0};
  std::mutex tasks_mutex_;
  std::vector<std::function<void()>> tasks_;
  std::thread thread_;
};

bool Board::Impl::Check(std::string* error) {
  const bool no_root = options_.root.empty() || options_.root == "/";
  if (no_root && !options_.only_coex) {
    *error = "the board needs a device root of its own to play in: give it a folder, such as /tmp/board";
  } else if (ParseAddress(options_.address).empty()) {
    *error = "'" + options_.address + "' is no Bluetooth address; write it as 22:22:5A:01:02:03";
  } else if (options_.patch_records == 0 || options_.patch_records > kMaxPatchRecords) {
    *error = "a patch has 1 to " + std::to_string(kMaxPatchRecords) + " records";
  } else if (options_.local_name.size() > 247) {
    *error = "a local name has at most 247 bytes";
  } else {
    return true;
  }
  return false;
}

bool Board::Impl::Lock(std::string* error) {
  if (options_.only_coex) return true;
  const std::string path = options_.root + kLockFile;
  lock_.Reset(open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644));
  if (!lock_.ok()) {
    *error = "cannot write to the device root " + options_.root + ": " + strerror(errno);
    return false;
  }
  if (flock(lock_.get(), LOCK_EX | LOCK_NB) == 0) return true;
  *error = "another virtual board plays in " + options_.root + "; stop it, or use another device root";
  return false;
}

bool Board::Impl::AddFaults(std::string* error) {
  for (const std::string& text : options_.faults) {
    Fault fault;
    if (!ParseFault(text, &fault, error)) return false;
    faults_.Add(std::move(fault));
  }
  return true;
}

bool Board::Impl::OpenUart(std::string* error) {
  return MakeFoldersAbove(options_.root + kUart, error) && line_.Open(options_.root + kUart, error);
}

bool Board::Impl::OpenNodes(std::string* error) {
  Fifos::Callbacks callbacks;
  callbacks.power = [this](bool on) { controller_.SetPower(on); };
  callbacks.wake_line = [this](bool high) { controller_.SetWakeLine(high); };
  callbacks.lpm_driver = [this](bool on) { journal_.Record(WireEvent::kLpmDriver, on ? 1 : 0); };
  callbacks.wake_lock = [this](const std::string& name) { journal_.Record(WireEvent::kWakeLock, 0, name); };
  callbacks.wake_unlock = [this](const std::string& name) { journal_.Record(WireEvent::kWakeUnlock, 0, name); };
  callbacks.uart_debug = [this](const std::string& text) { journal_.Record(WireEvent::kUartDebug, 0, text); };
  callbacks.nonsense = [this](const std::string& what) { journal_.Record(WireEvent::kProtocolError, 0, what); };
  return fifos_.Open(options_.root, std::move(callbacks), error);
}

bool Board::Impl::Start(std::string* error) {
  if (wake_.ok()) {
    *error = "a board plays only once; make another";
    return false;
  }
  if (!Check(error) || !MakeFolder(options_.root.empty() ? "/" : options_.root, error) || !Lock(error)) return false;
  const std::string guardian_lock = options_.only_coex ? std::string() : options_.root + kGuardianLockFile;
  if (!AddFaults(error) || !guardian_.Start(guardian_lock, error) || !inputs_.Open(error) ||
      !coex_.Open(options_.root, error))
    return false;
  if (!options_.only_coex) {
    if (!options_.backend.empty() && !backend_.Connect(options_.backend, error)) return false;
    if (options_.furnish && !Furnish(options_, error)) return false;
    if (!OpenNodes(error) || !OpenUart(error)) return false;
  }
  wake_.Reset(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
  if (!wake_.ok()) {
    *error = std::string("cannot make an event descriptor: ") + strerror(errno);
    return false;
  }
  thread_ = std::thread([this] { Run(); });
  return true;
}

void Board::Impl::Stop() {
  if (!thread_.joinable()) return;
  stop_ = true;
  Ask([] {});
  thread_.join();
  // What is gone fails at once for whoever opens it; what is left without a reader would hang.
  fifos_.Close();
  coex_.Close();
  line_.Close();
  guardian_.Stop();
  lock_.Reset();
}

void Board::Impl::Ask(std::function<void()> task) {
  {
    std::lock_guard lock(tasks_mutex_);
    tasks_.push_back(std::move(task));
  }
  const uint64_t one = 1;
  // Only a full counter refuses, and then the thread is woken anyhow.
  if (wake_.ok() && write(wake_.get(), &one, sizeof(one)) < 0) return;
}

void Board::Impl::RunTasks() {
  uint64_t count = 0;
  if (read(wake_.get(), &count, sizeof(count)) < 0) return;
  std::vector<std::function<void()>> tasks;
  {
    std::lock_guard lock(tasks_mutex_);
    tasks.swap(tasks_);
  }
  for (const auto& task : tasks) task();
}

void Board::Impl::Run() {
  // The kernel may be late by 50 us otherwise, which adds up over a paced download.
  prctl(PR_SET_TIMERSLACK, 1UL);
  // Silicon that keeps its time does not wait for a processor; where this is not allowed, it does.
  if (options_.pace) (void)setpriority(PRIO_PROCESS, 0, kPacedPriority);
  prctl(PR_SET_NAME, "virtual board");
  controller_.StrikeNow();
  while (!stop_) {
    Wait();
    RunTasks();
    const Clock::time_point now = Clock::now();
    controller_.timers().RunDue(now);
    // Read first, obey later: whatever was written to a node before these bytes were sent is known by then.
    Arrived arrived = options_.only_coex ? Arrived() : line_.Receive(now);
    inputs_.Drain();
    controller_.Receive(line_.Hear(std::move(arrived)));
    if (backend_.fd() >= 0) {
      backend_.Serve([this](uint8_t type, Bytes packet) { controller_.ReceiveFromEmulator(type, std::move(packet)); });
    }
    if (!options_.only_coex) line_.Flush(Clock::now());
    waiting_ = line_.Waiting();
  }
}

void Board::Impl::Wait() {
  const Clock::time_point now = Clock::now();
  std::vector<pollfd> polls{{wake_.get(), POLLIN, 0}};
  for (const int fd : inputs_.Descriptors()) polls.push_back({fd, POLLIN, 0});
  if (!options_.only_coex) polls.push_back({line_.fd(), line_.PollEvents(now), 0});
  if (backend_.fd() >= 0) polls.push_back({backend_.fd(), backend_.PollEvents(), 0});
  std::optional<Clock::time_point> next = controller_.timers().Next();
  if (const auto line = line_.NextLook(now); line && (!next || *line < *next)) next = line;
  timespec timeout{};
  if (next && *next > now) {
    const auto rest = std::chrono::duration_cast<std::chrono::nanoseconds>(*next - now).count();
    timeout = {static_cast<time_t>(rest / 1'000'000'000), static_cast<long>(rest % 1'000'000'000)};
  }
  if (ppoll(polls.data(), polls.size(), next ? &timeout : nullptr, nullptr) < 0 && errno != EINTR) {
    journal_.Record(WireEvent::kProtocolError, 0, std::string("the board cannot wait: ") + strerror(errno));
    stop_ = true;
  }
}

Board::Board(BoardOptions options) : impl_(std::make_unique<Impl>(std::move(options))) {}
Board::~Board() = default;

bool Board::Start(std::string* error) { return impl_->Start(error); }
void Board::Stop() { impl_->Stop(); }

std::vector<JournalEntry> Board::Journal(size_t from) const { return impl_->journal().From(from); }
std::vector<std::vector<uint8_t>> Board::Commands() const { return impl_->journal().Commands(); }

bool Board::WaitFor(const std::function<bool(const std::vector<JournalEntry>&)>& done,
                    std::chrono::milliseconds timeout) const {
  return impl_->journal().WaitFor(done, timeout);
}

void Board::SetObserver(std::function<void(const JournalEntry&)> observer) {
  impl_->journal().SetObserver(std::move(observer));
}

void Board::SendPacket(uint8_t packet_type, const std::vector<uint8_t>& packet) {
  impl_->Ask([this, packet_type, packet] { impl_->controller().SendPacket(packet_type, packet); });
}

void Board::SendRaw(const std::vector<uint8_t>& bytes) {
  impl_->Ask([this, bytes] { impl_->controller().SendRaw(bytes); });
}

bool Board::AddFault(const std::string& fault, std::string* error) {
  Fault parsed;
  if (!ParseFault(fault, &parsed, error)) return false;
  impl_->Ask([this, parsed] {
    impl_->faults().Add(parsed);
    impl_->controller().StrikeNow();
  });
  return true;
}

void Board::ClearFaults() {
  impl_->Ask([this] { impl_->faults().Clear(); });
}

void Board::SendCoexEvent(const std::vector<uint8_t>& bytes) {
  impl_->Ask([this, bytes] { impl_->coex().SendEvent(bytes); });
}

void Board::StreamThreadFrames(uint32_t count, uint16_t min_size, uint16_t max_size) {
  impl_->Ask([=, this] { impl_->controller().thread_radio().Stream(count, min_size, max_size); });
}

std::vector<uint8_t> Board::ThreadPayload(uint32_t number, uint16_t min_size, uint16_t max_size) {
  return ThreadRadio::Payload(number, min_size, max_size);
}

size_t Board::WaitingForHost() const { return impl_->waiting(); }

void Board::HangUpUart() {
  impl_->Ask([this] { impl_->line().HangUp(); });
}

void Board::HangUpCoex() {
  impl_->Ask([this] { impl_->coex().HangUp(); });
}

}  // namespace bthal::sim
