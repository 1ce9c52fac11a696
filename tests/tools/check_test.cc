// bthal check: below a device root, against real terminals and as different users.
#include <android-base/strings.h>
#include <linux/capability.h>
#include <poll.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/xattr.h>
#include <termios.h>

#include "bthal/show/terminal.h"
#include "support/child_process.h"
#include "support/run_program.h"
#include "support/test.h"
#include "support/unix_socket.h"

namespace bthal {
namespace {

using namespace ::bthal::test;

constexpr char kSettings[] = "/vendor/etc/bluetooth/bt_vendor.conf";
constexpr char kDeviceTree[] = "/proc/device-tree/chosen/config/bt_addr";

// A pseudo-terminal of which nobody but its other end knows.
struct Line {
  Line() : end(posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC)) {
    EXPECT_EQ(grantpt(end.get()), 0);
    EXPECT_EQ(unlockpt(end.get()), 0);
    path = ptsname(end.get());
    EXPECT_EQ(chmod(path.c_str(), 0666), 0);
  }
  termios Attributes() const {
    termios attributes = {};
    EXPECT_EQ(tcgetattr(end.get(), &attributes), 0);
    return attributes;
  }

  unique_fd end;
  std::string path;
};

class CheckTest : public ::testing::Test {
 protected:
  // The lines of the check called `name`, without its name and the blanks: "wrong what needed: remedy".
  std::string Row(const std::string& name, const std::vector<std::string>& arguments = {"check"}) const {
    std::istringstream out(Bthal(arguments).out);
    std::string row;
    for (std::string line; std::getline(out, line);) {
      const bool begins = line.size() > 35 && line.substr(15, name.size() + 1) == name + " ";
      if (begins) row = ::android::base::Trim(line.substr(0, 13)) + " " + line.substr(35);
      if (!begins && !row.empty()) return line.starts_with(' ') ? row + " | " + ::android::base::Trim(line) : row;
    }
    return row;
  }

  void Entry(int number, const std::string& type, const std::string& name) const {
    const std::string entry = "/sys/class/rfkill/rfkill" + std::to_string(number);
    root_.Write(entry + "/type", type);
    root_.Write(entry + "/name", name + "\n");
    root_.Write(entry + "/state", "0");
  }

  void Plug(const std::string& port) const {
    std::filesystem::remove(root_.Below("/dev/ttySAC16"));
    std::filesystem::create_symlink(port, root_.Below("/dev/ttySAC16"));
  }

