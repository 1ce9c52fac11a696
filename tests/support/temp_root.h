// A device root of its own for each test, gone afterwards.
#pragma once

#include <string>

namespace bthal::test {

class TempRoot {
 public:
  TempRoot();   // makes the folder and points BTHAL_ROOT at it
  ~TempRoot();  // removes it
  TempRoot(const TempRoot&) = delete;
  TempRoot& operator=(const TempRoot&) = delete;

  const std::string& path() const { return path_; }
  // The device's absolute path as it lies below the root; makes the folders above it.
  std::string Below(const std::string& device_path) const;
  // Writes a file at a device path.
  void Write(const std::string& device_path, const std::string& content) const;
  // Reads it back; empty when absent.
  std::string Read(const std::string& device_path) const;
  // Its permissions; 0 when absent.
  unsigned ModeOf(const std::string& device_path) const;

 private:
  std::string path_;
};

}  // namespace bthal::test
