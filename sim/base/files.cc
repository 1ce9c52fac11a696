#include "sim/base/files.h"

#include <filesystem>
#include <fstream>
#include <system_error>

namespace bthal::sim {

bool MakeFolder(const std::string& path, std::string* error) {
  std::error_code code;
  std::filesystem::create_directories(path, code);
  if (!code) return true;
  *error = "cannot make the folder " + path + ": " + code.message() + "; choose a device root that you may write to";
  return false;
}

bool MakeFoldersAbove(const std::string& path, std::string* error) {
  return MakeFolder(std::filesystem::path(path).parent_path().string(), error);
}

bool WriteFile(const std::string& path, const std::string& content, std::string* error) {
  if (!MakeFoldersAbove(path, error)) return false;
  std::ofstream file(path, std::ios::binary | std::ios::trunc);
  file << content;
  if (file.flush()) return true;
  *error = "cannot write " + path + ": check the folder's owner and the free space";
  return false;
}

bool WriteIfAbsent(const std::string& path, const std::string& content, std::string* error) {
  std::error_code ignored;
  return std::filesystem::exists(path, ignored) || WriteFile(path, content, error);
}

}  // namespace bthal::sim
