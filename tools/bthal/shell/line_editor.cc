#include "bthal/shell/line_editor.h"

#include <android-base/unique_fd.h>
#include <errno.h>
#include <fcntl.h>
#include <histedit.h>
#include <poll.h>
#include <signal.h>
#include <stdio.h>
#include <string.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <clocale>
#include <cwchar>
#include <filesystem>
#include <mutex>
#include <utility>

#include "bthal/hci/characters.h"
#include "bthal/run/interrupt.h"
#include "bthal/show/printable.h"
#include "bthal/show/terminal.h"

namespace bthal::tool {
namespace {

using ::android::base::unique_fd;

constexpr int kKeptLines = 1000;

// What the signal handler of a changed window reaches.
std::atomic<int> g_wake{-1};
std::atomic<bool> g_resized{false};

void Wake(int fd) {
  const uint64_t one = 1;
  (void)!write(fd, &one, sizeof(one));
}

void OnResize(int) {
  const int error = errno;
  g_resized = true;
  Wake(g_wake);
  errno = error;
}

std::string CommonBeginning(const std::vector<std::string>& words) {
  std::string common = words.front();
  for (const std::string& word : words) {
    common.erase(static_cast<size_t>(std::ranges::mismatch(common, word).in1 - common.begin()));
  }
  return common;
}

// In columns, as wide as the terminal.
std::string Table(const std::vector<std::string>& words) {
  const size_t cell = std::ranges::max(words, {}, &std::string::size).size() + 2;
  const size_t across = std::max<size_t>(RoomBehind(0) / cell, 1);
  std::string text;
  for (size_t i = 0; i < words.size(); ++i) {
    const bool last = i + 1 == words.size() || (i + 1) % across == 0;
    text += words[i] + (last ? "\n" : std::string(cell - words[i].size(), ' '));
  }
  return text;
}

}  // namespace

class LineEditor::Impl {
 public:
  explicit Impl(EditorOptions options) : options_(std::move(options)), wake_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
    setlocale(LC_CTYPE, "");
    edit_.reset(el_init("bthal", stdin, terminal_.get(), stderr));
    history_.reset(history_init());
    HistEvent event;
    history(history_.get(), &event, H_SETSIZE, kKeptLines);
    history(history_.get(), &event, H_SETUNIQUE, 1);
    if (!options_.history_file.empty()) history(history_.get(), &event, H_LOAD, options_.history_file.c_str());
    el_set(edit_.get(), EL_CLIENTDATA, this);
    el_set(edit_.get(), EL_PROMPT, Prompt);
    el_set(edit_.get(), EL_EDITOR, "emacs");
    el_set(edit_.get(), EL_HIST, history, history_.get());
    // In wide characters, which it takes as they are: of others it makes copies that it never frees.
    el_wset(edit_.get(), EL_ADDFN, L"bthal-complete", L"Complete what is typed", Complete);
    el_set(edit_.get(), EL_BIND, "^I", "bthal-complete", nullptr);
    el_set(edit_.get(), EL_GETCFN, ReadCharacter);
    el_source(edit_.get(), nullptr);
    HoldTerminal();
    CatchResizes();
  }

  ~Impl() {
    sigaction(SIGWINCH, &before_[0], nullptr);
    sigaction(SIGCONT, &before_[1], nullptr);
    g_wake = -1;
    KeepHistory();
  }

  std::optional<std::string> Read() {
    SetReading(true);
    int count = 0;
    const char* line = el_gets(edit_.get(), &count);
    HoldTerminal();
    std::optional<std::string> read;
    if (line != nullptr && count > 0) read = std::string(line, static_cast<size_t>(count));
    // What is not a whole line was being typed when the end came.
    if (read && !read->ends_with('\n')) read.reset();
    if (read) {
      read->pop_back();
      HistEvent event;
      if (!read->empty()) history(history_.get(), &event, H_ENTER, read->c_str());
    } else {
      Write("\n");
    }
    SetReading(false);
    return read;
  }

  void LetGo() { el_set(edit_.get(), EL_PREP_TERM, 0); }

  void Print(const std::string& text) {
    TerminalFilter filter;
    const std::string printable = filter.Pass(text) + filter.Rest();
    const std::lock_guard lock(mutex_);
    if (reading_) {
      waiting_ += printable;
      Wake(wake_.get());
    } else {
      Write(printable);
    }
  }

 private:
  struct EndFile {
    void operator()(FILE* file) const { fclose(file); }
  };
  struct EndEdit {
    void operator()(EditLine* edit) const { el_end(edit); }
  };
  struct EndHistory {
    void operator()(History* history) const { history_end(history); }
  };

  static Impl* Of(EditLine* edit) {
    void* impl = nullptr;
    el_get(edit, EL_CLIENTDATA, &impl);
    return static_cast<Impl*>(impl);
  }

  // The library does not write to it.
  static char* Prompt(EditLine* edit) { return Of(edit)->options_.prompt.data(); }

  static unsigned char Complete(EditLine* edit, int) { return Of(edit)->CompleteHere(); }

  static int ReadCharacter(EditLine* edit, wchar_t* character) { return Of(edit)->NextCharacter(character); }

  void Write(const std::string& text) const {
    fwrite(text.data(), 1, text.size(), terminal_.get());
    fflush(terminal_.get());
  }

  // Between two lines too what is typed waits as it is, not echoed, and a Ctrl-D is a character.
  void HoldTerminal() { el_set(edit_.get(), EL_PREP_TERM, 1); }

