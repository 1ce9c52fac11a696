// The command line's own words: help in all its forms, manual pages, and completion, each by the program that reads it.
#include <android-base/file.h>
#include <android-base/strings.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <regex>
#include <set>

#include "house/source_tree.h"
#include "support/run_program.h"
#include "support/terminal/screen.h"

namespace bthal {
namespace {

using test::Bthal;
using test::ProgramResult;
using test::RunProgram;
using ::testing::HasSubstr;

std::set<std::string> LongOptionsIn(const std::string& text) {
  const std::vector<std::string> options = test::Matches(text, "(--[a-z][a-z-]+)");
  return {options.begin(), options.end()};
}

std::string Shell(const std::string& shell, const std::string& script) {
  const ProgramResult result = RunProgram({shell, "-c", script});
  EXPECT_EQ(result.error, "") << shell << ": " << script;
  return result.out;
}

TEST(CommandLineTest, HelpIsGivenHoweverItIsAskedFor) {
  const ProgramResult help = Bthal({"--help"});
  for (const auto& words : std::vector<std::vector<std::string>>{{}, {"help"}, {"-h"}}) {
    const ProgramResult result = Bthal(words);
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.out, help.out);
  }
  EXPECT_EQ(Bthal({"help", "prop", "set"}).out, Bthal({"prop", "set", "--help"}).out);
  EXPECT_TRUE(std::regex_match(Bthal({"--version"}).out, std::regex("bthal \\d+\\.\\d+\\.\\d+\n")));
}

// Every word of it, in lines that the terminal does not break.
TEST(CommandLineTest, HelpFitsTheTerminal) {
  const auto words = [](const std::string& text) { return bthal::test::Matches(text, "(\\S+)"); };
  std::vector<std::vector<std::string>> commands = {{"--help"}, {"board", "ctl", "--help"}, {"bridge", "tcp", "-h"}};
  for (const std::string& name : bthal::test::Matches(Bthal({"--help"}).out, "^  ([a-z]+)  "))
    commands.push_back({name, "-h"});
  ASSERT_EQ(commands.size(), 20U);
  for (const std::vector<std::string>& command : commands) {
    const std::string piped = Bthal(command).out;
    for (const size_t columns : {60, 80, 120}) {
      test::TerminalProgram program(test::BthalCommand(command), columns);
      ASSERT_EQ(program.End(), 0);
      EXPECT_EQ(words(program.raw()), words(piped)) << command[0];
      for (const std::string& line : ::android::base::Split(program.raw(), "\n"))
        EXPECT_LE(line.size(), columns + 1) << line;
    }
  }
}

// What is said of an option stands below where it begins; a paragraph is as wide as the terminal.
TEST(CommandLineTest, HelpKeepsItsColumns) {
  test::TerminalProgram program({BTHAL_PROGRAM, "snoop", "--help"}, 80);
  ASSERT_EQ(program.End(), 0);
  const std::string text = ::android::base::StringReplace(program.raw(), "\r", "", true);
  EXPECT_THAT(text, HasSubstr("\n  --time relative|wall=wall   the time column: since the beginning, or the time\n" +
                              std::string(30, ' ') + "of day\n"));
  EXPECT_THAT(text, HasSubstr("\nThe service writes the log when it is opened with\n"
                              "persist.bluetooth.vendor.btsnoop true, on a userdebug or eng build\n"
                              "(ro.build.type) or with persist.bluetooth.btsnooplogmode set. Ctrl-C ends.\n\n"));
}

// Each page renders without a warning and names every option of the command's help; and each has its line in the help.
TEST(CommandLineTest, ManualPagesSayWhatTheHelpSays) {
  const TemporaryDir folder;
  ASSERT_EQ(Bthal({"--manual", folder.path}).status, 0);
  setenv("MANWIDTH", "80", 1);
  setenv("LC_ALL", "C.UTF-8", 1);
  const std::string all = Bthal({"--help"}).out;
  int pages = 0;
  for (const auto& entry : std::filesystem::directory_iterator(folder.path)) {
    const std::string name = entry.path().stem();
    const std::string rendered = Shell("sh", "man --warnings -E ascii -P cat -l " + entry.path().string());
    const bool is_subcommand = name != "bthal";
    const std::string help = is_subcommand ? Bthal({name.substr(6), "--help"}).out : all;
    if (is_subcommand) {
      EXPECT_THAT(help, HasSubstr("Usage: bthal " + name.substr(6)));
      EXPECT_THAT(all, HasSubstr("\n  " + name.substr(6) + " "));
    }
    const std::set<std::string> shown = LongOptionsIn(rendered);
    for (const std::string& option : LongOptionsIn(help)) EXPECT_TRUE(shown.contains(option)) << name << ' ' << option;
    EXPECT_THAT(rendered, HasSubstr("SYNOPSIS")) << name;
    ++pages;
  }
  EXPECT_EQ(pages, 18);
}

// What is typed, and what the shell then offers first.
class CompletionTest : public ::testing::TestWithParam<const char*> {
 protected:
  std::string Offered(const std::string& typed) const {
    const std::string shell = GetParam();
    if (shell == "fish") return Shell(shell, "source " + file_ + "; complete -C '" + typed + "'");
    return Shell("bash", "source " + file_ + "; read -ra COMP_WORDS <<<'" + typed + "'; case '" + typed +
                             "' in *' ') COMP_WORDS+=('') ;; esac; COMP_CWORD=$((${#COMP_WORDS[@]} - 1)); _bthal; " +
                             "printf '%s\\n' \"${COMPREPLY[@]}\"");
  }

