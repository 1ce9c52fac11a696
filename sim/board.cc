#include "sim/board.h"

#include "sim/board_impl.h"

namespace bthal::sim {

Board::Board(BoardOptions options) : impl_(std::make_unique<Impl>(std::move(options))) {}
Board::~Board() = default;

bool Board::Start(std::string* error) { return impl_->Start(error); }
void Board::Stop() { impl_->Stop(); }

std::vector<JournalEntry> Board::Journal(size_t from) const { return impl_->journal().From(from); }
std::vector<std::vector<uint8_t>> Board::Commands() const { return impl_->journal().Commands(); }

bool Board::WaitFor(const std::function<bool(const std::vector<JournalEntry>&)>& done,
                    std::chrono::milliseconds timeout) const {
  return impl_->journal().WaitFor(done, timeout);
}

void Board::SetObserver(std::function<void(const JournalEntry&)> observer) {
  impl_->journal().SetObserver(std::move(observer));
}

void Board::SendPacket(uint8_t packet_type, const std::vector<uint8_t>& packet) {
  impl_->Ask([this, packet_type, packet] { impl_->controller().SendPacket(packet_type, packet); });
}

void Board::SendRaw(const std::vector<uint8_t>& bytes) {
  impl_->Ask([this, bytes] { impl_->controller().SendRaw(bytes); });
}

bool Board::AddFault(const std::string& fault, std::string* error) {
  if (fault.starts_with(kHubFaultPrefix)) {
    HubFault parsed;
    if (!ParseHubFault(fault, &parsed, error)) return false;
    impl_->hub().faults().Add(parsed);
    return true;
  }
  Fault parsed;
  if (!ParseFault(fault, &parsed, error)) return false;
  impl_->Ask([this, parsed] {
    impl_->faults().Add(parsed);
    impl_->controller().StrikeNow();
  });
  return true;
}

void Board::ClearFaults() {
  impl_->hub().faults().Clear();
  impl_->Ask([this] { impl_->faults().Clear(); });
}

void Board::SendCoexEvent(const std::vector<uint8_t>& bytes) {
  impl_->Ask([this, bytes] { impl_->coex().SendEvent(bytes); });
}

void Board::StreamThreadFrames(uint32_t count, uint16_t min_size, uint16_t max_size) {
  impl_->Ask([=, this] { impl_->controller().thread_radio().Stream(count, min_size, max_size); });
}

std::vector<uint8_t> Board::ThreadPayload(uint32_t number, uint16_t min_size, uint16_t max_size) {
  return ThreadRadio::Payload(number, min_size, max_size);
}

size_t Board::WaitingForHost() const { return impl_->waiting(); }

void Board::HangUpUart() {
  impl_->Ask([this] { impl_->line().HangUp(); });
}

void Board::RestartHub(std::chrono::milliseconds away) { impl_->hub().Restart(away); }

void Board::HangUpCoex() {
  impl_->Ask([this] { impl_->coex().HangUp(); });
}

}  // namespace bthal::sim
