#include "sim/furnish.h"

#include <filesystem>
#include <fstream>
#include <iterator>

#include "sim/base/files.h"
#include "sim/controller/firmware/patch_file.h"

namespace bthal::sim {
namespace {

constexpr char kFirmwareFolder[] = "/vendor/firmware/qnlr/";

constexpr const char* kFolders[] = {
    "/data/vendor/bluetooth",
    "/data/vendor/ssrdump/coredump",
    "/dev",
    "/vendor/etc/bluetooth",
};

constexpr char kConfiguration[] =
    "# Settings of the Bluetooth service on the virtual board.\n"
    "UartPort = /dev/ttySAC16\n"
    "BigHammerBtRegOnDelay = 100\n"
    "UserialType = ";

std::vector<std::string> PatchNames(uint8_t chip_id) {
  std::vector<std::string> names{"QNL.hcd",     "QNL_188_U.hcd", "QNL_188_S.hcd", "QNL_174.hcd", "QNL_181.hcd",
                                 "QNL_185.hcd", "QNL_200.hcd",   "BTFW_B.hcd",    "BTFW_D.hcd"};
  const std::string own = "QNL_" + std::to_string(chip_id) + ".hcd";
  for (const std::string& name : names) {
    if (name == own) return names;
  }
  names.push_back(own);
  return names;
}

bool WritePatch(const std::string& path, const std::string& name, size_t records, std::string* error) {
  // What is no file of the board's making, or leads to one elsewhere, is the user's.
  std::error_code code;
  const auto kind = std::filesystem::symlink_status(path, code).type();
  if (kind != std::filesystem::file_type::not_found && kind != std::filesystem::file_type::regular) return true;
  Bytes present;
  if (std::ifstream file(path, std::ios::binary); file) {
    present.assign(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
    const size_t was = PatchRecordCount(present);
    if (was == 0 || was == records) return true;
  }
  const Bytes patch = MakePatchFile(name, records);
  return WriteFile(path, std::string(patch.begin(), patch.end()), error);
}

// An emulator's address may be another each time.
bool WriteAddress(const BoardOptions& options, std::string* error) {
  const std::string path = options.root + "/proc/device-tree/chosen/config/bt_addr";
  const std::string text = options.provisioned_address + "\n";
  return options.backend.empty() ? WriteIfAbsent(path, text, error) : WriteFile(path, text, error);
}

}  // namespace

bool Furnish(const BoardOptions& options, std::string* error) {
  const std::string& root = options.root;
  for (const char* folder : kFolders) {
    if (!MakeFolder(root + folder, error)) return false;
  }
  if (!WriteIfAbsent(root + "/vendor/etc/bluetooth/bt_vendor.conf",
                     kConfiguration + std::string(options.hub ? "2\n" : "1\n"), error)) {
    return false;
  }
  if (!WriteIfAbsent(root + "/sys/class/power_supply/battery/capacity", "87\n", error)) return false;
  if (options.provision_address && !WriteAddress(options, error)) return false;
  const std::string firmware = root + kFirmwareFolder;
  for (const std::string& name : PatchNames(options.chip_id)) {
    if (!WritePatch(firmware + name, name, options.patch_records, error)) return false;
  }
  return true;
}

}  // namespace bthal::sim
