// The peer's calls over a socket that one thread reads.
#include "connection/connection.h"

namespace bthal::binder {

bool Connection::OfferExpress() {
  Header header{};
  header.type = MessageType::kExpress;
  return Send(Way::kAnswers, header, nullptr, -1) == STATUS_OK;
}

bool Connection::AwaitExpress(std::vector<Job>* jobs) {
  Harvest harvest{jobs};
  Lock lock(mutex_);
  for (bool wait = true; !ended_ && Read(lock, Way::kExpressIn, wait, &harvest); wait = false) continue;
  return !ended_ || !jobs->empty();
}

}  // namespace bthal::binder
