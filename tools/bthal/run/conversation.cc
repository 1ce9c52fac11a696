#include "bthal/run/conversation.h"

#include <android-base/file.h>
#include <errno.h>
#include <poll.h>
#include <string.h>
#include <unistd.h>

#include "bthal/run/interrupt.h"

namespace bthal::tool {

using std::chrono::milliseconds;

bool Conversation::Start(SpawnOptions options, std::string* error) {
  ::android::base::unique_fd input;
  ::android::base::unique_fd output;
  if (!::android::base::Pipe(&input, &input_) || !::android::base::Pipe(&output_, &output)) {
    *error = std::string("cannot make a pipe: ") + strerror(errno);
    return false;
  }
  options.standard_input = input.get();
  options.standard_output = output.get();
  options.standard_error = output.get();
  child_ = Child::Spawn(options, error);
  return child_.running();
}

void Conversation::Say(const std::string& line) const { ::android::base::WriteStringToFd(line + "\n", input_.get()); }

Conversation::Outcome Conversation::ReadLine(std::string* line, std::chrono::steady_clock::time_point deadline) {
  for (;;) {
    if (const size_t end = buffer_.find('\n'); end != std::string::npos) {
      *line = buffer_.substr(0, end);
      buffer_.erase(0, end + 1);
      return Outcome::kLine;
    }
    const auto left = std::chrono::ceil<milliseconds>(deadline - std::chrono::steady_clock::now()).count();
    if (left <= 0 || Interrupted()) return Outcome::kGaveUp;
    pollfd ready[] = {{output_.get(), POLLIN, 0}, {InterruptFd(), POLLIN, 0}};
    if (poll(ready, 2, static_cast<int>(left)) <= 0 || ready[0].revents == 0) continue;
    char piece[4096];
    const ssize_t count = TEMP_FAILURE_RETRY(read(output_.get(), piece, sizeof(piece)));
    if (count <= 0) return Outcome::kEnd;
    buffer_.append(piece, static_cast<size_t>(count));
  }
}

bool Conversation::ReadUntil(const std::string& text, milliseconds patience) {
  const auto deadline = std::chrono::steady_clock::now() + patience;
  for (std::string line; ReadLine(&line, deadline) == Outcome::kLine;) {
    on_line_(line);
    if (line.find(text) != std::string::npos) return true;
  }
  return false;
}

std::optional<int> Conversation::ReadToTheEnd(milliseconds patience) {
  const auto deadline = std::chrono::steady_clock::now() + patience;
  std::string line;
  for (;;) {
    switch (ReadLine(&line, deadline)) {
      case Outcome::kLine:
        on_line_(line);
        continue;
      case Outcome::kGaveUp:
        return std::nullopt;
      case Outcome::kEnd:
        return child_.Wait(patience);
    }
  }
}

}  // namespace bthal::tool