  // Who comes back from the background has another screen before him as well.
  void CatchResizes() {
    g_wake = wake_.get();
    struct sigaction action = {};
    action.sa_handler = OnResize;
    action.sa_flags = SA_RESTART;
    sigemptyset(&action.sa_mask);
    sigaction(SIGWINCH, &action, &before_[0]);
    sigaction(SIGCONT, &action, &before_[1]);
  }

  // What was printed between two lines is printed before the next prompt, or behind the last line.
  void SetReading(bool reading) {
    const std::lock_guard lock(mutex_);
    reading_ = reading;
    Write(std::exchange(waiting_, ""));
  }

  // One for a character, 0 at the end of the input.
  int NextCharacter(wchar_t* character) {
    mbstate_t state = {};
    for (;;) {
      const int watched = options_.watched ? options_.watched() : -1;
      pollfd ready[] = {
          {STDIN_FILENO, POLLIN, 0}, {wake_.get(), POLLIN, 0}, {InterruptFd(), POLLIN, 0}, {watched, POLLIN, 0}};
      if (poll(ready, 4, -1) < 0 && errno != EINTR) return 0;
      if (Interrupted()) return 0;
      if (ready[1].revents != 0) ShowWhatWaits();
      if (ready[3].revents != 0) options_.on_watched();
      if (ready[0].revents == 0) continue;
      char byte = 0;
      if (TEMP_FAILURE_RETRY(read(STDIN_FILENO, &byte, 1)) != 1) return 0;
      const size_t used = mbrtowc(character, &byte, 1, &state);
      if (used == static_cast<size_t>(-2)) continue;  // the rest of the character is to come
      if (used == static_cast<size_t>(-1)) {
        state = {};
        continue;
      }
      return 1;
    }
  }

  void ShowWhatWaits() {
    uint64_t count = 0;
    (void)!read(wake_.get(), &count, sizeof(count));
    std::string text;
    {
      const std::lock_guard lock(mutex_);
      text = std::exchange(waiting_, "");
    }
    const bool resized = g_resized.exchange(false);
    if (text.empty() && !resized) return;
    Above(text, resized);
  }

  // Takes prompt and line away, and draws them again below `text`.
  void Above(const std::string& text, bool resized = false) {
    const LineInfo* line = el_line(edit_.get());
    const auto before_cursor = static_cast<size_t>(line->cursor - line->buffer);
    const size_t column = ColumnsOf(options_.prompt) + ColumnsOf({line->buffer, before_cursor});
    const size_t rows = columns_ == 0 ? 0 : column / columns_;
    Write("\r" + (rows > 0 ? "\033[" + std::to_string(rows) + "A" : "") + "\033[J" + text);
    if (resized) el_resize(edit_.get());
    columns_ = RoomBehind(0);
    el_set(edit_.get(), EL_REFRESH);
  }

  unsigned char CompleteHere() {
    const LineInfo* line = el_line(edit_.get());
    const Completion found =
        options_.complete(std::string_view(line->buffer, static_cast<size_t>(line->cursor - line->buffer)));
    if (found.candidates.empty()) return CC_ERROR;
    const std::string common = CommonBeginning(found.candidates);
    std::string rest = common.substr(found.typed);
    if (found.candidates.size() == 1 && !rest.ends_with('=')) rest += ' ';
    if (rest.empty()) Above(Table(found.candidates));
    return rest.empty() || el_insertstr(edit_.get(), rest.c_str()) == 0 ? CC_REFRESH : CC_ERROR;
  }

  // For this user alone from its first moment on; the old one stays until the new one is whole. Who has put a link
  // there, to nowhere as a rule, is left with it.
  void KeepHistory() {
    const std::string& path = options_.history_file;
    std::error_code code;
    if (path.empty() || std::filesystem::is_symlink(path, code)) return;
    std::string fresh = path + ".XXXXXX";
    const int made = mkostemp(fresh.data(), O_CLOEXEC);
    FILE* file = made >= 0 ? fdopen(made, "w") : nullptr;
    HistEvent event;
    const bool saved = file != nullptr && history(history_.get(), &event, H_SAVE_FP, file) >= 0;
    if (file != nullptr && fclose(file) == 0 && saved && rename(fresh.c_str(), path.c_str()) == 0) return;
    Complain("cannot write " + path + ": " + strerror(errno));
    if (made >= 0) unlink(fresh.c_str());
  }

  EditorOptions options_;
  const unique_fd wake_;
  // The terminal itself: what moves its cursor must not be taken for something foreign on its way there.
  const std::unique_ptr<FILE, EndFile> terminal_{fdopen(fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 0), "w")};
  std::unique_ptr<History, EndHistory> history_;
  std::unique_ptr<EditLine, EndEdit> edit_;
  struct sigaction before_[2] = {};
  size_t columns_ = RoomBehind(0);

  std::mutex mutex_;
  bool reading_ = false;
  std::string waiting_;
};

LineEditor::LineEditor(EditorOptions options) : impl_(std::make_unique<Impl>(std::move(options))) {}
LineEditor::~LineEditor() = default;

std::optional<std::string> LineEditor::Read() { return impl_->Read(); }
void LineEditor::LetGo() { impl_->LetGo(); }
void LineEditor::Print(const std::string& text) { impl_->Print(text); }

}  // namespace bthal::tool
