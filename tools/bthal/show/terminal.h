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

// Whether standard output is a terminal.
bool IsTerminal();

// Columns of the terminal, or those that COLUMNS promises where it does not say. 0, for no limit, where our lines go
// elsewhere; but for someone who passes them on to a terminal (CLICOLOR_FORCE), COLUMNS counts.
int TerminalWidth();

// What is left for a line behind `columns_before` columns; 0 for no limit.
size_t RoomBehind(size_t columns_before);

inline constexpr size_t kUsualIndent = 4;
// Lines, those that are wider than the terminal broken, at a blank where there is one, and gone on with `indent`
// columns further in; where that leaves too little of the terminal, with the usual ones.
std::string Folded(std::string_view lines, size_t indent = kUsualIndent);

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