  TempRoot root_;
};

TEST_F(CheckTest, NamesWhatIsMissingAndFallsSilentWhereItIsProvided) {
  const ProgramResult empty = Bthal({"check"});
  EXPECT_EQ(empty.status, 1);
  EXPECT_THAT(empty.out,
              AllOf(HasSubstr("/dev/wbrc is not there"), HasSubstr("bthal board --only coex"),
                    HasSubstr("no .hcd file in /vendor/firmware/qnlr/"),
                    HasSubstr("bthal prop set ro.vendor.bluetooth.evb_bdaddr AA:BB:CC:DD:EE:FF"),
                    HasSubstr("mkdir -p " + root_.path() + "/data/vendor/bluetooth"), HasSubstr("not ready")));
  // On a terminal, lines that fit it.
  const ProgramResult folded =
      RunProgram({"/bin/sh", "-c", "CLICOLOR_FORCE=1 TERM=xterm COLUMNS=80 exec " BTHAL_PROGRAM " check"});
  std::istringstream lines(tool::WithoutColours(folded.out));
  for (std::string line; std::getline(lines, line);) EXPECT_LE(line.size(), 80u) << line;

  const Line line;
  root_.Write("/dev/wbrc", "");
  root_.Write("/vendor/firmware/qnlr/QNL.hcd", "");
  root_.Write(kDeviceTree, "AA:BB:CC:DD:EE:FF\n");
  std::filesystem::create_directories(root_.path() + "/data/vendor/bluetooth");
  std::filesystem::create_directories(root_.path() + "/data/vendor/ssrdump/coredump");
  Plug(line.path);
  const ProgramResult provided = Bthal({"check"});
  EXPECT_EQ(provided.status, 0) << provided.out;
  // What is only useful is still named.
  EXPECT_THAT(provided.out, HasSubstr("/proc/bluetooth/sleep/lpm is not there"));

  // The kernel's driver needs no firmware, and has no use for the sleep lines; a standard controller cannot be kept up.
  root_.Write(kSettings, "UserialType = 0\n");
  const ProgramResult channel = Bthal({"check"});
  EXPECT_THAT(channel.out, AllOf(Not(HasSubstr("firmware")), Not(HasSubstr("sleep driver")), HasSubstr("user channel"),
                                 HasSubstr("needed: AccelBtDisable = true in " + std::string(kSettings))));
  root_.Write(kSettings, "UserialType = 0\nAccelBtDisable = true\n");
  EXPECT_THAT(Row("accelerated on"), StartsWith("ok off"));
}

// What a shell would take apart is quoted: the command is one to paste.
TEST_F(CheckTest, RemediesHoldForAnyRoot) {
  const std::string root = root_.path() + "/it's; a root";
  std::filesystem::create_directory(root);
  setenv("BTHAL_ROOT", root.c_str(), 1);
  const std::string row = Row("packet log");
  const size_t remedy = row.find("mkdir -p ");
  ASSERT_NE(remedy, std::string::npos) << row;
  const ProgramResult made = RunProgram({"/bin/sh", "-c", row.substr(remedy)});
  EXPECT_EQ(made.status, 0) << made.error;
  EXPECT_EQ(Row("packet log"), "ok /data/vendor/bluetooth");
}

TEST_F(CheckTest, RemediesForAnotherUserHoldForAnyRoot) {
  if (geteuid() != 0) GTEST_SKIP() << "only root can look as another user does";
  const std::string root = root_.path() + "/it's; a root";
  const std::string quoted = "'" + root_.path() + "/it'\\''s; a root";
  std::filesystem::create_directory(root);
  setenv("BTHAL_ROOT", root.c_str(), 1);
  const std::vector<std::string> as_nobody = {"check", "--user", "nobody"};
  chmod(root_.path().c_str(), 0755);
  EXPECT_THAT(Row("Binder, properties", as_nobody), HasSubstr("install -d -m 0700 -o <the service's user> " + quoted));
  std::filesystem::create_directories(root + "/run/bthal");
  chmod((root + "/run/bthal").c_str(), 0777);
  EXPECT_EQ(chown((root + "/run/bthal").c_str(), 12345, 12345), 0);
  EXPECT_THAT(Row("Binder, properties", as_nobody), HasSubstr("chown -R <the service's user> " + quoted));
}

TEST_F(CheckTest, ThePowerSwitchIsTheOneThatTheServiceWillUse) {
  EXPECT_THAT(Row("power switch"), StartsWith("missing no rfkill entry of type bluetooth"));
  Entry(3, "bluetooth\n", "bt_power");
  EXPECT_THAT(Row("power switch"), AllOf(StartsWith("wrong /sys/class/rfkill/rfkill3 [bt_power] is not found: "),
                                         HasSubstr("the first number that is missing"), HasSubstr("reboot")));
  Entry(0, "wlan\n", "phy0");
  Entry(1, "bluetooth2\n", "other");
  Entry(2, "", "none");
  EXPECT_EQ(Row("power switch"), "ok /sys/class/rfkill/rfkill3 [bt_power]");

  Entry(1, "bluetooth\n", "hci0");
  std::filesystem::create_symlink("../drivers/btusb", root_.Below("/sys/class/bluetooth/hci0/device/driver"));
  EXPECT_THAT(Row("power switch"),
              AllOf(StartsWith("wrong /sys/class/rfkill/rfkill1 is the switch of hci0, another adapter: "),
                    HasSubstr("useful: unload btusb, or")));
  root_.Write(kSettings, "UserialType = 0\n");
  EXPECT_EQ(Row("power switch"), "ok /sys/class/rfkill/rfkill1 [hci0]");
}

TEST_F(CheckTest, TheSensorHubIsLookedForAndTheTtyOnceItIsGivenUp) {
  root_.Write(kSettings, "UserialType = 2\n");
  EXPECT_THAT(Row("sensor hub"), AllOf(StartsWith("missing nothing plays one at /run/bthal/sensor-hub"),
                                       HasSubstr("needed: let 'bthal board --hub' play it")));
  const std::string place = root_.Below("/run/bthal/sensor-hub");
  unique_fd hub = ListenAt(place, SOCK_SEQPACKET);
  EXPECT_EQ(Row("sensor hub"), "ok /run/bthal/sensor-hub");
  EXPECT_EQ(Row("controller's tty"), "");
  pollfd newcomers{hub.get(), POLLIN, 0};
  EXPECT_EQ(poll(&newcomers, 1, 0), 0) << "a hub notices nothing";
  hub.reset();
  EXPECT_THAT(Row("sensor hub"), StartsWith("missing nobody is left behind /run/bthal/sensor-hub"));
  if (geteuid() == 0) {
    EXPECT_EQ(chown(place.c_str(), 12345, 12345), 0);
    EXPECT_THAT(Row("sensor hub"), StartsWith("not permitted /run/bthal/sensor-hub is user 12345's"));
  }
  SetProperty("bluetooth.usf.dead", "true");
  EXPECT_THAT(Row("sensor hub"), StartsWith("wrong was lost for good in this boot (bluetooth.usf.dead)"));
  EXPECT_THAT(Row("controller's tty"), StartsWith("missing "));
}

TEST_F(CheckTest, TheAddressIsWhatTheServiceReadsFromIt) {
  SetProperty("ro.vendor.bluetooth.evb_bdaddr", "AA-BB-CC-DD-EE-FF");
  EXPECT_THAT(Row("Bluetooth address"),
              AllOf(StartsWith("wrong ro.vendor.bluetooth.evb_bdaddr holds 'AA-BB-CC-DD-EE-FF'"),
                    HasSubstr("needed: a ro. property stays until the next boot: reboot, then bthal prop set")));
  for (const char* text : {"aabbccddeeff", " AA:BB:CC:DD:EE:FF trailing\n"}) {
    root_.Write(kDeviceTree, text);
    EXPECT_EQ(Row("Bluetooth address"), "ok AA:BB:CC:DD:EE:FF (" + std::string(kDeviceTree) + ")") << text;
  }
  root_.Write(kDeviceTree, "AA:BB:CC\n");
  EXPECT_THAT(Row("Bluetooth address"), AllOf(StartsWith("wrong " + std::string(kDeviceTree) + " holds 'AA:BB:CC'"),
                                              HasSubstr("the property is not looked at")));
}

// Who is not root cannot know that nobody else has the port, and leaves it as it is.
TEST_F(CheckTest, ThePortIsTriedWhereNobodyElseHasItAndLeftAsItWas) {
  const Line line;
  Plug(line.path);
  const termios before = line.Attributes();
  EXPECT_EQ(Row("controller's tty"), "ok /dev/ttySAC16 (driver pty_slave)");
  if (geteuid() == 0) {
    EXPECT_EQ(Row("working speed"), "ok takes 4000000 bit/s");
    EXPECT_EQ(Row("flow control"), "ok RTS/CTS; the port has no lines to look at");
  } else {
    EXPECT_THAT(Row("working speed"), StartsWith("unknown not tried: another user's process may have the port"));
  }
  const termios after = line.Attributes();
  EXPECT_EQ(cfgetospeed(&before), cfgetospeed(&after));
  EXPECT_EQ(before.c_cflag, after.c_cflag);
  EXPECT_EQ(before.c_lflag, after.c_lflag);

  const unique_fd other(open(line.path.c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC));
  EXPECT_THAT(Row("working speed"), StartsWith("unknown not tried: process " + std::to_string(getpid()) + ", "));

  Plug("/dev/null");
  EXPECT_THAT(Row("controller's tty"), StartsWith("wrong /dev/ttySAC16: no terminal device"));
  mkfifo(root_.Below("/dev/fifo").c_str(), 0600);
  Plug(root_.Below("/dev/fifo"));
  EXPECT_THAT(Row("controller's tty"), StartsWith("wrong /dev/ttySAC16: no terminal device"));
}

// A terminal of that number among those of a container, whose numbers begin anew; -1 where there is none to be had.
int OpenInContainer(const std::string& folder, const std::string& number) {
  if (unshare(CLONE_NEWNS) != 0 || mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
      mount("devpts", folder.c_str(), "devpts", 0, "newinstance,ptmxmode=0666") != 0) {
    return -1;
  }
  for (;;) {
    const int end = open((folder + "/ptmx").c_str(), O_RDWR | O_NOCTTY);
    const int locked = 0;
    if (end < 0 || ioctl(end, TIOCSPTLCK, &locked) != 0) return -1;
    const int terminal = open((folder + "/" + number).c_str(), O_RDWR | O_NOCTTY);
    if (terminal >= 0) return terminal;
  }
}

TEST_F(CheckTest, AContainersTerminalIsNotThePort) {
  if (geteuid() != 0) GTEST_SKIP() << "needs to be root, to mount";
  const Line line;
  Plug(line.path);
  const Gate gate;
  const ChildProcess container([&] {
    gate.Open(OpenInContainer(root_.path(), std::filesystem::path(line.path).filename()) >= 0 ? '+' : '-');
    return pause();
  });
  if (gate.Pass() != '+') GTEST_SKIP() << "no mounts here";
  EXPECT_EQ(Row("working speed"), "ok takes 4000000 bit/s");
}

TEST_F(CheckTest, AnotherUserIsLookedAsByRootOnly) {
  EXPECT_THAT(Bthal({"check", "--user", "nosuchuser"}).error, HasSubstr("there is no user nosuchuser"));
  if (geteuid() != 0) {
    EXPECT_THAT(Bthal({"check", "--user", "root"}).error, HasSubstr("only root can look as another user does"));
    return;
  }
  chmod(root_.path().c_str(), 0755);
  const Line line;
  Plug(line.path);
  const std::vector<std::string> as_nobody = {"check", "--user", "nobody"};
  EXPECT_THAT(Bthal(as_nobody).out, HasSubstr("\nthe service: as nobody, without capabilities\n"));
  EXPECT_THAT(Row("working speed", as_nobody),
              StartsWith("unknown not tried: another user's process may have the port"));
  EXPECT_THAT(Row("real-time priority", as_nobody), StartsWith("not permitted SCHED_FIFO: "));
  root_.Write("/dev/wbrc", "");
  chmod(root_.Below("/dev/wbrc").c_str(), 0600);
  EXPECT_THAT(Row("coexistence driver", as_nobody), StartsWith("not permitted /dev/wbrc: Permission denied"));
  std::filesystem::create_directories(root_.path() + "/run/bthal");
  chmod(root_.Below("/run/bthal").c_str(), 0777);
  EXPECT_EQ(chown(root_.Below("/run/bthal").c_str(), 12345, 12345), 0);
  EXPECT_THAT(Row("Binder, properties", as_nobody), StartsWith("not permitted /run/bthal is user 12345's"));
}

// Root without a capability is no better off than others, and others with one are no worse off than root.
TEST_F(CheckTest, CapabilitiesAreThoseThatTheServiceWillHave) {
  if (geteuid() != 0) GTEST_SKIP() << "only root has capabilities to lose, or to give to a file";
  const auto without = [](int capability) {
    const TemporaryFile out;
    ChildProcess child([&] {
      prctl(PR_CAPBSET_DROP, capability, 0, 0, 0);
      dup2(out.fd, STDOUT_FILENO);
      execl(BTHAL_PROGRAM, "bthal", "check", nullptr);
      return 127;
    });
    EXPECT_EQ(child.Wait(), 1);
    return ContentOf(out.path);
  };
  EXPECT_THAT(without(CAP_SYS_NICE), HasSubstr("not permitted  real-time priority  SCHED_FIFO: "));
  EXPECT_THAT(without(CAP_NET_ADMIN), Not(HasSubstr("CAP_NET_ADMIN")));

  // A service whose file has it, beside a bthal of its own.
  const std::filesystem::path folder = std::string(BTHAL_PROGRAM) + ".check";
  std::filesystem::create_directory(folder);
  std::filesystem::copy_file(BTHAL_PROGRAM, folder / "bthal", std::filesystem::copy_options::overwrite_existing);
  const std::string service = folder / "android.hardware.bluetooth-service.qnlbtlinux";
  ::android::base::WriteStringToFile("", service);
  chmod(service.c_str(), 0755);
  vfs_cap_data data = {};
  data.magic_etc = VFS_CAP_REVISION_2 | VFS_CAP_FLAGS_EFFECTIVE;
  data.data[0].permitted = CAP_TO_MASK(CAP_SYS_NICE);
  const bool set = setxattr(service.c_str(), "security.capability", &data, XATTR_CAPS_SZ_2, 0) == 0;
  const std::string out = RunProgram({folder / "bthal", "check", "--user", "nobody"}).out;
  std::filesystem::remove_all(folder);
  if (!set) GTEST_SKIP() << "this file system keeps no capabilities";
  EXPECT_THAT(out, AllOf(HasSubstr("as nobody, with CAP_SYS_NICE\n"),
                         HasSubstr("SCHED_FIFO: the service's file has CAP_SYS_NICE")));
}

}  // namespace
}  // namespace bthal
