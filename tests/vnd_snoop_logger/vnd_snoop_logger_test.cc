#include "vnd_snoop_logger.h"

#include <pwd.h>
#include <sys/resource.h>

#include <new>
#include <numeric>

#include "support/btsnoop_file.h"
#include "support/child_process.h"
#include "support/test.h"

namespace {

thread_local size_t t_allocations = 0;
bool g_user_exists = false;

}  // namespace

// Whether the device's user exists is the test's to say. No other user is asked for.
extern "C" int getpwnam_r(const char* name, passwd* entry, char* /*buffer*/, size_t /*size*/, passwd** found) {
  *found = g_user_exists && std::string_view(name) == "bluetooth" ? entry : nullptr;
  return 0;
}

#ifndef BTHAL_SANITIZED  // the sanitizers bring allocation functions of their own
// Counts what this thread allocates.
__attribute__((noinline)) void* operator new(size_t size) {
  ++t_allocations;
  if (void* memory = std::malloc(size == 0 ? 1 : size)) return memory;
  throw std::bad_alloc();
}
__attribute__((noinline)) void operator delete(void* memory) noexcept { std::free(memory); }
__attribute__((noinline)) void operator delete(void* memory, size_t) noexcept { std::free(memory); }
#endif

namespace android::hardware::bluetooth {
namespace {

using namespace ::bthal::test;

using Logger = VndSnoopLogger;

constexpr char kPath[] = "/data/vendor/bluetooth/btsnoop_hci_vnd.log";
constexpr char kLastPath[] = "/data/vendor/bluetooth/btsnoop_hci_vnd.log.last";
constexpr char kEnabled[] = "persist.bluetooth.vendor.btsnoop";
constexpr char kMode[] = "persist.bluetooth.btsnooplogmode";
constexpr char kSize[] = "persist.bluetooth.vendor.btsnoopsize";

hci::HciPacket PacketOf(size_t size, uint8_t first = 0) {
  hci::HciPacket packet;
  packet.resize(size);
  std::iota(packet.begin(), packet.end(), first);
  return packet;
}

std::string Text(const hci::HciPacket& packet) { return std::string(packet.begin(), packet.end()); }

// Write system calls of this process so far, as the kernel counts them.
uint64_t WritesSoFar() {
  std::ifstream io("/proc/self/io");
  std::string name;
  uint64_t value = 0;
  while (io >> name >> value) {
    if (name == "syscw:") return value;
  }
  ADD_FAILURE() << "the kernel does not count system calls";
  return 0;
}

class VndSnoopLoggerTest : public LoggedTest {
 protected:
  VndSnoopLoggerTest() {
    std::filesystem::create_directories(folder_);
    SetProperty(kMode, "full");
  }
  ~VndSnoopLoggerTest() override { logger_.Stop(); }

  void StartEnabled() {
    SetProperty(kEnabled, "true");
    logger_.Start();
  }

  SnoopFile Parse(const char* path) {
    auto file = ParseSnoopFile(root_.Read(path));
    EXPECT_TRUE(file.has_value()) << path << " does not begin as a btsnoop file";
    return file.value_or(SnoopFile());
  }

