#include "sim/controller/cipher.h"

#include "sim/controller/opcodes.h"
#include "sim/crypto/aes.h"
#include "sim/crypto/random.h"

namespace bthal::sim {
namespace {

Answer With(const Bytes& parameters) {
  Bytes answer{kSuccess};
  PutAll(answer, parameters);
  return Answer::Complete(answer);
}

}  // namespace

void Cipher::AddTo(CommandTable* table) {
  constexpr size_t kRandomSize = 8;
  table->Add(kLeEncrypt, {27, 6}, {2 * kBlockSize},
             [](const Bytes& p) { return With(Aes(Part(p, 0, kBlockSize), Part(p, kBlockSize))); });
  table->Add(kLeRand, {27, 7}, {}, [](const Bytes&) { return With(RandomBytes(kRandomSize)); });
  table->AddByStatus(kLeReadP256PublicKey, {34, 1}, {}, [this](const Bytes&) { return MakeKey(); });
  table->AddByStatus(kLeGenerateDhKey, {34, 2}, {2 * kP256Size}, [this](const Bytes& p) { return Agree(p); });
  // A fresh hash and randomizer for every question: nobody around the board has another channel to compare them by.
  table->Add(kReadLocalOobData, {17, 7}, {}, [](const Bytes&) { return With(RandomBytes(2 * kBlockSize)); });
}

//   sub-event | status | both numbers
Answer Cipher::MakeKey() {
  key_ = std::make_unique<P256Key>();
  return Answer::Status(kSuccess, [this] {
    Bytes event{kLeP256PublicKey, kSuccess};
    PutAll(event, key_->Public());
    outlet_->SendEvent(kLeMetaEvent, event);
  });
}

//   sub-event | status | key
Answer Cipher::Agree(const Bytes& others_public) {
  if (key_ == nullptr) return Answer::Status(kCommandDisallowed);
  return Answer::Status(kSuccess, [this, others_public] {
    const std::optional<Bytes> shared = key_->Shared(others_public);
    Bytes event{kLeDhKey, shared ? kSuccess : kInvalidParameters};
    PutAll(event, shared.value_or(Bytes(kP256Size, 0xFF)));
    outlet_->SendEvent(kLeMetaEvent, event);
  });
}

}  // namespace bthal::sim
