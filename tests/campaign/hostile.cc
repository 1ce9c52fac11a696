#include "campaign/hostile.h"

#include <android-base/file.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <deque>
#include <filesystem>
#include <functional>
#include <iterator>
#include <thread>
#include <vector>

#include "bthal/hci/codes.h"
#include "bthal/hci/words.h"
#include "bthal/run/binder_client.h"
#include "bthal/run/device_names.h"
#include "campaign/attacks.h"
#include "support/child_process.h"
#include "support/test.h"

namespace bthal::campaign {
namespace {

using std::chrono::seconds;
using std::chrono::steady_clock;

constexpr milliseconds kAnswerLimit{2000};
constexpr milliseconds kBetweenCommands{10};
constexpr milliseconds kBetweenAttacks{1};
// How much the service may still grow once every attack has struck: what an allocator takes its time to come to.
constexpr long kGrowthKb = 1024;
// What it may say of its peers, however often they come.
constexpr double kLogKbPerSecond = 20;

double Seconds(steady_clock::duration duration) { return std::chrono::duration<double>(duration).count(); }

// Each attack in a process of its own, once the gate is open, and how often it met the service.
class Peers {
 public:
  Peers(const std::string& root, uint64_t seed) {
    void* const shared =
        mmap(nullptr, Attacks().size_bytes(), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    met_ = static_cast<std::atomic<unsigned>*>(shared);
    for (size_t i = 0; i < Attacks().size(); ++i) {
      processes_.emplace_back([&, i] {
        std::mt19937_64 random(seed + i);
        for (gate_.Pass();; std::this_thread::sleep_for(kBetweenAttacks)) {
          if (Attacks()[i].strike(root, random)) ++met_[i];
        }
        return 0;
      });
    }
  }

  void LetGo() const {
    for (size_t i = 0; i < processes_.size(); ++i) gate_.Open();
  }
  void End() { processes_.clear(); }

  // Whether each has met the service.
  bool Print() const {
    bool all = true;
    for (size_t i = 0; i < Attacks().size(); ++i) {
      printf("  %-34s %8u rounds\n", Attacks()[i].name, met_[i].load());
      all &= met_[i] > 0;
    }
    return all;
  }

 private:
  const test::Gate gate_;
  std::atomic<unsigned>* met_;
  std::deque<test::ChildProcess> processes_;
};

struct Use {
  long resident_kb = 0;
  long descriptors = 0;

  void Raise(const Use& other) {
    resident_kb = std::max(resident_kb, other.resident_kb);
    descriptors = std::max(descriptors, other.descriptors);
  }
};

Use UseOf(pid_t pid) {
  const std::string process = "/proc/" + std::to_string(pid);
  Use use;
  const std::string status = test::ContentOf(process + "/status");
  if (const size_t at = status.find("VmRSS:"); at != std::string::npos) use.resident_kb = atol(&status[at + 6]);
  std::error_code gone;
  use.descriptors = std::distance(std::filesystem::directory_iterator(process + "/fd", gone), {});
  return use;
}

// One command after another. The answers' times in order; none, with `error`, where one did not come.
std::vector<double> Work(tool::HciClient& client, steady_clock::time_point end, const std::function<void()>& watch,
                         std::string* error) {
  const auto is_answer = [](const tool::ReceivedPacket& packet) {
    return tool::AnsweredOpcode(packet.bytes) == tool::opcodes::kReadBdAddr;
  };
  std::vector<double> times_ms;
  while (steady_clock::now() < end) {
    client.Forget();
    const auto start = steady_clock::now();
    if (!client.Send(tool::kCommand, {0x09, 0x10, 0x00}, error)) return {};
    if (!client.Take(is_answer, kAnswerLimit)) {
      *error = client.ServiceDied() ? "the service has died" : "a command was not answered in time";
      return {};
    }
    times_ms.push_back(Seconds(steady_clock::now() - start) * 1000);
    watch();
    std::this_thread::sleep_for(kBetweenCommands);
  }
  std::sort(times_ms.begin(), times_ms.end());
  return times_ms;
}

bool Fail(const Device& device, const std::string& why) {
  printf("hostile peers: %s\n%s", why.c_str(), device.LastLines().c_str());
  return false;
}

}  // namespace

bool WithstandHostilePeers(Device& device, seconds duration, uint64_t seed) {
  Peers peers(device.root(), seed);  // before this process has threads
  std::string error;
  tool::HciClient client({.on_packet = [](const tool::ReceivedPacket&) {}, .on_death = [] {}});
  device.Forget();
  if (!client.Connect(seconds(20), &error) || !client.Initialize(seconds(20), &error)) return Fail(device, error);
  const pid_t service = device.service();
  // The last that a session opens, on a thread of its own.
  if (!test::WaitFor([&] { return access((device.root() + tool::kThreadSocket).c_str(), F_OK) == 0; })) {
    return Fail(device, "there is no socket for Thread frames");
  }
  const Use alone = UseOf(service);
  peers.LetGo();
  const auto start = steady_clock::now();
  const seconds warm = std::min<seconds>(seconds(60), duration / 2);
  Use first;
  Use later;
  auto next_look = start;
  const auto watch = [&] {
    const auto now = steady_clock::now();
    if (now < next_look) return;
    next_look = now + milliseconds(200);
    (now < start + warm ? first : later).Raise(UseOf(service));
  };
  const std::vector<double> times_ms = Work(client, start + duration, watch, &error);
  if (times_ms.empty()) return Fail(device, error + " after " + std::to_string(Seconds(steady_clock::now() - start)));
  peers.End();
  const double log_kb_per_second = static_cast<double>(device.Log("service").size()) / 1024 / Seconds(duration);
  printf("hostile peers for %.0f s: %zu commands answered, median %.2f ms, 99 %% within %.2f ms, slowest %.2f ms\n",
         Seconds(duration), times_ms.size(), times_ms[times_ms.size() / 2], times_ms[times_ms.size() * 99 / 100],
         times_ms.back());
  printf(
      "  the service, at most: %ld KiB and %ld descriptors in the first %.0f s, %ld KiB and %ld after; %.1f KiB of "
      "log a second\n",
      first.resident_kb, first.descriptors, Seconds(warm), later.resident_kb, later.descriptors, log_kb_per_second);
  const bool all_met = peers.Print();
  if (!all_met) return Fail(device, "one of the peers never met the service");
  if (!test::WaitFor([&] { return UseOf(service).descriptors <= alone.descriptors; })) {
    return Fail(device, "the service keeps descriptors of peers that are gone");
  }
  if (later.resident_kb > first.resident_kb + kGrowthKb) return Fail(device, "the service grows");
  if (log_kb_per_second > kLogKbPerSecond) return Fail(device, "the service floods its log");
  if (later.descriptors > first.descriptors + 2) return Fail(device, "the service's descriptors grow in number");
  return true;
}

}  // namespace bthal::campaign