  const std::string folder_ = root_.path() + "/data/vendor/bluetooth";
  Logger& logger_ = Logger::Get();
};

TEST_F(VndSnoopLoggerTest, RecordsAreByteExact) {
  using std::chrono::duration_cast;
  using std::chrono::microseconds;
  using std::chrono::system_clock;
  constexpr uint64_t kUnixEpoch = 0x00DCDDB30F2F8000;
  const auto now = [] {
    return kUnixEpoch +
           static_cast<uint64_t>(duration_cast<microseconds>(system_clock::now().time_since_epoch()).count());
  };
  struct {
    Logger::Direction direction;
    Logger::PacketType type;
    size_t size;
    uint32_t flags;
  } const kCases[] = {
      {Logger::kToController, Logger::kCommand, 3, 2},
      {Logger::kFromController, Logger::kCommand, 3, 2},
      {Logger::kFromController, Logger::kEvent, 6, 3},
      {Logger::kToController, Logger::kEvent, 6, 3},
      {Logger::kFromController, Logger::kAclData, 1026, 1},
      {Logger::kToController, Logger::kAclData, 65539, 0},
      {Logger::kFromController, Logger::kScoData, 51, 1},
      {Logger::kToController, Logger::kScoData, 0, 0},
      {Logger::kFromController, Logger::kIsoData, 8191, 1},
      {Logger::kToController, Logger::kIsoData, 200000, 0},
      {Logger::kFromController, static_cast<Logger::PacketType>(0x70), 9, 0},
  };
  StartEnabled();
  const uint64_t before = now();
  for (const auto& one : kCases) logger_.Capture(PacketOf(one.size), one.direction, one.type);
  const uint64_t after = now();

  const SnoopFile file = Parse(kPath);
  EXPECT_EQ(file.bytes_left, 0u);
  ASSERT_EQ(file.records.size(), std::size(kCases));
  for (size_t i = 0; i < std::size(kCases); ++i) {
    SCOPED_TRACE(i);
    const SnoopRecord& record = file.records[i];
    EXPECT_EQ(record.original_length, kCases[i].size + 1);
    EXPECT_EQ(record.included_length, kCases[i].size + 1);
    EXPECT_EQ(record.flags, kCases[i].flags);
    EXPECT_EQ(record.drops, 0u);
    EXPECT_EQ(record.type, kCases[i].type);
    EXPECT_TRUE(record.packet == Text(PacketOf(kCases[i].size)));
    EXPECT_GE(record.time, before);
    EXPECT_LE(record.time, after);
  }
  EXPECT_EQ(log_.Count("error"), 0u);
}

TEST_F(VndSnoopLoggerTest, ARecordIsOneWriteAndNoAllocation) {
  StartEnabled();
  // Checking a stream's type for the first time, the undefined-behaviour sanitizer writes to a pipe of its own.
  WritesSoFar();
  for (const size_t size : {0, 6, 255, 998, 999, 1000, 1023, 1024, 8191, 8192, 65539, 500000}) {
    const hci::HciPacket packet = PacketOf(size);
    const uint64_t writes = WritesSoFar();
    const size_t allocations = t_allocations;
    logger_.Capture(packet, Logger::kFromController, Logger::kAclData);
    EXPECT_EQ(t_allocations - allocations, 0u) << size;
    EXPECT_EQ(WritesSoFar() - writes, 1u) << size;
  }
}

TEST_F(VndSnoopLoggerTest, RotatesAfterTheMaximumAndThenAfterOneMore) {
  SetProperty(kSize, "3");
  const mode_t mask = umask(077);
  StartEnabled();
  EXPECT_TRUE(log_.Has("Vendor btsnoop max packets: 3"));
  uint8_t next = 0;
  const auto capture = [&](int count) {
    for (int i = 0; i < count; ++i) {
      logger_.Capture(PacketOf(1, next++), Logger::kToController, Logger::kCommand);
    }
  };
  const auto firsts = [&](const char* path) {
    std::string bytes;
    for (const auto& record : Parse(path).records) bytes += record.packet;
    return bytes;
  };
  capture(3);
  EXPECT_FALSE(std::filesystem::exists(root_.Below(kLastPath)));
  capture(1);
  EXPECT_EQ(firsts(kLastPath), std::string({0, 1, 2}));
  EXPECT_EQ(firsts(kPath), std::string({3}));
  capture(3);
  EXPECT_EQ(firsts(kPath), std::string({3, 4, 5, 6}));
  capture(1);
  EXPECT_EQ(firsts(kLastPath), std::string({3, 4, 5, 6}));
  capture(4);
  EXPECT_EQ(firsts(kLastPath), std::string({7, 8, 9, 10}));
  EXPECT_EQ(firsts(kPath), std::string({11}));

  EXPECT_EQ(root_.ModeOf(kPath), 0644u);
  EXPECT_EQ(root_.ModeOf(kLastPath), 0644u);
  EXPECT_EQ(umask(mask), 077u);
  const auto entries = std::filesystem::directory_iterator(folder_);
  EXPECT_EQ(std::distance(begin(entries), end(entries)), 2);
}

TEST_F(VndSnoopLoggerTest, StartRotatesAndStopKeepsTheFile) {
  StartEnabled();
  EXPECT_TRUE(logger_.is_logging());
  EXPECT_TRUE(log_.Has("Vendor btsnoop max packets: 65535"));
  EXPECT_TRUE(log_.Has("Vendor snoop log enabled: 1"));
  EXPECT_TRUE(log_.Has(std::string("Previous log file \"") + kPath + "\" does not exist, skip renaming"));
  logger_.Capture(PacketOf(4), Logger::kToController, Logger::kCommand);
  logger_.Start();
  EXPECT_EQ(Parse(kLastPath).records.size(), 1u);
  EXPECT_EQ(Parse(kPath).records.size(), 0u);
  logger_.Stop();
  EXPECT_TRUE(log_.Has(std::string("Closing btsnoop log data at ") + kPath));
  EXPECT_FALSE(logger_.is_logging());
  logger_.Capture(PacketOf(4), Logger::kToController, Logger::kCommand);
  EXPECT_EQ(root_.Read(kPath).size(), 16u);
}

TEST_F(VndSnoopLoggerTest, SwitchedOffDeletesBothFiles) {
  const struct {
    const char* enabled;
    const char* mode;
  } kOff[] = {{"", "full"}, {"false", "full"}, {"true", "disabled"}, {"true", ""}};  // "": the build's default
  for (const auto& off : kOff) {
    SCOPED_TRACE(std::string(off.enabled) + "/" + off.mode);
    root_.Write(kPath, "old");
    root_.Write(kLastPath, "older");
    SetProperty(kEnabled, off.enabled);
    SetProperty(kMode, off.mode);
    logger_.Start();
    EXPECT_FALSE(logger_.is_logging());
    logger_.Capture(PacketOf(4), Logger::kToController, Logger::kCommand);
    EXPECT_FALSE(std::filesystem::exists(root_.Below(kPath)));
    EXPECT_FALSE(std::filesystem::exists(root_.Below(kLastPath)));
  }
  log_.Clear();
  logger_.Start();
  EXPECT_TRUE(log_.Has("Deleting logs if they exist"));
  EXPECT_TRUE(log_.Has(std::string("Main log file does not exist at \"") + kPath + "\""));
  EXPECT_TRUE(log_.Has(std::string("Last log file does not exist at \"") + kPath + "\""));  // the main path, as known

  // A file that cannot be removed: a folder that is not empty.
  root_.Write(std::string(kPath) + "/x", "");
  log_.Clear();
  delete_btsnoop_files(kPath);
  EXPECT_TRUE(log_.Has(std::string("Failed to remove main log file at \"") + kPath + "\""));
}

TEST_F(VndSnoopLoggerTest, ADebugBuildLogsWithoutAMode) {
  SetProperty("ro.build.type", "userdebug");
  SetProperty(kMode, "");
  StartEnabled();
  EXPECT_TRUE(logger_.is_logging());
}

TEST_F(VndSnoopLoggerTest, AFilteredPacketIsCutToSixteenBytes) {
  StartEnabled();
  logger_.Capture(PacketOf(100), Logger::kFromController, Logger::kAclData, true);
  logger_.Capture(PacketOf(5), Logger::kFromController, Logger::kAclData, true);
  EXPECT_EQ(root_.Read(kPath).size(), 16u + 25 + 16 + 25 + 5);
  EXPECT_EQ(log_.Count("Capture: filtered ACL packet, filtered:1"), 2u);
}

// Where the disk ends inside a record, the file ends before it, and the next file is whole again.
TEST_F(VndSnoopLoggerTest, AFullDiskCostsTheRestOfTheFileAndNothingElse) {
  SetProperty(kSize, "4");
  StartEnabled();
  signal(SIGXFSZ, SIG_IGN);
  for (const size_t size : {100, 2000}) {  // through the stream's buffer, and past it
    logger_.Start();
    log_.Clear();
    rlimit limit{16 + 25 + 10 + 60, RLIM_INFINITY};
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &limit), 0);
    logger_.Capture(PacketOf(10), Logger::kToController, Logger::kCommand);
    logger_.Capture(PacketOf(size), Logger::kToController, Logger::kAclData);
    EXPECT_EQ(log_.Count("error: \"File too large\""), log_.Lines().size());
    EXPECT_GE(log_.Lines().size(), 1u);
    limit.rlim_cur = RLIM_INFINITY;
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &limit), 0);

    logger_.Capture(PacketOf(11), Logger::kToController, Logger::kCommand);  // stays failed
    EXPECT_TRUE(log_.HasThrottled("Failed to write packet header for btsnoop, error: \"File too large\""));
    EXPECT_TRUE(log_.HasThrottled("Failed to write packet payload for btsnoop, error: \"File too large\""));
    EXPECT_TRUE(log_.HasThrottled("Failed to flush, error: \"File too large\""));
    logger_.Capture(PacketOf(12), Logger::kToController, Logger::kCommand);
    logger_.Capture(PacketOf(13), Logger::kToController, Logger::kCommand);  // the fifth
    const SnoopFile failed = Parse(kLastPath);
    EXPECT_EQ(failed.records.size(), 1u);
    EXPECT_EQ(failed.bytes_left, 0u);
    EXPECT_EQ(Parse(kPath).records.size(), 1u);
  }
}

