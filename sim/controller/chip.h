// What the maker's commands do to the controller as a whole.
#pragma once

#include <cstdint>
#include <string>

namespace bthal::sim {

class Chip {
 public:
  virtual ~Chip() = default;
  virtual bool InMinidriver() const = 0;
  virtual void EnterMinidriver() = 0;
  virtual void BootPatch(const std::string& image_name) = 0;
  virtual void ChangeSpeed(uint32_t bits_per_second) = 0;
  virtual void SetSleepMode() = 0;
};

}  // namespace bthal::sim
