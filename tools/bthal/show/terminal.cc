#include "bthal/show/terminal.h"

#include <android-base/stringprintf.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>

#include "bthal/hci/characters.h"
#include "bthal/show/printable.h"

namespace bthal::tool {
namespace {

constexpr size_t kBarWidth = 40;

const char* Code(Colour colour) {
  switch (colour) {
    case Colour::kPlain:
      return "";
    case Colour::kFaint:
      return "\033[2m";
    case Colour::kGood:
      return "\033[32m";
    case Colour::kBad:
      return "\033[31m";
    case Colour::kWarn:
      return "\033[33m";
    case Colour::kToController:
      return "\033[36m";
    case Colour::kFromController:
      return "\033[35m";
    case Colour::kHeading:
      return "\033[1m";
  }
  return "";
}

constexpr int kUsualWidth = 80;

// For someone who passes our lines on to a terminal.
bool IsPassedOn() { return getenv("CLICOLOR_FORCE") != nullptr; }

// Where to break `line`, which is wider than `width`.
size_t BreakAt(std::string_view line, size_t width, size_t indent) {
  const size_t blank = line.rfind(' ', width);
  const bool none = blank == line.npos || line.find_first_not_of(' ') > blank || blank <= indent;
  return none ? UncutLength(line, width) : blank;
}

// "[##########----------] 120/240".
std::string Bar(uint64_t done, uint64_t total) {
  const uint64_t full = total == 0 ? 0 : std::min(done, total) * kBarWidth / total;
  return ::android::base::StringPrintf("[%s%s] %llu/%llu", std::string(full, '#').c_str(),
                                       std::string(kBarWidth - full, '-').c_str(),
                                       static_cast<unsigned long long>(done), static_cast<unsigned long long>(total));
}

// Past the filter of standard output, which lets nobody else do it.
void StartLineOver() {
  fflush(stdout);
  (void)!write(STDOUT_FILENO, "\r", 1);
}

}  // namespace

bool HasColours() {
  static const bool colours = [] {
    const char* term = getenv("TERM");
    const char* no_color = getenv("NO_COLOR");
    const bool wanted = IsTerminal() || IsPassedOn();
    return wanted && (no_color == nullptr || *no_color == '\0') && term != nullptr && std::string_view(term) != "dumb";
  }();
  return colours;
}

bool IsTerminal() {
  static const bool terminal = isatty(STDOUT_FILENO) == 1;
  return terminal;
}

int TerminalWidth() {
  winsize size = {};
  if (ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0) return size.ws_col;
  if (!IsTerminal() && !IsPassedOn()) return 0;
  const char* columns = getenv("COLUMNS");
  const int promised = columns == nullptr ? 0 : atoi(columns);
  return promised > 0 ? promised : kUsualWidth;
}

size_t RoomBehind(size_t columns_before) {
  const auto width = static_cast<size_t>(TerminalWidth());
  if (width == 0) return 0;
  return width > columns_before ? width - columns_before : 1;
}

std::string Folded(std::string_view lines, size_t indent) {
  const size_t width = RoomBehind(0);
  if (width <= kUsualIndent) return std::string(lines);
  if (indent > width * 2 / 3) indent = kUsualIndent;  // or there would be a word a line
  std::string folded;
  while (!lines.empty()) {
    const size_t end = std::min(lines.find('\n'), lines.size());
    std::string line(lines.substr(0, end));
    while (line.size() > width) {
      const size_t at = BreakAt(line, width, indent);
      if (at == line.size()) break;
      folded += line.substr(0, at) + "\n";
      line.replace(0, line[at] == ' ' ? at + 1 : at, indent, ' ');
    }
    folded += line;
    if (end < lines.size()) folded += '\n';
    lines.remove_prefix(std::min(end + 1, lines.size()));
  }
  return folded;
}

std::string Paint(Colour colour, std::string_view text) {
  if (!HasColours() || colour == Colour::kPlain) return std::string(text);
  return std::string(Code(colour)).append(text).append("\033[0m");
}

std::string WithoutColours(std::string_view text) {
  std::string plain;
  for (size_t at = 0; at < text.size();) {
    const size_t escape = std::min(text.find("\033[", at), text.size());
    plain.append(text.substr(at, escape - at));
    const size_t end = text.find('m', escape);
    at = end == std::string_view::npos ? text.size() : end + 1;
  }
  return plain;
}

void ProgressBar::Update(uint64_t done, uint64_t total) {
  const int cells = total == 0 ? 0 : static_cast<int>(std::min(done, total) * kBarWidth / total);
  last_ = label_ + Bar(done, total);
  if (!IsTerminal() || (cells == cells_ && done < total)) return;
  cells_ = cells;
  drawn_ = true;
  StartLineOver();
  printf("%s", last_.c_str());
  fflush(stdout);
}

void ProgressBar::Finish() {
  if (drawn_) {
    StartLineOver();
    printf("%s\n", last_.c_str());
  } else if (!last_.empty()) {
    printf("%s\n", last_.c_str());
  }
  fflush(stdout);
  drawn_ = false;
  last_.clear();
}

int Complain(std::string_view line) {
  fflush(stdout);
  fprintf(stderr, "bthal: %s\n", PrintableLine(line).c_str());
  return 1;
}

}  // namespace bthal::tool