TEST_F(VndSnoopLoggerTest, WithoutItsFolderItComplainsAndGoesOnWithTheNextFile) {
  std::filesystem::remove_all(folder_);
  StartEnabled();
  EXPECT_TRUE(logger_.is_logging());
  EXPECT_TRUE(log_.Has(std::string("OpenNextSnoopLogFile: unable to change file permissions ") + kPath));
  EXPECT_TRUE(log_.Has(std::string("Unable to open snoop log at \"") + kPath + "\", error: \"No such file or dir"));
  EXPECT_TRUE(log_.Has(std::string("Unable to write file header to \"") + kPath + "\", error: \"No such file or dir"));
  EXPECT_TRUE(log_.Has("Failed to flush, error: \"No such file or directory\""));
  logger_.Capture(PacketOf(10), Logger::kToController, Logger::kCommand);
  EXPECT_TRUE(log_.Has("Failed to write packet header for btsnoop, error: \"No such file or directory\""));

  std::filesystem::create_directories(folder_);
  logger_.Start();
  logger_.Capture(PacketOf(10), Logger::kToController, Logger::kCommand);
  EXPECT_EQ(Parse(kPath).records.size(), 1u);

  std::filesystem::remove(root_.Below(kPath));  // taken away from under an open stream
  log_.Clear();
  logger_.Capture(PacketOf(10), Logger::kToController, Logger::kCommand);
  EXPECT_TRUE(log_.Lines().empty());
  logger_.Start();
  EXPECT_TRUE(log_.Has("skip renaming"));
  logger_.Capture(PacketOf(10), Logger::kToController, Logger::kCommand);
  EXPECT_EQ(Parse(kPath).records.size(), 1u);
}

