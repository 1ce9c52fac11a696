#include "os/file_utils.h"

#include <sys/resource.h>

#include <climits>

#include "support/test.h"

namespace android::hardware::bluetooth::os {
namespace {

using namespace ::bthal::test;

constexpr char kLog[] = "/data/vendor/bluetooth/activity.log";
constexpr char kLast[] = "/data/vendor/bluetooth/activity.log.last";

using FileUtilsTest = LoggedTest;

TEST_F(FileUtilsTest, RenamesAndRemovesBelowTheRootAndComplainsWithTheDevicePath) {
  root_.Write(kLog, "one");
  EXPECT_TRUE(FileExists(kLog));
  EXPECT_FALSE(FileExists(kLast));
  EXPECT_TRUE(RenameFile(kLog, kLast));
  EXPECT_EQ(root_.Read(kLast), "one");
  EXPECT_TRUE(RemoveFile(kLast));
  EXPECT_FALSE(FileExists(kLast));
  EXPECT_TRUE(log_.Lines().empty());

  EXPECT_FALSE(RenameFile(kLog, kLast));
  EXPECT_FALSE(RemoveFile(kLog));
  const auto lines = log_.Lines();
  ASSERT_EQ(lines.size(), 2u);
  EXPECT_EQ(lines[0].severity, 'E');
  EXPECT_EQ(lines[0].text,
            "unable to rename file from '/data/vendor/bluetooth/activity.log' to "
            "'/data/vendor/bluetooth/activity.log.last', error: No such file or directory");
  EXPECT_EQ(lines[1].severity, 'E');
  EXPECT_EQ(lines[1].text,
            "unable to remove file '/data/vendor/bluetooth/activity.log', error: No such file or directory");
}

TEST_F(FileUtilsTest, AFreshLogBeginsWithItsCreationTimeAndKeepsOneOlderLog) {
  root_.Write(kLast, "two runs ago");
  root_.Write(kLog, "last run");
  chmod(root_.Below(kLast).c_str(), 0600);
  std::ofstream stream;
  CreateLogFile(kLog, stream);
  ASSERT_TRUE(stream.good());
  EXPECT_EQ(root_.Read(kLast), "last run");
  EXPECT_EQ(root_.ModeOf(kLog), 0644u);
  EXPECT_EQ(log_.Lines().front().text, std::string("CreateLogFile: log_file_path:") + kLog);
  // Numbers without leading zeros, and already on the disk although the stream is still open.
  EXPECT_THAT(root_.Read(kLog), MatchesRegex("20[0-9][0-9]-[1-9][0-9]?-[1-9][0-9]?_"
                                             "(0|[1-9][0-9]?)-(0|[1-9][0-9]?)-(0|[1-9][0-9]?)\n"));
  stream << "line\n";
  CloseLogFileStream(stream);
  EXPECT_FALSE(stream.is_open());
  EXPECT_TRUE(stream.good());
  CloseLogFileStream(stream);  // closed twice is closed once
  EXPECT_TRUE(stream.good());

  CreateLogFile(kLog, stream);
  EXPECT_THAT(root_.Read(kLast), HasSubstr("line\n"));
}

TEST_F(FileUtilsTest, AnUnwritableFolderIsToldAndFailsTheStream) {
  root_.Write("/data/vendor/bluetooth", "a file where the folder should be");
  std::ofstream stream;
  CreateLogFile(kLog, stream);
  EXPECT_TRUE(stream.fail());
  EXPECT_EQ(log_.Count("Previous log file \"/data/vendor/bluetooth/activity.log\" does not exist, skip renaming"), 1u);
  EXPECT_EQ(log_.Count("CreateLogFile: unable to change file permissions /data/vendor/bluetooth/activity.log"), 1u);
  EXPECT_EQ(log_.Count("CreateLogFile: Unable to open bqr energy log at \"/data/vendor/bluetooth/activity.log\", "
                       "error: \"Not a directory\""),
            1u);
}

TEST_F(FileUtilsTest, ALogThatCannotBecomeTheLastOneIsToldAndWrittenOver) {
  root_.Write(kLog, "last run");
  root_.Write(std::string(kLast) + "/in the way", "");
  std::ofstream stream;
  CreateLogFile(kLog, stream);
  EXPECT_TRUE(stream.good());
  EXPECT_EQ(log_.Count("Unabled to rename existing snoop log from \"/data/vendor/bluetooth/activity.log\" to "
                       "\"/data/vendor/bluetooth/activity.log.last\""),
            1u);
  EXPECT_THAT(root_.Read(kLog), Not(HasSubstr("last run")));
}

TEST_F(FileUtilsTest, AFailedCloseShowsInTheStream) {
  root_.Write(kLog, "");
  std::ofstream stream;
  CreateLogFile(kLog, stream);
  signal(SIGXFSZ, SIG_IGN);
  const rlimit full{64, RLIM_INFINITY};
  ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &full), 0);
  stream << std::string(200, 'x');
  EXPECT_TRUE(stream.good());  // still in the stream's buffer
  CloseLogFileStream(stream);
  EXPECT_TRUE(stream.fail());
}

// A report goes to whoever asked for it, who may be slow, gone or never read.
TEST_F(FileUtilsTest, AReaderGetsAllAtItsOwnPaceButHoldsNobodyUp) {
  const std::string text(73 * PIPE_BUF + 1, 'x');  // more than a pipe holds, and a last byte by itself
  root_.Write(kLog, text);
  const unique_fd from = OpenRegularFile(kLog, O_RDONLY);
  unique_fd reader;
  unique_fd writer;
  ASSERT_TRUE(::android::base::Pipe(&reader, &writer));
  std::string read;
  std::thread slow([&] { ::android::base::ReadFdToString(reader.get(), &read); });
  EXPECT_TRUE(CopyToReader(from.get(), writer.get(), std::chrono::minutes(1)));
  writer.reset();
  slow.join();
  EXPECT_EQ(read, text);

  ASSERT_TRUE(::android::base::Pipe(&reader, &writer, O_NONBLOCK | O_CLOEXEC));
  EXPECT_FALSE(CopyToReader(from.get(), writer.get(), std::chrono::milliseconds(1)));
  EXPECT_EQ(errno, ETIMEDOUT);
  const unique_fd folder(open(root_.path().c_str(), O_RDONLY | O_CLOEXEC));
  EXPECT_FALSE(CopyToReader(folder.get(), writer.get(), std::chrono::minutes(1)));
  EXPECT_EQ(errno, EISDIR);
}

}  // namespace
}  // namespace android::hardware::bluetooth::os
