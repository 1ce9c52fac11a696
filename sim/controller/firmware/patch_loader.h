// The loader that runs while a patch comes in.
#pragma once

#include <string>

#include "sim/base/bytes.h"

namespace bthal::sim {

class PatchLoader {
 public:
  void Start();
  // The status to answer: 0, or why not, with the reason in `error`.
  uint8_t Write(const Bytes& parameters, std::string* error);
  uint8_t Launch(const Bytes& parameters, std::string* error) const;

  size_t received() const { return received_; }
  size_t total() const { return total_; }
  const std::string& image_name() const { return image_name_; }

 private:
  size_t received_ = 0;
  size_t total_ = 0;
  bool broken_ = false;  // a record was refused: nothing will be launched
  std::string image_name_;
};

}  // namespace bthal::sim
