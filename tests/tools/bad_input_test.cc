// What bthal says to input that makes no sense: one line that tells what would be right, a failure, and nothing
// touched.
#include "support/run_program.h"
#include "support/test.h"

namespace bthal {
namespace {

using namespace ::bthal::test;

// 2: the command line cannot be read; 1: what it asks for cannot be done. "$ROOT" stands for a fresh device root.
struct BadInput {
  std::vector<std::string> arguments;
  int status;
  const char* told;
  const char* root = "$ROOT";  // BTHAL_ROOT
};

const std::vector<BadInput> kInputs = {
    // The command line itself.
    {{"frobnicate"}, 2, "there is no subcommand 'frobnicate' (see 'bthal --help')"},
    {{"sonop"}, 2, "there is no subcommand 'sonop'; did you mean 'snoop'?"},
    {{"help", "frobnicate"}, 2, "there is no subcommand 'frobnicate'"},
    {{"help", "timelin"}, 2, "did you mean 'timeline'?"},
    {{"-x"}, 2, "there is no option '-x'"},
    {{"prop"}, 2, "A subcommand is required (see 'bthal prop --help')"},
    {{"prop", "gte", "a"}, 2, "there is no subcommand 'gte'; did you mean 'get'? (see 'bthal prop --help')"},
    {{"demo", "--snop"}, 2, "--snop; did you mean '--snoop'? (see 'bthal demo --help')"},
    {{"demo", "--nonsense"}, 2, "--nonsense (see 'bthal demo --help')"},
    {{"services", "all"}, 2, "not expected: all"},
    {{"conf", "UartPort"}, 2, "not expected: UartPort"},
    {{"dump", "report"}, 2, "not expected: report"},
    {{"snoop", "one", "two"}, 2, "not expected: two"},
    {{"hci", "--script"}, 2, "--script: 1 required FILE missing"},
    {{"hci", "--timeout", "0", "reset"}, 2, "Value 0 not in range 0.001"},
    {{"hci", "--timeout", "soon", "reset"}, 2, "Value soon not in range"},
    {{"hci", "--timeout", "nan", "reset"}, 2, "Value nan not in range 0.001"},
    {{"hci", "--wait-service", "-1", "reset"}, 2, "Value -1 not in range"},
    {{"hci", "--wait-service", "-nan", "reset"}, 2, "Value -nan not in range"},
    {{"dump", "--call-timeout", "0"}, 2, "Value 0 not in range"},
    {{"dump", "--call-timeout", "NaN"}, 2, "Value NaN not in range"},
    {{"dump", "--call-timeout", "inf"}, 2, "Value inf not in range"},
    {{"thread", "--wait", "nan"}, 2, "Value nan not in range"},
    {{"thread", "--count", "many"}, 2, "Value many not in range"},
    {{"timeline", "-", "--min", "-1"}, 2, "Value -1 not in range"},
    {{"supervise", "--max-restarts", "-1"}, 2, "Value -1 not in range"},
    {{"decode"}, 2, "what is required"},
    {{"finder"}, 2, "file is required"},
    {{"timeline"}, 2, "file is required"},
    {{"prop", "get"}, 2, "name is required"},
    {{"prop", "set", "a"}, 2, "value is required"},
    {{"--completion", "tcsh"}, 1, "only for bash, zsh and fish"},
    {{"--completion"}, 2, "takes bash, zsh or fish"},
    {{"--manual"}, 2, "takes the folder to write to"},
    {{"--manual", "/nowhere"}, 1, "cannot write /nowhere/bthal.1: the folder /nowhere: No such file"},
    // The board, and the demo on it.
    {{"board", "--chip-id", "300"}, 2, "not in range 0 to 255"},
    {{"board", "--patch-records", "70000"}, 2, "not in range 1 to 65535"},
    {{"board", "--only", "toaster"}, 2, "toaster not in {coex}"},
    {{"board", "--fault", "gremlins"}, 1, "--fault gremlins: "},
    {{"board", "--fault", "no-answer,count=0"}, 1, "--fault no-answer,count=0: a fault with count=0 never strikes"},
    {{"board", "--address", "1:2:3"}, 1, "'1:2:3' is no Bluetooth address; write it as 22:22:5A:01:02:03"},
    {{"board", "--local-name", std::string(248, 'x')}, 1, "has 248 bytes; at most 247 are allowed"},
    {{"board", "--backend", "/tmp/emulator"}, 1, "--backend is written unix:PATH, not '/tmp/emulator'"},
    {{"board", "--backend", "unix:"}, 1, "--backend is written unix:PATH"},
    {{"board", "--backend", "unix:/nowhere/socket"}, 1, "No such file or directory; start the emulator first"},
    {{"board", "--backend", "unix:$ROOT/not-a-log"}, 1, "that is no socket"},
    {{"board"}, 1, "board: where? Give --root DIR, or set BTHAL_ROOT", ""},
    {{"board", "--root", "$ROOT/not-a-log"}, 1, "is no folder"},
    {{"demo", "--root", "$ROOT/not-a-log"}, 1, "is no folder"},
    {{"demo", "--root", "/proc/nowhere"}, 1, "cannot make the folder /proc/nowhere"},
    {{"demo", "--root", "$ROOT/new", "--fault", "gremlins"}, 1, "--fault gremlins: "},
    {{"demo", "--root", "$ROOT/new", "--address", "zz"}, 1, "'zz' is no Bluetooth address"},
    // The device root.
    {{"services"}, 1, "the device root $ROOT/missing (BTHAL_ROOT) does not exist", "$ROOT/missing"},
    {{"supervise"}, 1, "does not exist; correct it, or make it", "$ROOT/missing"},
    {{"prop", "set", "a", "1"}, 1, "does not exist", "$ROOT/missing"},
    {{"check"}, 1, "is no folder, or only a link to one", "$ROOT/not-a-log"},
    {{"dump"}, 1, "no service runs on $ROOT ("},
    {{"hci", "--wait-service", "0", "reset"}, 1, "start it with bthal supervise"},
    {{"afh", "--avoid", "3"}, 1, "IBTChannelAvoidance/default is not published"},
    {{"finder", "$ROOT/mode"}, 1, "IBluetoothFinder/default is not published"},
    {{"thread"}, 1, "the service serves it while a client has the HAL"},
    {{"supervise", "--", "/nowhere/program"}, 1, "cannot run /nowhere/program: No such file or directory"},
    {{"supervise", "--", "$ROOT/keys"}, 1, "/keys: Permission denied"},
    // HCI.
    {{"hci", "resett"}, 1, "'resett' is no command ('list' shows them"},
    {{"hci", "reset", "wait hardware_eror"}, 1, "is no event (did you mean 'hardware_error'?)"},
    {{"hci", "wait 0x100"}, 1, "'0x100' is no event"},
    {{"hci", "list frobs"}, 1, "no command has 'frobs' in its name"},
    {{"hci", "help frob"}, 1, "'frob' is no command"},
    {{"hci", "--script", "/nowhere/script"}, 1, "cannot read /nowhere/script: No such file or directory"},
    {{"hci", "--script", "$ROOT/vendor"}, 1, "cannot read $ROOT/vendor: Is a directory"},
    {{"hci", "--script", "$ROOT/script"}, 1, "/script, line 2: 'resett' is no command"},
    {{"hci", "--script", "$ROOT/script", "reset"}, 1, "lines on the command line and --script at once"},
    // Files and values.
    {{"dump", "-o", "/nowhere/report"}, 1, "cannot write /nowhere/report: the folder /nowhere"},
    {{"dump", "-o", "$ROOT/vendor"}, 1, "it is a folder; name a file in it"},
    {{"timeline", "/nowhere/report"}, 1, "cannot read /nowhere/report: No such file"},
    {{"timeline", "$ROOT/not-a-log"}, 1, "no \"Anchors' History\" in it"},
    {{"snoop", "--once"}, 1, "bthal prop set persist.bluetooth.vendor.btsnoop true"},
    {{"snoop", "--once", "$ROOT/not-a-log"}, 1, "not a btsnoop log"},
    {{"decode", "xyz"}, 1, "'xyz' is neither a file nor pairs of hex digits"},
    {{"decode", "--as", "letter", "00"}, 2, "letter not in {command,event,acl,sco,iso}"},
    {{"decode", "--as", "command", "03 0c 01"}, 1, "malformed: the length says 1, 0 there"},
    {{"prop", "get", "no.such.thing"}, 1, "no.such.thing is not set"},
    {{"prop", "set", "a.name", std::string(92, 'x')}, 1, "at most 91 bytes, this one has 92"},
    {{"prop", "set", "../name", "1"}, 1, "'../name' is no property's name"},
    {{"prop", "set", "persist.name", "1"}, 1, "cannot set persist.name below $ROOT/var/lib/bthal: Not a directory"},
    {{"conf"}, 1, "there is no setting 'UartPrt'; did you mean 'UartPort'?"},
    {{"thread", "abc"}, 1, "'abc' is no frame"},
    {{"finder", "/nowhere/keys"}, 1, "cannot read /nowhere/keys: No such file"},
    {{"finder", "$ROOT/keys"}, 1, "line 1 is neither a key of 20 bytes"},
    {{"finder", "$ROOT/empty"}, 1, "holds neither a key nor a mode"},
    {{"afh"}, 1, "either a map or --avoid"},
    {{"afh", "ff"}, 1, "'ff' is no channel map: expected 10 bytes"},
    {{"afh", "--avoid", "0-77"},
     1,
     "the map leaves 1 of the 79 channels, and a controller takes none that leaves fewer"},
    {{"afh", "ffff0700000000000080"}, 1, "the map leaves 19 of the 79 channels"},
    {{"afh", "--avoid", "79"}, 1, "'79' is no channel: expected numbers from 0 to 78"},
};

class BadInputTest : public ::testing::TestWithParam<BadInput> {
 protected:
  BadInputTest() {
    root_.Write("/not-a-log", "this is no btsnoop log, and no report\n");
    root_.Write("/script", "reset\nresett\n");
    root_.Write("/keys", "0011\n");
    root_.Write("/mode", "mode on\n");
    root_.Write("/empty", "# nothing\n");
    root_.Write("/var/lib/bthal", "in the way\n");
    root_.Write("/vendor/etc/bluetooth/bt_vendor.conf", "UartPrt = /dev/ttyS1\n");
  }