TEST_F(VndSnoopLoggerTest, EightThreadsTearNoRecord) {
  constexpr int kThreads = 8;
  constexpr int kEach = 2000;
  StartEnabled();
  std::vector<std::thread> threads;
  for (uint8_t t = 0; t < kThreads; ++t) {
    threads.emplace_back([this, t] {
      for (int i = 0; i < kEach; ++i) {
        const hci::HciPacket packet = {t, static_cast<uint8_t>(i), static_cast<uint8_t>(i >> 8)};
        logger_.Capture(packet, Logger::kToController, Logger::kIsoData);
      }
    });
  }
  for (auto& thread : threads) thread.join();
  const SnoopFile file = Parse(kPath);
  ASSERT_EQ(file.records.size(), size_t{kThreads} * kEach);
  int next[kThreads] = {};
  for (const auto& record : file.records) {
    ASSERT_EQ(record.packet.size(), 3u);
    const auto thread = static_cast<size_t>(record.packet[0]);
    ASSERT_LT(thread, size_t{kThreads});
    const int i = static_cast<uint8_t>(record.packet[1]) | static_cast<uint8_t>(record.packet[2]) << 8;
    ASSERT_EQ(i, next[thread]++);
  }
}

// A process that is killed in the middle of its captures leaves files of whole records, but perhaps for the last.
TEST_F(VndSnoopLoggerTest, AKilledProcessLeavesWholeRecords) {
  SetProperty(kSize, "500");
  SetProperty(kEnabled, "true");
  for (const uintmax_t bytes_before_the_kill : {1, 20000, 60000, 100000}) {
    std::filesystem::remove(root_.Below(kPath));
    std::filesystem::remove(root_.Below(kLastPath));
    ChildProcess child([&] {
      logger_.Start();
      for (size_t size = 0;; size = (size + 97) % 3000) {
        logger_.Capture(PacketOf(size), Logger::kFromController, Logger::kAclData);
      }
      return 0;
    });
    EXPECT_TRUE(WaitFor([&] {
      std::error_code absent;
      const auto size = std::filesystem::file_size(root_.Below(kPath), absent);
      return !absent && size > bytes_before_the_kill;
    }));
    child.Kill();
    for (const char* path : {kPath, kLastPath}) {
      const std::string bytes = root_.Read(path);
      if (bytes.size() < 16) continue;  // killed before its header
      const SnoopFile file = Parse(path);
      for (const auto& record : file.records) {
        ASSERT_EQ(record.type, Logger::kAclData);
        ASSERT_EQ(record.drops, 0u);
        ASSERT_TRUE(record.packet == Text(PacketOf(record.packet.size())));
      }
      EXPECT_LT(file.bytes_left, 25u + 3000);
    }
  }
}

