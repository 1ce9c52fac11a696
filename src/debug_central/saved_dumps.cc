#define LOG_TAG "bthal.debug_central"

#include "debug_central/saved_dumps.h"

#include <dirent.h>
#include <sys/stat.h>

#include <algorithm>
#include <cctype>
#include <memory>
#include <set>
#include <string_view>

#include <android-base/logging.h>

#include "os/device_path.h"
#include "os/file_utils.h"

namespace android::hardware::bluetooth::V1_1::qnlbtlinux::debug {
namespace {

constexpr std::string_view kTimeForm = "0000-00-00_00-00-00";
constexpr char kNumberSign = '_';

std::string PathOf(const DumpFiles& kind, const std::string& suffix) {
  return kind.folder + kind.prefix + suffix + kind.extension;
}

bool Lies(const std::string& path) {
  struct stat status {};
  return lstat(os::DevicePath(path).c_str(), &status) == 0;
}

// On a full disk a dump's files are made, and stay empty.
bool IsEmpty(const std::vector<DumpFiles>& kinds, const std::string& suffix) {
  return std::none_of(kinds.begin(), kinds.end(), [&](const DumpFiles& kind) {
    struct stat status {};
    return lstat(os::DevicePath(PathOf(kind, suffix)).c_str(), &status) == 0 && status.st_size != 0;
  });
}

// 2024-03-07_09-05-12, with or without a number behind it.
bool IsSuffix(std::string_view text) {
  if (text.size() < kTimeForm.size()) return false;
  const bool has_time = std::equal(kTimeForm.begin(), kTimeForm.end(), text.begin(), [](char form, char c) {
    return form == '0' ? std::isdigit(static_cast<unsigned char>(c)) != 0 : c == form;
  });
  const std::string_view number = text.substr(kTimeForm.size());
  return has_time && (number.empty() || number[0] == kNumberSign);
}

// Of the files of this kind; without their folder there are none.
void AddSuffixes(const DumpFiles& kind, std::set<std::string>& suffixes) {
  const std::unique_ptr<DIR, int (*)(DIR*)> folder(opendir(os::DevicePath(kind.folder).c_str()), closedir);
  while (const dirent* entry = folder ? readdir(folder.get()) : nullptr) {
    std::string_view name = entry->d_name;
    if (!name.starts_with(kind.prefix) || !name.ends_with(kind.extension)) continue;
    name.remove_prefix(kind.prefix.size());
    name = name.substr(0, name.size() - std::min(name.size(), kind.extension.size()));
    if (IsSuffix(name)) suffixes.emplace(name);
  }
}

}  // namespace

std::string UnusedSuffix(const std::vector<DumpFiles>& kinds, const std::string& time) {
  std::string suffix = time;
  const auto is_used = [&](const DumpFiles& kind) { return Lies(PathOf(kind, suffix)); };
  for (int number = 2; std::any_of(kinds.begin(), kinds.end(), is_used); ++number) {
    suffix = time + kNumberSign + std::to_string(number);
  }
  return suffix;
}

void KeepNewestDumps(const std::vector<DumpFiles>& kinds, size_t count) {
  std::set<std::string> suffixes;
  for (const DumpFiles& kind : kinds) AddSuffixes(kind, suffixes);
  while (suffixes.size() > count) {
    const auto empty =
        std::find_if(suffixes.begin(), suffixes.end(), [&](const auto& suffix) { return IsEmpty(kinds, suffix); });
    const auto least = empty == suffixes.end() ? suffixes.begin() : empty;
    LOG(INFO) << "start_crash_dump: the dump of " << *least << " makes room for a newer one";
    for (const DumpFiles& kind : kinds) {
      if (const std::string path = PathOf(kind, *least); Lies(path)) os::RemoveFile(path);
    }
    suffixes.erase(least);
  }
}

}  // namespace android::hardware::bluetooth::V1_1::qnlbtlinux::debug
