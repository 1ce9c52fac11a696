// Carries the actions of an HCI script out, and shows what goes and comes.
#pragma once

#include <chrono>
#include <functional>
#include <mutex>
#include <string>

#include "bthal/hci/lines/script.h"
#include "bthal/run/binder_client.h"
#include "bthal/run/hal_claim.h"
#include "bthal/show/packet_line.h"
#include "bthal/show/terminal.h"
#include "bthal/show/time_column.h"

namespace bthal::tool {

struct SessionOptions {
  bool times = true;  // a time column
  TimeStyle time_style = TimeStyle::kRelative;
  bool take_over = false;  // end a client of ours that has the HAL
  PacketView view;
  std::chrono::milliseconds answer_patience{2000};
  std::chrono::milliseconds service_patience{10000};
  // Whether the service is the caller's own and has ended, so that none is to be waited for. Empty: one may always
  // come.
  std::function<bool()> service_ended;
  // What a line fails with that comes to a dead service.
  std::string death_words =
      "the service has died; its log says why, as bthal supervise does ('initialize' waits for the next one)";
  // Take what would go to standard output and, a line without "bthal: ", to standard error. Called on any thread, one
  // at a time. Empty: there it goes.
  std::function<void(const std::string&)> show;
  std::function<void(const std::string&)> complain;
};

class HciSession {
 public:
  explicit HciSession(const SessionOptions& options);

  // Parses and runs one line. The first that is about the controller takes the HAL. False when it could not be
  // understood, or an expected answer did not come; what was wrong has been said on standard error.
  bool Run(const std::string& line);
  // Whether the command that was run last has been carried out, or the refusal looked at (expect); what was refused is
  // said, once. To be called before a line that is no expectation, and at the end.
  bool Settle();
  // To be called last: gives the HAL back, if it is held. False when it could not be, and when the service has died
  // with it; but `person`, someone who types, has seen that and may leave all the same.
  bool End(bool person);

  bool quit() const { return quit_; }

 private:
  bool Perform(const ScriptAction& action);
  bool List(const std::string& word) const;
  bool Send(const ScriptAction& action);
  bool AwaitAnswer(uint16_t opcode);
  bool Wait(const ScriptAction& action);
  bool Expect(const ScriptAction& action);
  bool Scan(double seconds);
  bool Sleep(double seconds);
  bool Open();
  bool Initialize();
  bool Close();
  bool TryToInitialize(std::string* error);
  bool Fail(const std::string& why) const;
  bool FailOfDeath();
  void Show(const std::string& text) const;
  void Note(const std::string& text, Colour colour = Colour::kPlain) const;
  std::string Time() const { return options_.times ? time_.At() : ""; }
  void PrintPacket(Direction direction, uint8_t kind, std::span<const uint8_t> packet) const;

  const SessionOptions options_;
  const TimeColumn time_;
  mutable std::mutex print_mutex_;  // packets are printed by Binder threads
  ReceivedPacket last_answer_;
  bool refused_ = false;  // it says so, and nobody has looked at it yet
  bool opened_ = false;
  bool death_told_ = false;  // why a line failed
  bool quit_ = false;
  HalClaim claim_;
  HciClient client_;  // last: its threads print through the members above
};

}  // namespace bthal::tool
