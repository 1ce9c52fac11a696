#include "support/temp_root.h"

#include <sys/stat.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>

namespace bthal::test {

TempRoot::TempRoot() {
  std::string pattern = (std::filesystem::temp_directory_path() / "bthal-test-XXXXXX").string();
  if (mkdtemp(pattern.data()) == nullptr) throw std::runtime_error("cannot make " + pattern);
  path_ = pattern;
  setenv("BTHAL_ROOT", path_.c_str(), 1);
}

TempRoot::~TempRoot() {
  std::error_code ignored;
  std::filesystem::remove_all(path_, ignored);
}

std::string TempRoot::Below(const std::string& device_path) const {
  const std::string below = path_ + device_path;
  std::filesystem::create_directories(std::filesystem::path(below).parent_path());
  return below;
}

void TempRoot::Write(const std::string& device_path, const std::string& content) const {
  std::ofstream file(Below(device_path), std::ios::binary | std::ios::trunc);
  file << content;
  if (!file.flush()) throw std::runtime_error("cannot write " + device_path);
}

std::string TempRoot::Read(const std::string& device_path) const {
  std::ifstream file(path_ + device_path, std::ios::binary);
  std::ostringstream content;
  content << file.rdbuf();
  return content.str();
}

unsigned TempRoot::ModeOf(const std::string& device_path) const {
  struct stat status {};
  return stat((path_ + device_path).c_str(), &status) == 0 ? status.st_mode & ALLPERMS : 0;
}

}  // namespace bthal::test