TEST_F(VndSnoopLoggerTest, TheFolderIsKeptFromOthersWhereTheDevicesUserExists) {
  const auto mode = [this] { return static_cast<unsigned>(std::filesystem::status(folder_).permissions()); };
  ASSERT_EQ(chmod(folder_.c_str(), 0777), 0);
  StartEnabled();
  EXPECT_EQ(mode(), 0777u);
  g_user_exists = true;
  logger_.Start();
  EXPECT_EQ(mode(), 0750u);
  std::filesystem::remove_all(folder_);
  logger_.Start();  // without it there is nothing to keep
  EXPECT_FALSE(log_.Has("from other users"));
}

// A FIFO in the log's place, with nobody at its other end, is a log that cannot be opened, and none to be removed.
TEST_F(VndSnoopLoggerTest, DoesNotWaitForALogThatIsNoFile) {
  ASSERT_EQ(mkfifo((folder_ + "/btsnoop_hci_vnd.log").c_str(), 0600), 0);
  StartEnabled();
  EXPECT_TRUE(log_.Has(std::string("Unable to open snoop log at \"") + kPath + "\", error: \"No such device or "));
  logger_.Capture({1, 2, 3}, Logger::kToController, Logger::kCommand);
  SetProperty(kEnabled, "false");
  logger_.Start();
  EXPECT_TRUE(log_.Has("Main log file does not exist at"));
}

}  // namespace
}  // namespace android::hardware::bluetooth
