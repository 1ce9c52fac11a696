// bthal thread: Thread radio frames, by hand.
#include <poll.h>
#include <unistd.h>

#include <cstdio>
#include <memory>
#include <utility>

#include "bthal/cli/command.h"
#include "bthal/cmd/commands.h"
#include "bthal/hci/hex.h"
#include "bthal/run/device_names.h"
#include "bthal/run/interrupt.h"
#include "bthal/run/thread_client.h"
#include "bthal/show/terminal.h"
#include "os/device_path.h"

namespace bthal::tool {
namespace {

using std::chrono::steady_clock;

struct ThreadOptions {
  std::vector<std::string> frames;
  int count = -1;
  double wait = -1;
};

// Prints what comes, until `count` frames have come (negative: for ever), time is up, or the user interrupts.
int Receive(int socket, int count, steady_clock::time_point deadline) {
  int received = 0;
  while (count < 0 || received < count) {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - steady_clock::now()).count();
    if (left <= 0) break;
    pollfd ready[] = {{socket, POLLIN, 0}, {InterruptFd(), POLLIN, 0}};
    poll(ready, 2, static_cast<int>(std::min<int64_t>(left, 1000)));
    if (Interrupted()) return 0;
    if (ready[0].revents == 0) continue;
    std::string error;
    const std::optional<std::vector<uint8_t>> frame = ReceiveFrame(socket, &error);
    if (!frame) return Complain(error.empty() ? "the service has closed the connection" : error);
    printf("> %5zu  %s\n", frame->size(), Hex(*frame).c_str());
    fflush(stdout);
    ++received;
  }
  if (count > 0 && received < count) {
    return Complain(std::to_string(received) + " of " + std::to_string(count) + " frames came in time");
  }
  return 0;
}

int Run(const ThreadOptions& options) {
  std::vector<std::vector<uint8_t>> frames;
  for (const std::string& text : options.frames) {
    std::optional<std::vector<uint8_t>> frame = ParseHex(text);
    if (!frame || frame->empty())
      return Complain("'" + text + "' is no frame: expected bytes in hex, as in 'aa bb cc'");
    frames.push_back(std::move(*frame));
  }
  CatchInterrupts();
  std::string error;
  const ::android::base::unique_fd socket =
      ConnectToThreadSocket(::android::hardware::bluetooth::os::DevicePath(kThreadSocket), &error);
  if (!socket.ok()) return Complain(error);
  for (const std::vector<uint8_t>& frame : frames) {
    if (!SendFrame(socket.get(), frame, &error)) return Complain(error);
    printf("< %5zu  %s\n", frame.size(), Hex(frame).c_str());
    fflush(stdout);
  }
  constexpr auto kForEver = std::chrono::hours(24 * 365);
  const auto wait =
      options.wait < 0 ? std::chrono::duration<double>(kForEver) : std::chrono::duration<double>(options.wait);
  const auto deadline = steady_clock::now() + std::chrono::duration_cast<steady_clock::duration>(wait);
  return Receive(socket.get(), options.count, deadline);
}

}  // namespace

void AddThread(Command& app) {
  auto options = std::make_shared<ThreadOptions>();
  Command sub = app.Add("thread", "Send Thread radio frames to the controller, and print those that come");
  sub.Take("frame", &options->frames, "frames to send, each as hex bytes in one argument");
  sub.Take("--count", &options->count, "end once so many frames have come (without: at Ctrl-C)")
      .Type("N")
      .Within(0, 1000000000);
  sub.Take("--wait", &options->wait, "end after so many seconds; fails if --count frames have not come")
      .Type("SECONDS")
      .Within(0.0, 86400.0);
  sub.Footer(
      "The frame 80 01 04 asks for a reset of the hardware: the service ends at once.\n"
      "\nExamples:\n"
      "  bthal thread 'aa bb cc' --count 1 --wait 2\n"
      "  bthal thread");
  sub.Run([options] { return Run(*options); });
}

}  // namespace bthal::tool
