#include "sim/crypto/p256.h"

#include <nettle/bignum.h>
#include <nettle/ecc-curve.h>
#include <nettle/ecc.h>

#include <algorithm>

#include "sim/crypto/random.h"

namespace bthal::sim {
namespace {

void Fill(void* /*context*/, size_t size, uint8_t* to) {
  const Bytes bytes = RandomBytes(size);
  std::copy(bytes.begin(), bytes.end(), to);
}

class Number {
 public:
  Number() { mpz_init(value_); }
  explicit Number(Bytes bytes) : Number() {
    std::reverse(bytes.begin(), bytes.end());
    nettle_mpz_set_str_256_u(value_, bytes.size(), bytes.data());
  }
  Number(const Number&) = delete;
  Number& operator=(const Number&) = delete;
  ~Number() { mpz_clear(value_); }

  Bytes Wire() const {
    Bytes bytes(kP256Size);
    nettle_mpz_get_str_256(bytes.size(), bytes.data(), value_);
    std::reverse(bytes.begin(), bytes.end());
    return bytes;
  }
  mpz_t& operator*() { return value_; }

 private:
  mpz_t value_;
};

class Point {
 public:
  Point() { ecc_point_init(&point_, nettle_get_secp_256r1()); }
  Point(const Point&) = delete;
  Point& operator=(const Point&) = delete;
  ~Point() { ecc_point_clear(&point_); }

  // Both numbers.
  Bytes Wire() const {
    Number x;
    Number y;
    ecc_point_get(&point_, *x, *y);
    Bytes bytes = x.Wire();
    PutAll(bytes, y.Wire());
    return bytes;
  }
  ecc_point* get() { return &point_; }

 private:
  ecc_point point_;
};

}  // namespace

struct P256Key::Secret {
  Secret() {
    ecc_scalar_init(&scalar, nettle_get_secp_256r1());
    ecc_scalar_random(&scalar, nullptr, Fill);
  }
  Secret(const Secret&) = delete;
  Secret& operator=(const Secret&) = delete;
  ~Secret() { ecc_scalar_clear(&scalar); }

  ecc_scalar scalar;
};

P256Key::P256Key() : secret_(std::make_unique<Secret>()) {}
P256Key::~P256Key() = default;

Bytes P256Key::Public() const {
  Point point;
  ecc_point_mul_g(point.get(), &secret_->scalar);
  return point.Wire();
}

std::optional<Bytes> P256Key::Shared(const Bytes& others_public) const {
  Number x(Part(others_public, 0, kP256Size));
  Number y(Part(others_public, kP256Size));
  Point point;
  if (ecc_point_set(point.get(), *x, *y) == 0) return std::nullopt;
  ecc_point_mul(point.get(), &secret_->scalar, point.get());
  return Part(point.Wire(), 0, kP256Size);
}

}  // namespace bthal::sim
