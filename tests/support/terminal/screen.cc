#include "support/terminal/screen.h"

#include <poll.h>
#include <pty.h>
#include <sys/wait.h>
#include <termios.h>

namespace bthal::test {

void Screen::GoTo(size_t row) {
  row_ = row;
  if (rows_.size() <= row_) rows_.resize(row_ + 1);
}

void Screen::Put(char c) {
  if (column_ == columns_) {  // a full row goes on in the next as soon as more comes
    column_ = 0;
    GoTo(row_ + 1);
  }
  std::string& row = rows_[row_];
  if (row.size() < column_) row.resize(column_, ' ');
  if (inserting_ || row.size() == column_) row.insert(column_, 1, c);
  row[column_++] = c;
}

void Screen::Control(char final, const std::string& parameters) {
  const size_t number = parameters.empty() ? 0 : std::stoul("0" + parameters);
  const size_t count = std::max<size_t>(number, 1);
  std::string& row = rows_[row_];
  switch (final) {
    case 'A':
      return GoTo(row_ - std::min(count, row_));
    case 'B':
      return GoTo(row_ + count);
    case 'C':
      column_ = std::min(column_ + count, columns_ - 1);
      return;
    case 'D':
      column_ -= std::min(count, column_);
      return;
    case 'G':
      column_ = count - 1;
      return;
    case 'J':
      rows_.resize(row_ + 1);
      [[fallthrough]];
    case 'K':
      if (row.size() > column_) rows_[row_].resize(column_);
      return;
    case 'P':
      if (column_ < row.size()) row.erase(column_, count);
      return;
    case '@':
      if (column_ < row.size()) row.insert(column_, count, ' ');
      return;
    case 'h':
    case 'l':
      inserting_ = final == 'h' && number == 4;
      return;
    case 'm':
      return;
    default:
      strange_ += "[" + parameters + final;
  }
}

void Screen::Take(std::string_view text) {
  for (const char c : text) {
    if (!escape_.empty()) {
      escape_ += c;
      if (escape_ == "\033[" || (escape_[1] == '[' && (c < '@' || c > '~'))) continue;
      if (escape_[1] == '[') {
        Control(c, escape_.substr(2, escape_.size() - 3));
      } else {
        strange_ += escape_.substr(1);
      }
      escape_.clear();
    } else if (c == '\033') {
      escape_ = c;
    } else if (c == '\r') {
      column_ = 0;
    } else if (c == '\n') {
      GoTo(row_ + 1);
    } else if (c == '\b') {
      column_ -= std::min<size_t>(column_, 1);
    } else if (c != '\a') {
      Put(c);
    }
  }
}

bool Screen::Holds(const std::string& text) const {
  return std::ranges::any_of(rows_, [&](const std::string& row) { return row.find(text) != row.npos; });
}

TerminalProgram::TerminalProgram(const std::vector<std::string>& arguments, size_t columns) : screen_(columns) {
  const winsize size = {24, static_cast<unsigned short>(columns), 0, 0};
  int terminal = -1;
  pid_ = forkpty(&terminal, nullptr, nullptr, &size);
  if (pid_ == 0) {
    setenv("TERM", "xterm", 1);
    std::vector<char*> words;
    for (const std::string& argument : arguments) words.push_back(const_cast<char*>(argument.c_str()));
    words.push_back(nullptr);
    execv(words[0], words.data());
    _exit(127);
  }
  terminal_.reset(terminal);
}

TerminalProgram::~TerminalProgram() {
  if (pid_ < 0) return;
  kill(pid_, SIGKILL);
  waitpid(pid_, nullptr, 0);
}

void TerminalProgram::Type(const std::string& text) const { ::android::base::WriteStringToFd(text, terminal_.get()); }

void TerminalProgram::Resize(size_t columns) {
  screen_.Resize(columns);
  const winsize size = {24, static_cast<unsigned short>(columns), 0, 0};
  ioctl(terminal_.get(), TIOCSWINSZ, &size);
}

bool TerminalProgram::Echoes() const {
  termios settings = {};
  return tcgetattr(terminal_.get(), &settings) == 0 && (settings.c_lflag & (ECHO | ICANON)) == (ECHO | ICANON);
}

// False at the end of what it writes, or when nothing has come for a moment.
bool TerminalProgram::Read() {
  pollfd ready = {terminal_.get(), POLLIN, 0};
  if (!terminal_.ok() || poll(&ready, 1, 10) <= 0) return false;
  char piece[4096];
  const ssize_t count = TEMP_FAILURE_RETRY(read(terminal_.get(), piece, sizeof(piece)));
  if (count <= 0) return false;
  raw_.append(piece, static_cast<size_t>(count));
  screen_.Take({piece, static_cast<size_t>(count)});
  return true;
}

bool TerminalProgram::WaitFor(const std::function<bool(const Screen&)>& done) {
  return test::WaitFor([&] {
    while (Read() && !done(screen_)) {
    }
    return done(screen_);
  });
}

bool TerminalProgram::Shows(const std::string& text) {
  return WaitFor([&](const Screen& screen) { return screen.Holds(text); });
}

int TerminalProgram::End() {
  int status = 0;
  const bool ended = test::WaitFor([&] {
    while (Read()) {
    }
    return waitpid(pid_, &status, WNOHANG) == pid_;
  });
  if (!ended) return -1000;
  pid_ = -1;
  while (Read()) {
  }
  return WIFSIGNALED(status) ? -WTERMSIG(status) : WEXITSTATUS(status);
}

}  // namespace bthal::test
