// Lines that a person types at a terminal, while other things happen there.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "bthal/hci/lines/line_completion.h"

namespace bthal::tool {

struct EditorOptions {
  std::string prompt;
  std::string history_file;                              // empty: none is kept
  std::function<Completion(std::string_view)> complete;  // what may follow the line up to the cursor
  std::function<int()> watched;                          // a descriptor to wait for as well, or -1,
  std::function<void()> on_watched;                      // and who is told that it is readable
};

// With history, completion by Tab and the keys of the user's ~/.editrc. Standard input and output are a terminal. The
// only one of its kind while it lives. What it calls is called by the thread that reads.
class LineEditor {
 public:
  explicit LineEditor(EditorOptions options);
  LineEditor(const LineEditor&) = delete;
  LineEditor& operator=(const LineEditor&) = delete;
  ~LineEditor();  // keeps the history

  // The next line, without its end. Nothing at Ctrl-D, when the terminal hangs up, or when a signal asks for the end.
  std::optional<std::string> Read();

  // Gives the terminal back as it was. Print goes on as before, Read takes it again.
  void LetGo();

  // Prints whole lines: above the prompt, with what is half typed below them as it was, while a line is read. From any
  // thread.
  void Print(const std::string& text);

 private:
  class Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace bthal::tool