  std::string Placed(std::string text) const {
    for (size_t at = 0; (at = text.find("$ROOT")) != std::string::npos;) text.replace(at, 5, root_.path());
    return text;
  }

  // Each file and folder with its age and, of a file, what is in it.
  std::map<std::string, std::string> Listing() const {
    std::map<std::string, std::string> files;
    for (const auto& entry : fs::recursive_directory_iterator(root_.path())) {
      const std::string path = entry.path();
      files[path] = std::to_string(entry.last_write_time().time_since_epoch().count());
      if (entry.is_regular_file()) files[path] += root_.Read(path.substr(root_.path().size()));
    }
    return files;
  }

  const TempRoot root_;
};

TEST_P(BadInputTest, GetsOneLineAndAFailureAndTouchesNothing) {
  std::vector<std::string> arguments;
  for (const std::string& argument : GetParam().arguments) arguments.push_back(Placed(argument));
  setenv("BTHAL_ROOT", Placed(GetParam().root).c_str(), 1);
  const std::map<std::string, std::string> before = Listing();
  const ProgramResult result = Bthal(arguments);
  EXPECT_EQ(result.status, GetParam().status);
  EXPECT_THAT(result.error, AllOf(StartsWith("bthal: "), HasSubstr(Placed(GetParam().told))));
  EXPECT_EQ(std::ranges::count(result.error, '\n'), 1) << result.error;
  EXPECT_EQ(Listing(), before);
}

void PrintTo(const BadInput& input, std::ostream* out) { *out << ::testing::PrintToString(input.arguments); }

INSTANTIATE_TEST_SUITE_P(Rows, BadInputTest, ::testing::ValuesIn(kInputs));

}  // namespace
}  // namespace bthal
