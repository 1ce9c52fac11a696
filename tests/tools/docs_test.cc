// The pages in docs/ show what really happens: every command of a "console" block is run, and its output compared.
//
// The service runs on a virtual board; where a page begins without it, on an empty machine. A line "..." stands for
// any lines; numbers, runs of blanks and of '#' count as equal whatever their length.
#include <android-base/strings.h>

#include <cctype>

#include "support/board_session.h"
#include "support/run_program.h"
#include "support/test.h"

namespace bthal {
namespace {

using namespace ::bthal::test;

const fs::path kDocs = fs::path(SOURCE_TREE) / "docs";

struct Example {
  int line = 0;
  std::string command;
  std::vector<std::string> output;
};

std::vector<Example> ExamplesOf(const fs::path& page) {
  std::vector<Example> examples;
  std::ifstream file(page);
  bool inside = false;
  int number = 0;
  for (std::string line; std::getline(file, line);) {
    ++number;
    if (line.starts_with("```")) {
      inside = line == "```console";
    } else if (inside && line.starts_with("$ ")) {
      examples.push_back({number, line.substr(2), {}});
    } else if (inside && line.starts_with("> ") && examples.back().command.find("<<") != std::string::npos) {
      examples.back().command += "\n" + line.substr(2);
    } else if (inside && !line.empty()) {
      examples.back().output.push_back(line);
    }
  }
  return examples;
}

// What may differ from one run to the next is made equal.
std::string Normal(const std::string& line) {
  std::string normal;
  for (const char c : line) {
    const char kind = std::isdigit(static_cast<unsigned char>(c)) ? '0' : c == '\t' ? ' ' : c;
    const bool repeats = kind == '0' || kind == ' ' || kind == '#' || kind == '|';
    if (kind == '|') {
      if (normal.empty() || normal.back() != '#') normal += '#';  // a bar too short to be drawn
    } else if (!repeats || normal.empty() || normal.back() != kind) {
      normal += kind;
    }
  }
  while (normal.ends_with(' ')) normal.pop_back();
  return normal;
}

std::vector<std::string> Lines(const std::string& text) {
  std::vector<std::string> lines;
  std::istringstream stream(text);
  for (std::string line; std::getline(stream, line);) {
    if (!line.empty()) lines.push_back(line);
  }
  return lines;
}

// Whether `actual` is what `shown` promises; a shown line may be the beginning of the actual one.
::testing::AssertionResult Matches(const std::vector<std::string>& shown, const std::vector<std::string>& actual) {
  size_t at = 0;
  bool anything = false;
  for (const std::string& line : shown) {
    if (line == "...") {
      anything = true;
      continue;
    }
    const auto fits = [&](const std::string& candidate) { return Normal(candidate).starts_with(Normal(line)); };
    if (!anything && (at >= actual.size() || !fits(actual[at]))) {
      return ::testing::AssertionFailure()
             << "expected: " << line << "\n     got: " << (at < actual.size() ? actual[at] : "nothing");
    }
    while (at < actual.size() && !fits(actual[at])) ++at;
    if (at == actual.size()) return ::testing::AssertionFailure() << "nowhere: " << line;
    ++at;
    anything = false;
  }
  if (at == actual.size() || anything) return ::testing::AssertionSuccess();
  return ::testing::AssertionFailure() << "not shown: " << actual[at];
}

// A page's commands one after another, in a folder of their own.
class DocsTest : public BoardSessionTest {
 protected:
  DocsTest() {
    const std::string path = fs::path(BTHAL_PROGRAM).parent_path().string() + ":" + getenv("PATH");
    setenv("PATH", path.c_str(), 1);
    unsetenv("COLUMNS");
    fs::current_path(work_.path);
  }

  void Follow(const std::string& page) const {
    const std::vector<Example> examples = ExamplesOf(kDocs / page);
    ASSERT_FALSE(examples.empty());
    for (const Example& example : examples) {
      const ProgramResult result = RunProgram(
          {"/bin/sh", "-c", std::string("export XDG_RUNTIME_DIR=") + work_.path + "\n" + example.command + "\n"});
      const std::string printed =
          ::android::base::StringReplace(result.out + result.error, work_.path, "/run/user/1000", true);
      EXPECT_TRUE(Matches(example.output, Lines(printed)))
          << page << ", line " << example.line << ": " << example.command << "\n"
          << printed;
    }
  }

  const TemporaryDir work_;
};

class PageTest : public DocsTest, public ::testing::WithParamInterface<const char*> {};

TEST_P(PageTest, ShowsWhatHappens) {
  StartBoard({});
  StartService("error");
  // The controller is up before the page begins, and no client had to wait for it.
  ASSERT_TRUE(Await(*board_, sim::WireEvent::kSleepModeSet));
  ASSERT_EQ(Bthal({"hci", "reset"}).status, 0);
  Follow(GetParam());
}

// A machine with nothing but the controller's port, its power switch and its patch file, which come from a board's
// root.
TEST_F(DocsTest, AMachineIsBroughtUpAsThePageSays) {
  StartBoard();
  const TempRoot machine;
  const auto borrow = [&](const std::string& from, const std::string& to) {
    fs::create_symlink(fs::canonical(root_.path() + from), machine.Below(to));
  };
  borrow("/dev/ttySAC16", "/dev/ttyS1");
  borrow("/sys/class/rfkill/rfkill0", "/sys/class/rfkill/rfkill0");
  fs::copy(root_.path() + "/vendor/firmware/qnlr/QNL_188_U.hcd", work_.path);
  Follow("bring-up-on-hardware.md");
}

INSTANTIATE_TEST_SUITE_P(Pages, PageTest,
                         ::testing::Values("board.md", "demo.md", "hci.md", "host-stacks.md", "tools.md"));

}  // namespace
}  // namespace bthal
