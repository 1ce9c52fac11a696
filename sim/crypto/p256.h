// Key agreement on the elliptic curve P-256. Numbers have 32 bytes, least significant byte first.
#pragma once

#include <memory>
#include <optional>

#include "sim/base/bytes.h"

namespace bthal::sim {

inline constexpr size_t kP256Size = 32;

// A fresh secret, and the point that goes with it.
class P256Key {
 public:
  P256Key();
  ~P256Key();

  // The point's two numbers, one after the other.
  Bytes Public() const;
  // What both ends arrive at, each with its own secret and the other's point; nothing if that point is not on the
  // curve.
  std::optional<Bytes> Shared(const Bytes& others_public) const;

 private:
  struct Secret;
  const std::unique_ptr<Secret> secret_;
};

}  // namespace bthal::sim
