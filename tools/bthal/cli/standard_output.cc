#include "bthal/cli/standard_output.h"

#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <poll.h>
#include <signal.h>
#include <string.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>

#include "bthal/show/printable.h"
#include "bthal/show/terminal.h"

namespace bthal::tool {
namespace {

// A reader that takes nothing for so long after the user asked for the end is not waited for, and for so long in all.
constexpr int kLastPatienceMs = 200;
constexpr int kLastPatienceInAllMs = 2000;

int (*g_interrupt_fd)() = nullptr;
void (*g_end)() = nullptr;
TerminalFilter g_filter;
bool g_filtered = false;
int g_patience_left_ms = kLastPatienceInAllMs;
int g_error = 0;  // of the first write that failed

// Whether a piece can be written; false when the user asks for the end first. Whoever has much to write is not held up
// by each piece of it.
bool AwaitRoom() {
  pollfd ready[] = {{STDOUT_FILENO, POLLOUT, 0}, {g_interrupt_fd(), POLLIN, 0}};
  while (poll(ready, 2, -1) < 0 && errno == EINTR) {
  }
  const int patience = std::min(kLastPatienceMs, g_patience_left_ms);
  if (ready[0].revents != 0 || poll(ready, 1, patience) > 0) return true;
  g_patience_left_ms -= patience;
  return false;
}

// In pieces of which a pipe that has room takes each whole.
bool WriteAll(std::string_view text) {
  while (!text.empty()) {
    if (!AwaitRoom()) return true;  // what nobody reads is nobody's loss
    const ssize_t count = write(STDOUT_FILENO, text.data(), std::min<size_t>(text.size(), PIPE_BUF));
    if (count >= 0) {
      text.remove_prefix(static_cast<size_t>(count));
    } else if (errno != EINTR && errno != EAGAIN) {
      return false;
    }
  }
  return true;
}

ssize_t OnWrite(void*, const char* text, size_t size) {
  const std::string_view piece(text, size);
  if (g_error == 0 && WriteAll(g_filtered ? g_filter.Pass(piece) : std::string(piece)))
    return static_cast<ssize_t>(size);
  if (g_error == 0) g_error = errno;
  g_end();
  errno = g_error;
  return 0;
}

}  // namespace

void WatchStandardOutput(int (*interrupt_fd)(), void (*end)()) {
  g_interrupt_fd = interrupt_fd;
  g_end = end;
  // Where it is closed, no file that is opened later may take its place; writing to it still fails.
  int spare = 0;
  while (spare >= 0 && spare <= STDERR_FILENO) spare = open("/dev/null", O_RDONLY);
  if (spare >= 0) close(spare);
  const bool terminal = isatty(STDOUT_FILENO) == 1;
  g_filtered = terminal || getenv("CLICOLOR_FORCE") != nullptr;
  FILE* const watched = fopencookie(nullptr, "w", {nullptr, OnWrite, nullptr, nullptr});
  if (watched == nullptr) return;
  setvbuf(watched, nullptr, terminal ? _IOLBF : _IOFBF, BUFSIZ);
  stdout = watched;
}

int EndStandardOutput(int status) {
  fflush(stdout);
  if (g_error == 0 && !WriteAll(g_filter.Rest())) g_error = errno;
  if (g_error == 0) return status;
  if (g_error == EPIPE) {
    signal(SIGPIPE, SIG_DFL);
    raise(SIGPIPE);
  }
  return Complain(std::string("cannot write to standard output: ") + strerror(g_error));
}

}  // namespace bthal::tool
