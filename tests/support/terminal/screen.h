// What stands on a terminal's screen.
#pragma once

#include "support/test.h"

namespace bthal::test {

// Understands what a line editor writes: text, CR, LF, backspace, cursor moves, erasing, inserting and deleting.
// Everything that was ever there stays: the rows grow as on a terminal with an endless memory.
class Screen {
 public:
  explicit Screen(size_t columns) : columns_(columns) {}

  void Resize(size_t columns) { columns_ = columns; }
  void Take(std::string_view text);

  // The rows without the blanks at their ends.
  const std::vector<std::string>& rows() const { return rows_; }
  bool Holds(const std::string& text) const;
  // The row that the cursor is in, and those above it that it goes on from.
  std::string CursorRow() const { return rows_[row_]; }
  // What no terminal should have been sent: sequences that are not known here.
  const std::string& strange() const { return strange_; }

 private:
  void Put(char c);
  void Control(char final, const std::string& parameters);
  void GoTo(size_t row);

  size_t columns_;
  std::vector<std::string> rows_{""};
  size_t row_ = 0;
  size_t column_ = 0;
  bool inserting_ = false;
  std::string escape_;  // a sequence that has not come whole
  std::string strange_;
};

// A program whose terminal the test is.
class TerminalProgram {
 public:
  TerminalProgram(const std::vector<std::string>& arguments, size_t columns);
  ~TerminalProgram();  // kills it if it is still there
  TerminalProgram(const TerminalProgram&) = delete;
  TerminalProgram& operator=(const TerminalProgram&) = delete;

  pid_t pid() const { return pid_; }
  void Type(const std::string& text) const;
  void Resize(size_t columns);
  void HangUp() { terminal_.reset(); }
  // Reads until `done` holds of the screen; false when it still does not after 20 s, or the program has ended.
  bool WaitFor(const std::function<bool(const Screen&)>& done);
  bool Shows(const std::string& text);
  // Whether the terminal shows what is typed by itself, as it does for programs that leave it alone.
  bool Echoes() const;
  // Its exit status, or minus the signal that ended it; -1000 when it has not ended after 20 s.
  int End();

  const Screen& screen() const { return screen_; }
  const std::string& raw() const { return raw_; }

 private:
  bool Read();

  Screen screen_;
  std::string raw_;
  unique_fd terminal_;
  pid_t pid_ = -1;
};

}  // namespace bthal::test
