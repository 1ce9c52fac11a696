// What the user's own files go through: what bthal writes is there whole or not at all, and nothing else is touched.
#include "bthal/show/output_file.h"

#include "support/child_process.h"
#include "support/run_program.h"
#include "support/test.h"
#include "support/unix_socket.h"

namespace bthal {
namespace {

using namespace ::bthal::test;

constexpr char kReport[] =
    "=============================================\nAnchors' History\n"
    "=============================================\n"
    "00:00:00:000: a [ IN]\n00:00:00:010: a [OUT]\n";

class OutputFileTest : public ::testing::Test {
 protected:
  OutputFileTest() { root_.Write("/out/report", kReport); }

  std::string Path(const std::string& name) const { return root_.path() + "/out/" + name; }
  bool Write(const std::string& name, const std::string& content = "new\n") {
    return tool::WriteOutput(Path(name), content, &error_);
  }
  // By a user who is not root, and owns none of it.
  bool WriteAsNobody(const std::string& name) const {
    return ChildProcess([&] {
             constexpr uid_t kNobody = 65534;
             if (geteuid() == 0 && seteuid(kNobody) != 0) return 2;
             std::string ignored;
             return tool::WriteOutput(Path(name), "new\n", &ignored) ? 1 : 0;
           }).Wait() == 1;
  }

  const TempRoot root_;
  std::string error_;
};

TEST_F(OutputFileTest, AFileKeepsItsModeAndItsReaderTheOldOne) {
  root_.Write("/out/file", "old\n");
  fs::permissions(Path("file"), fs::perms{0640});
  if (geteuid() == 0) {
    ASSERT_EQ(chown(Path("file").c_str(), 65534, 65534), 0);
  }
  fs::create_symlink("file", Path("link"));
  std::ifstream reader(Path("file"));
  ASSERT_TRUE(Write("link")) << error_;
  EXPECT_EQ(root_.Read("/out/file"), "new\n");
  EXPECT_TRUE(fs::is_symlink(Path("link")));
  EXPECT_EQ(root_.ModeOf("/out/file"), 0640u);
  struct stat info {};
  ASSERT_EQ(stat(Path("file").c_str(), &info), 0);
  EXPECT_EQ(info.st_uid, geteuid() == 0 ? 65534 : geteuid());
  EXPECT_EQ(std::string(std::istreambuf_iterator<char>(reader), {}), "old\n");

  umask(027);
  ASSERT_TRUE(Write("fresh")) << error_;
  EXPECT_EQ(root_.ModeOf("/out/fresh"), 0640u);
}

TEST_F(OutputFileTest, WhatIsNoFileStaysWhatItIs) {
  fs::create_directory(Path("folder"));
  fs::create_symlink("nowhere", Path("dangling"));
  ASSERT_EQ(mkfifo(Path("fifo").c_str(), 0600), 0);
  const unique_fd socket = ListenAt(Path("socket"));
  const size_t entries = CountEntries(Path(""));
  for (const char* name : {"folder", "dangling", "socket", "report/below"}) {
    EXPECT_FALSE(Write(name)) << name;
    EXPECT_THAT(error_, StartsWith("cannot write " + Path(name) + ": "));
    EXPECT_EQ(Bthal({"timeline", Path("report"), "-o", Path(name)}).status, 1) << name;
  }
  const unique_fd reader(open(Path("fifo").c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
  ASSERT_TRUE(Write("fifo")) << error_;
  char piece[16] = {};
  EXPECT_EQ(read(reader.get(), piece, sizeof(piece)), 4);
  fs::create_symlink("/dev/null", Path("null"));
  EXPECT_TRUE(Write("null")) << error_;
  EXPECT_TRUE(fs::is_fifo(Path("fifo")) && fs::is_symlink(Path("null")) && fs::is_directory(Path("folder")));
  EXPECT_EQ(CountEntries(Path("")), entries + 1);
}

TEST_F(OutputFileTest, WhatMayNotBeWrittenIsLeftAsItWas) {
  root_.Write("/out/file", "old\n");
  fs::permissions(root_.path(), fs::perms{0755});
  // A folder that nobody may write to; then one that all may, with a file that is theirs only to read.
  fs::permissions(Path(""), fs::perms{0555});
  EXPECT_FALSE(WriteAsNobody("file") || WriteAsNobody("fresh"));
  fs::permissions(Path(""), fs::perms{0777});
  fs::permissions(Path("file"), fs::perms{0444});
  EXPECT_FALSE(WriteAsNobody("file"));
  EXPECT_TRUE(WriteAsNobody("fresh"));
  EXPECT_EQ(root_.Read("/out/file"), "old\n");
  EXPECT_EQ(CountEntries(Path("")), 3u);
}

// A limit on files' sizes stands for a full disk.
TEST_F(OutputFileTest, AFullDiskCostsNothingThatWasThere) {
  root_.Write("/out/file", "old\n");
  const std::string limited = std::string(kFullDisk) + BTHAL_PROGRAM + " ";
  const ProgramResult result = RunProgram({"/bin/sh", "-c",
                                           "{ " + limited + "timeline " + Path("report") + " -o " + Path("file") +
                                               "; } 2>&1 >/dev/null | cat; ls -A " + Path("")});
  EXPECT_EQ(result.out, "bthal: cannot write " + Path("file") + ": File too large\nfile\nreport\n");
  EXPECT_EQ(root_.Read("/out/file"), "old\n");
}

}  // namespace
}  // namespace bthal
