#include "bthal/run/io/line_source.h"

#include <errno.h>
#include <poll.h>
#include <string.h>
#include <unistd.h>

#include <utility>

#include "bthal/run/interrupt.h"

namespace bthal::tool {

bool LineSource::Next(std::string* line) {
  for (;;) {
    if (const size_t end = buffer_.find('\n'); end != std::string::npos) {
      *line = buffer_.substr(0, end);
      buffer_.erase(0, end + 1);
      return true;
    }
    pollfd ready[] = {{fd_, POLLIN, 0}, {InterruptFd(), POLLIN, 0}};
    if (poll(ready, 2, -1) < 0 && errno != EINTR) return false;
    if (Interrupted()) return false;
    if (ready[0].revents == 0) continue;
    if (Read()) continue;
    // What came before a failure may be half a line.
    *line = std::exchange(buffer_, "");
    return error_.empty() && !line->empty();
  }
}

// False when nothing will come any more.
bool LineSource::Read() {
  char piece[4096];
  const ssize_t count = TEMP_FAILURE_RETRY(read(fd_, piece, sizeof(piece)));
  if (count < 0 && errno == EAGAIN) return true;
  if (count < 0) error_ = std::string("cannot read standard input: ") + strerror(errno) + "; give it a file or a pipe";
  if (count > 0) buffer_.append(piece, static_cast<size_t>(count));
  return count > 0;
}

}  // namespace bthal::tool
