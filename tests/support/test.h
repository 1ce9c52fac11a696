// What a test begins with: the frameworks, the standard library's everyday parts, a device root and a log of its own,
// and the names by which tests know all of these.
#pragma once

#include <android-base/file.h>
#include <android-base/logging.h>
#include <android-base/properties.h>
#include <android-base/unique_fd.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <functional>
#include <future>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "support/log_capture.h"
#include "support/temp_root.h"

namespace bthal::test {

namespace fs = std::filesystem;

using ::android::base::GetProperty;
using ::android::base::SetProperty;
using ::android::base::unique_fd;
using std::chrono::milliseconds;
using std::chrono::seconds;
using std::chrono::steady_clock;
using ::testing::AllOf;
using ::testing::Contains;
using ::testing::ContainsRegex;
using ::testing::Each;
using ::testing::ElementsAre;
using ::testing::ElementsAreArray;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::KilledBySignal;
using ::testing::MatchesRegex;
using ::testing::Not;
using ::testing::Pair;
using ::testing::SizeIs;
using ::testing::StartsWith;

using Bytes = std::vector<uint8_t>;

// Returns as soon as `done()` holds; false when it still does not after `limit`, which is only there to end a test that
// has failed, not to judge speed.
template <typename Condition>
bool WaitFor(Condition done, std::chrono::milliseconds limit = std::chrono::seconds(20)) {
  const auto deadline = std::chrono::steady_clock::now() + limit;
  while (!done()) {
    if (std::chrono::steady_clock::now() > deadline) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  return true;
}

// On a device root of its own, with what is logged meanwhile.
class LoggedTest : public ::testing::Test {
 protected:
  TempRoot root_;
  LogCapture log_;
};

inline Bytes Joined(std::initializer_list<Bytes> parts) {
  Bytes joined;
  for (const Bytes& part : parts) joined.insert(joined.end(), part.begin(), part.end());
  return joined;
}

// How often `piece` is in `text`, without overlaps.
inline size_t CountIn(const std::string& text, const std::string& piece) {
  size_t count = 0;
  for (size_t at = text.find(piece); at != text.npos; at = text.find(piece, at + piece.size())) ++count;
  return count;
}

// What a file holds; nothing when there is none.
inline std::string ContentOf(const std::filesystem::path& path) {
  std::string content;
  ::android::base::ReadFileToString(path.string(), &content);
  return content;
}

// What a process or thread does: R runs, S waits, T is stopped, Z is dead and not reaped, ? is none.
inline char StateOf(pid_t id) {
  const std::string stat = ContentOf("/proc/" + std::to_string(id) + "/stat");
  const size_t name_ends = stat.rfind(')');
  return name_ends == stat.npos ? '?' : stat.at(name_ends + 2);
}

inline size_t CountEntries(const std::string& folder) {
  return static_cast<size_t>(std::distance(std::filesystem::directory_iterator(folder), {}));
}

}  // namespace bthal::test
