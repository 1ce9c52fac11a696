// What a terminal can do that a file cannot.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace bthal::tool {

enum class Colour { kPlain, kFaint, kGood, kBad, kWarn, kToController, kFromController, kHeading };

// Whether standard output is a terminal that takes colours: not with NO_COLOR set to anything, nor TERM=dumb.
// CLICOLOR_FORCE has them without a terminal: for someone who passes our lines on to one.
bool HasColours();

// Columns of the terminal, or those that COLUMNS promises; 0 where there is neither.
int TerminalWidth();

// `text` in a colour, or as it is.
std::string Paint(Colour colour, std::string_view text);

// `text` as it belongs into a file.
std::string WithoutColours(std::string_view text);

// One line that is drawn over while a step goes on; the one that stays is the last. Without a terminal only that last
// one is printed.
class ProgressBar {
 public:
  explicit ProgressBar(std::string label) : label_(std::move(label)) {}

  // Draws when the bar has grown by a cell, or is full.
  void Update(uint64_t done, uint64_t total);
  // Ends the line, if one was begun.
  void Finish();
  bool active() const { return drawn_; }

 private:
  std::string label_;
  std::string last_;
  int cells_ = -1;
  bool drawn_ = false;
};

// One line on standard error: "bthal: ...". Returns 1, the exit status that goes with it.
int Complain(std::string_view line);

}  // namespace bthal::tool
