#include "bthal/run/hci_session.h"

#include <android-base/stringprintf.h>

#include <cstdio>
#include <optional>
#include <utility>

#include "bthal/hci/command_help.h"
#include "bthal/hci/dictionary.h"
#include "bthal/hci/hex.h"
#include "bthal/hci/words.h"
#include "bthal/run/device_names.h"
#include "bthal/run/interrupt.h"
#include "bthal/run/service_calls.h"
#include "bthal/show/journal_words.h"
#include "bthal/show/terminal.h"

namespace bthal::tool {
namespace {

using ::android::base::StringPrintf;
using std::chrono::milliseconds;

milliseconds Milliseconds(double seconds) { return milliseconds(static_cast<int64_t>(seconds * 1000)); }

// Command Complete, Command Status, or, in local loopback mode, the command itself coming back.
bool Answers(const ReceivedPacket& packet, uint16_t opcode) {
  if (packet.kind != kEvent) return false;
  if (AnsweredOpcode(packet.bytes) == opcode) return true;
  return packet.bytes.size() >= 4 && packet.bytes[0] == events::kLoopbackCommand && Le16(packet.bytes, 2) == opcode;
}

bool NeedsHal(ScriptAction::Verb verb) {
  using Verb = ScriptAction::Verb;
  return verb == Verb::kSend || verb == Verb::kWait || verb == Verb::kScan || verb == Verb::kSleep;
}

}  // namespace

HciSession::HciSession(const SessionOptions& options)
    : options_(options),
      time_(options.time_style),
      client_({.on_packet =
                   [this](const ReceivedPacket& packet) {
                     PrintPacket(Direction::kFromController, packet.kind, packet.bytes);
                   },
               .on_death =
                   [this] {
                     Note("the service has died", Colour::kBad);
                     claim_.Release();
                   }}) {}

void HciSession::Show(const std::string& text) const {
  const std::lock_guard lock(print_mutex_);
  if (options_.show) {
    options_.show(text);
    return;
  }
  printf("%s", text.c_str());
  fflush(stdout);
}

void HciSession::Note(const std::string& text, Colour colour) const {
  Show(Time() + Paint(colour, tool::Note("hal", text)) + "\n");
}

void HciSession::PrintPacket(Direction direction, uint8_t kind, std::span<const uint8_t> packet) const {
  Show(PacketText(options_.view, Time(), direction, kind, packet));
}

// Whoever asks for the end need not be told that something did not come to its own.
bool HciSession::Fail(const std::string& why) const {
  if (Interrupted()) return false;
  const std::lock_guard lock(print_mutex_);
  if (options_.complain) {
    options_.complain(why);
  } else {
    Complain(why);
  }
  return false;
}

bool HciSession::FailOfDeath() {
  death_told_ = true;
  return Fail(options_.death_words);
}

// A service that dies before it has taken us has died of what its last client left behind, or was ended: the next one
// is asked.
bool HciSession::Open() {
  const auto deadline = std::chrono::steady_clock::now() + options_.service_patience;
  std::string error;
  do {
    if (!AwaitService(kHciService, options_.service_patience, &error, options_.service_ended)) {
      return options_.service_ended && options_.service_ended() ? FailOfDeath() : Fail(error);
    }
    if (!claim_.Take(options_.take_over, &error)) return Fail(error);
    if (!client_.Connect(options_.service_patience, &error)) return Fail(error);
    opened_ = true;
    if (TryToInitialize(&error)) return true;
  } while (client_.died_unheard() && !Interrupted() && std::chrono::steady_clock::now() < deadline);
  return Fail(error);
}

bool HciSession::Initialize() {
  if (!opened_ || client_.ServiceDied()) return Open();
  if (client_.initialized()) return Fail("initialize: the HAL is ours already; 'close' gives it back");
  std::string error;
  if (!claim_.Take(options_.take_over, &error)) return Fail(error);
  if (TryToInitialize(&error)) return true;
  return client_.died_unheard() ? Open() : Fail(error);
}

bool HciSession::TryToInitialize(std::string* error) {
  constexpr milliseconds kBringUpPatience = std::chrono::seconds(60);
  if (!client_.Initialize(kBringUpPatience, error)) return false;
  death_told_ = false;
  Note("initialised: SUCCESS");
  return true;
}

bool HciSession::Close() {
  if (client_.ServiceDied()) return FailOfDeath();
  std::string error;
  const bool closed = client_.Close(&error);
  claim_.Release();
  if (!closed) return Fail(error);
  Note("closed");
  return true;
}

bool HciSession::End(bool person) {
  if (!client_.initialized()) return true;
  if (client_.ServiceDied() && (person || death_told_)) return person;
  return Close();
}

bool HciSession::Run(const std::string& line) {
  std::string error;
  const std::optional<ScriptAction> action = ParseScriptLine(line, &error);
  if (!action) return Fail(error);
  return (opened_ || !NeedsHal(action->verb) || Open()) && Perform(*action);
}

bool HciSession::Settle() {
  if (!std::exchange(refused_, false)) return true;
  return Fail("the controller refuses: " + PacketWords(last_answer_.kind, last_answer_.bytes));
}

bool HciSession::Perform(const ScriptAction& action) {
  using Verb = ScriptAction::Verb;
  switch (action.verb) {
    case Verb::kNothing:
      return true;
    case Verb::kSend:
      return Send(action);
    case Verb::kWait:
      return Wait(action);
    case Verb::kExpect:
    case Verb::kExpectBytes:
      return Expect(action);
    case Verb::kSleep:
      return Sleep(action.seconds);
    case Verb::kScan:
      return Scan(action.seconds);
    case Verb::kInitialize:
      return Initialize();
    case Verb::kClose:
      return client_.initialized() ? Close() : Fail("close: the HAL is not ours; 'initialize' takes it");
    case Verb::kList:
      return List(action.text);
    case Verb::kHelp:
      Show(Folded(action.text.empty() ? kScriptHelp : CommandHelp(*FindCommand(action.text)), kScriptHelpColumn));
      return true;
    case Verb::kQuit:
      quit_ = true;
      return true;
  }
  return true;
}

bool HciSession::List(const std::string& word) const {
  const std::string list = CommandList(word);
  Show(Folded(list));
  return !list.empty() || Fail("list: no command has '" + word + "' in its name");
}

bool HciSession::Send(const ScriptAction& action) {
  if (client_.ServiceDied()) return FailOfDeath();
  client_.Forget();
  last_answer_ = {};
  refused_ = false;
  PrintPacket(Direction::kToController, action.kind, action.packet);
  std::string error;
  if (!client_.Send(action.kind, action.packet, &error)) return client_.AwaitDeath() ? FailOfDeath() : Fail(error);
  if (!action.await_answer) return true;
  return AwaitAnswer(Le16(action.packet, 0));
}

bool HciSession::AwaitAnswer(uint16_t opcode) {
  std::optional<ReceivedPacket> answer =
      client_.Take([&](const ReceivedPacket& packet) { return Answers(packet, opcode); }, options_.answer_patience);
  if (answer) {
    last_answer_ = std::move(*answer);
    refused_ = AnsweredStatus(last_answer_.bytes).value_or(0) != 0;
    return true;
  }
  if (client_.ServiceDied()) return FailOfDeath();
  if (Interrupted()) return false;
  return Fail(StringPrintf("no answer to %s within %g s", OpcodeWords(opcode).c_str(),
                           std::chrono::duration<double>(options_.answer_patience).count()));
}

bool HciSession::Wait(const ScriptAction& action) {
  std::optional<ReceivedPacket> packet = client_.Take(
      [&](const ReceivedPacket& candidate) { return MatchesName(action.text, candidate.kind, candidate.bytes); },
      Milliseconds(action.seconds));
  if (packet) {
    last_answer_ = std::move(*packet);
    return true;
  }
  if (client_.ServiceDied()) return FailOfDeath();
  if (Interrupted()) return false;
  return Fail(StringPrintf("no %s within %g s", action.text.c_str(), action.seconds));
}

bool HciSession::Expect(const ScriptAction& action) {
  refused_ = false;
  if (last_answer_.bytes.empty())
    return Fail("expect: nothing has been answered yet; it looks at the answer of the command before it");
  if (action.verb == ScriptAction::Verb::kExpectBytes) {
    if (MatchesPattern(action.pattern, last_answer_.bytes)) return true;
    return Fail("expected other bytes than " + Hex(last_answer_.bytes));
  }
  const std::string words = PacketWords(last_answer_.kind, last_answer_.bytes);
  if (words.find(action.text) != std::string::npos) return true;
  return Fail(StringPrintf("expected '%s', got '%s'", action.text.c_str(), words.c_str()));
}

bool HciSession::Scan(double seconds) {
  for (const char* line : {"le_scan_parameters", "le_scan_enable 1 0"}) {
    if (!Run(line) || !Settle()) return false;
  }
  if (!Sleep(seconds) && !Interrupted()) return false;
  return Run("le_scan_enable 0 0") && !Interrupted();
}

// What is slept through is meant to happen, with a service that has the controller: nothing is to come of a dead one. A
// HAL that has been given back is nobody's business.
bool HciSession::Sleep(double seconds) {
  if (!client_.initialized()) return SleepUnlessInterrupted(std::chrono::duration<double>(seconds));
  if (WaitUntil([this] { return client_.ServiceDied(); }, Milliseconds(seconds))) return FailOfDeath();
  return !Interrupted();
}

}  // namespace bthal::tool
