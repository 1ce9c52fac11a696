// A socket through which people ask the board for something while it plays.
#pragma once

#include <poll.h>

#include <deque>
#include <functional>
#include <string>
#include <vector>

#include "sim/base/fd.h"
#include "sim/nodes/guardian.h"

namespace bthal::sim {

// Below the device root.
inline constexpr char kControlSocket[] = "/run/bthal/board-control";

// A line is a question; its answer is any number of lines, the last of which is "ok" or begins with "error: ". Belongs
// to the board's thread. A peer never holds it up: who does not read its answer is not read either, and who does
// neither makes room for the next.
class Control {
 public:
  using Answer = std::function<std::string(const std::string& question)>;

  explicit Control(const Guardian* guardian) : guardian_(guardian) {}
  ~Control() { Close(); }

  // Only this user can connect. False with the reason in `error`.
  bool Open(const std::string& root, Answer answer, std::string* error);
  void Close();

  void AddPolls(std::vector<pollfd>* polls) const;
  // Takes whoever has come, and answers what has been asked.
  void Serve();

 private:
  struct Peer {
    Fd socket;
    std::string asked;   // up to a line that has not come whole
    std::string answer;  // what has not been taken yet
  };

  bool Bind(const std::string& folder, const std::string& fresh, std::string* error);
  void Accept();
  // False when the peer has gone, or is to go.
  bool Serve(Peer* peer);
  void AnswerNext(Peer* peer) const;

  const Guardian* const guardian_;
  Answer answer_;
  std::string path_;
  Fd listener_;
  std::deque<Peer> peers_;  // the oldest first
};

}  // namespace bthal::sim
