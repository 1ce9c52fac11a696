#include "sim/nodes/coex.h"

#include <errno.h>
#include <string.h>

#include "sim/base/files.h"

namespace bthal::sim {
namespace {

constexpr char kDevice[] = "/dev/wbrc";
constexpr uint8_t kFromDriver = 0x01;
constexpr uint8_t kResetEvent = 0x01;

}  // namespace

void Coex::Close() {
  inputs_->Remove(pty_.board_end());
  pty_.Close();
}

bool Coex::Open(const std::string& root, std::string* error) {
  return MakeFoldersAbove(root + kDevice, error) && pty_.Open(root + kDevice, error) && Listen(error);
}

bool Coex::Listen(std::string* error) {
  return inputs_->Add(
      pty_.board_end(), pty_.host_path(), OrderedInputs::Framing::kFourBytes,
      [this](const Bytes& message) {
        JournalEntry entry;
        entry.event = WireEvent::kCoexMessage;
        entry.bytes = message;
        journal_->Record(std::move(entry));
      },
      error);
}

void Coex::SendEvent(const Bytes& bytes) {
  // The descriptor does not block, and a driver that finds its reader's buffer full drops the event, as this does.
  if (TEMP_FAILURE_RETRY(write(pty_.board_end(), bytes.data(), bytes.size())) == static_cast<ssize_t>(bytes.size())) {
    return;
  }
  journal_->Record(WireEvent::kLostBytes, bytes.size(), "nobody reads the coexistence device");
}

void Coex::BigHammer(uint8_t value) { SendEvent({kFromDriver, 0x00, kResetEvent, value}); }

void Coex::HangUp() {
  inputs_->Remove(pty_.board_end());
  std::string error;
  if (!pty_.HangUp(&error) || !Listen(&error)) {
    journal_->Record(WireEvent::kProtocolError, 0, "the coexistence device does not come back: " + error);
  }
}

}  // namespace bthal::sim
