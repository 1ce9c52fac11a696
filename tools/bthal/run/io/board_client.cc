#include "bthal/run/io/board_client.h"

#include <errno.h>
#include <poll.h>
#include <string.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>

#include "bthal/run/interrupt.h"
#include "bthal/run/io/unix_socket.h"
#include "os/device_path.h"
#include "sim/nodes/control.h"

namespace bthal::tool {
namespace {

// A board that lives answers at once.
constexpr std::chrono::seconds kPatience{5};
constexpr char kOk[] = "ok\n";
constexpr char kRefused[] = "error: ";

// Takes what has come until the last line is one that ends an answer.
bool IsWhole(const std::string& answer) {
  if (!answer.ends_with('\n')) return false;
  const size_t before = answer.size() < 2 ? answer.npos : answer.rfind('\n', answer.size() - 2);
  const std::string last = answer.substr(before == answer.npos ? 0 : before + 1);
  return last == kOk || last.starts_with(kRefused);
}

bool Read(int socket, std::string* answer, std::string* error) {
  const auto deadline = std::chrono::steady_clock::now() + kPatience;
  while (!IsWhole(*answer)) {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now()).count();
    pollfd ready[] = {{socket, POLLIN, 0}, {InterruptFd(), POLLIN, 0}};
    if (left <= 0 || Interrupted()) {
      *error = Interrupted() ? "interrupted" : "the board does not answer";
      return false;
    }
    if (poll(ready, 2, static_cast<int>(left)) <= 0 || ready[0].revents == 0) continue;
    char piece[4096];
    const ssize_t count = TEMP_FAILURE_RETRY(recv(socket, piece, sizeof(piece), 0));
    if (count <= 0) {
      *error = "the board has hung up";
      return false;
    }
    answer->append(piece, static_cast<size_t>(count));
  }
  return true;
}

}  // namespace

bool AskBoard(const std::string& question, std::string* answer, std::string* error) {
  answer->clear();
  const std::string path = ::android::hardware::bluetooth::os::DevicePath(sim::kControlSocket);
  const ::android::base::unique_fd socket = ConnectTo(path, SOCK_STREAM);
  if (!socket.ok()) {
    *error = "no virtual board can be asked at " + path + ": " + strerror(errno);
    return false;
  }
  const std::string line = question + "\n";
  if (TEMP_FAILURE_RETRY(send(socket.get(), line.data(), line.size(), MSG_NOSIGNAL)) !=
      static_cast<ssize_t>(line.size())) {
    *error = std::string("cannot ask the board: ") + strerror(errno);
    return false;
  }
  if (!Read(socket.get(), answer, error)) return false;
  const size_t refused = answer->ends_with(kOk) ? answer->npos : answer->rfind(kRefused);
  if (refused != answer->npos) {
    *error = answer->substr(refused + strlen(kRefused));
    error->pop_back();
    return false;
  }
  answer->resize(answer->size() - strlen(kOk));
  return true;
}

}  // namespace bthal::tool
