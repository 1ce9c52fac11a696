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
#include "support/wait_for.h"

namespace bthal::test {

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

inline size_t CountEntries(const std::string& folder) {
  return static_cast<size_t>(std::distance(std::filesystem::directory_iterator(folder), {}));
}

}  // namespace bthal::test