  const TemporaryDir folder_;
  const std::string file_ = std::string(folder_.path) + "/_bthal";

  void SetUp() override {
    const ProgramResult completion = Bthal({"--completion", GetParam()});
    ASSERT_EQ(completion.status, 0);
    ASSERT_TRUE(::android::base::WriteStringToFile(completion.out, file_));
  }
};

TEST_P(CompletionTest, OffersCommandsOptionsAndValues) {
  const std::string above = std::filesystem::path(folder_.path).parent_path();
  const std::vector<std::pair<std::string, std::string>> lines = {
      {"bthal sn", "snoop"},
      {"bthal prop g", "get"},
      {"bthal board --on", "--only"},
      {"bthal board ctl st", "state"},
      {"bthal board --only ", "coex"},
      {"bthal timeline " + std::string(folder_.path) + "/_b", file_},
      {"bthal demo --root " + above.substr(0, above.size() - 1), above}};
  for (const auto& [typed, offered] : lines) EXPECT_THAT(Offered(typed), ::testing::StartsWith(offered)) << typed;
  EXPECT_EQ(Offered("bthal prop get sn").find("snoop"), std::string::npos) << "no subcommand follows there";
}

INSTANTIATE_TEST_SUITE_P(Shells, CompletionTest, ::testing::Values("bash", "fish"));

// zsh offers nothing without a terminal; that it takes the file, as a function of its own and sourced, is seen here.
TEST(CompletionOfZshTest, IsTakenByItsCompletionSystem) {
  const TemporaryDir folder;
  const std::string file = std::string(folder.path) + "/_bthal";
  ASSERT_TRUE(::android::base::WriteStringToFile(Bthal({"--completion", "zsh"}).out, file));
  const std::string found = "autoload -U compinit; compinit -u -D; ";
  EXPECT_EQ(Shell("zsh", "fpath=(" + std::string(folder.path) + " $fpath); " + found + "echo $_comps[bthal]"),
            "_bthal\n");
  EXPECT_EQ(Shell("zsh", found + "source " + file + "; echo $_comps[bthal]; whence -w _bthal_prop_get"),
            "_bthal\n_bthal_prop_get: function\n");
}

}  // namespace
}  // namespace bthal
