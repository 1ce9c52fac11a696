#include "bthal/run/line_relay.h"

#include <errno.h>
#include <poll.h>
#include <unistd.h>

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <string_view>
#include <thread>
#include <utility>

#include "bthal/show/printable.h"

namespace bthal::tool {
namespace {

// Enough for what a board tells of a whole download while its reader is busy elsewhere.
constexpr size_t kMostBytes = 1 << 20;
constexpr size_t kPiece = 4096;
// A reader that takes nothing for so long is not waited for at the end.
constexpr std::chrono::milliseconds kLastPatience{200};

// Whatever cannot be written is lost: there is nobody to tell.
void WriteAll(int fd, std::string_view text) {
  while (!text.empty()) {
    const ssize_t count = write(fd, text.data(), text.size());
    if (count >= 0) {
      text.remove_prefix(static_cast<size_t>(count));
    } else if (errno == EAGAIN) {
      pollfd room = {fd, POLLOUT, 0};
      poll(&room, 1, -1);
    } else if (errno != EINTR) {
      return;
    }
  }
}

}  // namespace

struct LineRelay::Waiting {
  explicit Waiting(std::string name) : who(std::move(name)) {}

  const std::string who;
  std::mutex mutex;
  std::condition_variable changed;
  std::string text;  // to be written
  TerminalFilter filter;
  size_t writing = 0;  // bytes that the thread has taken out of it
  size_t dropped = 0;  // lines, since the last that was taken
  bool ended = false;

  void WriteForEver(const Write& write) {
    std::unique_lock lock(mutex);
    for (;;) {
      changed.wait(lock, [this] { return !text.empty() || ended; });
      if (text.empty()) return;
      // In pieces: there is room again long before a slow reader has taken all. In whole lines, as far as they fit.
      const size_t lines = text.rfind('\n', kPiece - 1);
      const std::string piece = text.substr(0, lines == std::string::npos ? kPiece : lines + 1);
      text.erase(0, piece.size());
      writing = piece.size();
      lock.unlock();
      write(piece);
      lock.lock();
      writing = 0;
      if (dropped != 0 && text.size() <= kMostBytes / 2) {
        text += who + ": " + std::to_string(std::exchange(dropped, 0)) + " lines dropped: nobody was reading\n";
      }
      changed.notify_all();
    }
  }
};

LineRelay::LineRelay(int fd, std::string who)
    : terminal_(isatty(fd) == 1), waiting_(std::make_shared<Waiting>(std::move(who))) {
  std::thread([waiting = waiting_, fd] {
    waiting->WriteForEver([fd](std::string_view text) { WriteAll(fd, text); });
  }).detach();
}

LineRelay::LineRelay(Write write, std::string who)
    : terminal_(false),
      waiting_(std::make_shared<Waiting>(std::move(who))),
      writer_([waiting = waiting_, write = std::move(write)] { waiting->WriteForEver(write); }) {}

LineRelay::~LineRelay() {
  std::unique_lock lock(waiting_->mutex);
  for (size_t left = waiting_->text.size() + waiting_->writing; left != 0 && !writer_.joinable();) {
    const auto some_went = [&] { return waiting_->text.size() + waiting_->writing != left; };
    if (!waiting_->changed.wait_for(lock, kLastPatience, some_went)) break;
    left = waiting_->text.size() + waiting_->writing;
  }
  waiting_->ended = true;
  waiting_->changed.notify_all();
  lock.unlock();
  if (writer_.joinable()) writer_.join();
}

void LineRelay::Put(const std::string& line) {
  const std::lock_guard lock(waiting_->mutex);
  const bool fits = waiting_->text.empty() || waiting_->text.size() + line.size() <= kMostBytes;
  if (waiting_->dropped != 0 || !fits) {
    ++waiting_->dropped;
    return;
  }
  waiting_->text += terminal_ ? waiting_->filter.Pass(line) : line;
  waiting_->changed.notify_all();
}

}  // namespace bthal::tool
