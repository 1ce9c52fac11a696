#include "bthal/run/power_switch.h"

#include <android-base/file.h>
#include <android-base/strings.h>
#include <dirent.h>
#include <stdio.h>
#include <unistd.h>

#include <algorithm>
#include <memory>

#include "os/device_path.h"

namespace bthal::tool {
namespace {

using ::android::base::ReadFileToString;
using ::android::hardware::bluetooth::os::DevicePath;

constexpr char kFolder[] = "/sys/class/rfkill";

std::string EntryPath(int number) { return std::string(kFolder) + "/rfkill" + std::to_string(number); }

// Exactly that word, with or without a line's end.
bool IsBluetooth(const std::string& entry) {
  std::string type;
  ReadFileToString(DevicePath(entry + "/type"), &type, true);
  return type == "bluetooth" || type == "bluetooth\n";
}

int FirstMissing() {
  int number = 0;
  while (access(DevicePath(EntryPath(number) + "/type").c_str(), F_OK) == 0) ++number;
  return number;
}

std::vector<int> Numbers() {
  std::vector<int> numbers;
  const std::unique_ptr<DIR, int (*)(DIR*)> folder(opendir(DevicePath(kFolder).c_str()), closedir);
  while (const dirent* entry = folder == nullptr ? nullptr : readdir(folder.get())) {
    int number = 0;
    if (sscanf(entry->d_name, "rfkill%d", &number) == 1) numbers.push_back(number);
  }
  std::ranges::sort(numbers);
  return numbers;
}

std::vector<RfkillEntry> BluetoothEntries(bool reached) {
  std::vector<RfkillEntry> entries;
  const int end = FirstMissing();
  for (const int number : Numbers()) {
    const std::string path = EntryPath(number);
    if ((number < end) != reached || !IsBluetooth(path)) continue;
    std::string name;
    ReadFileToString(DevicePath(path + "/name"), &name, true);
    entries.push_back({path, ::android::base::Trim(name)});
  }
  return entries;
}

}  // namespace

std::vector<RfkillEntry> ReachedBluetoothEntries() { return BluetoothEntries(/*reached=*/true); }

std::vector<RfkillEntry> UnreachedBluetoothEntries() { return BluetoothEntries(/*reached=*/false); }

std::string FindPowerSwitch() {
  const std::vector<RfkillEntry> entries = ReachedBluetoothEntries();
  return entries.empty() ? "" : entries.front().path;
}

}  // namespace bthal::tool
