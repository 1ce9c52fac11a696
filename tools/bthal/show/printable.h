// Text of foreign origin - a device's name, a log line - as a terminal may be given it.
#pragma once

#include <string>
#include <string_view>

namespace bthal::tool {

// What would move the cursor, colour, or command the terminal in any other way reads as \x1b: C0 but for line ends and
// tabs, DEL, C1 in both its forms, what turns the direction of text, and what is no UTF-8. Our own colours pass.
//
// Text comes in pieces: what a piece ends within is held back until the next.
class TerminalFilter {
 public:
  std::string Pass(std::string_view piece);
  // What is still held back.
  std::string Rest();

 private:
  std::string held_;
};

// One line of it, whole: line ends and tabs do not pass either.
std::string PrintableLine(std::string_view text);

}  // namespace bthal::tool
