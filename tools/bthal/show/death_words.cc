#include "bthal/show/death_words.h"

#include <sys/stat.h>

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <filesystem>
#include <optional>
#include <string_view>
#include <system_error>
#include <tuple>

#include "os/device_path.h"

namespace bthal::tool {
namespace {

namespace fs = std::filesystem;

constexpr const char* kCrashFolder = "/data/vendor/ssrdump";
constexpr const char* kLogFolder = "/data/vendor/bluetooth";
constexpr std::string_view kSavedLogPrefix = "backup_";

// More than a code says.
struct Phrase {
  std::string_view said;
  const char* cause;
};
// Status 3 of a command of the download: no answer came.
constexpr const char* kSilentDownload =
    "the controller stopped answering during the firmware download: see its power, the wiring, its tty, and that the "
    ".hcd file is one for this chip";
constexpr Phrase kPhrases[] = {
    {"Unable to open patchfile",
     "the firmware patch could not be opened: see that /vendor/firmware/qnlr has a readable "
     ".hcd file for this chip (bthal check)"},
    {"Minidrv command failed: 3", kSilentDownload},
    {"Failed to write patchram: 3", kSilentDownload},
    {"Launch Ram command failed: 3", kSilentDownload},
    {"Failed to write patchram",
     "the firmware patch was refused: see that its .hcd file is whole, and one for this chip"},
    {"don't allow multiple clients", "a second client asked for the HAL: see which two use it, and end one"},
    {"called before any initialize()", "a client gave back the HAL without having it: a mistake of the client's"},
    {"Double attempt to initialize", "the controller was to be brought up twice: see what its clients do"},
    {"Read packet type error: Broken pipe", "hci0 has gone: see why it was unplugged or reset, or its driver unloaded"},
    {"Could not register as a service", "it could not publish itself: see who owns /run/bthal (bthal check)"},
};

struct Code {
  unsigned first, last;
  const char* cause;
};
constexpr Code kCodes[] = {
    {0x01, 0x02, "the controller saw faults on the line: see the wiring, the speed and the flow control"},
    {0x03, 0x03, "the controller found the firmware patch's sum wrong: replace its .hcd file"},
    {0x10, 0x21, "the controller's firmware crashed: keep the crash files for its maker"},
    {0x7F, 0x7F, "the coexistence driver asked for a power cycle of the controller: see what the Wi-Fi side says"},
    {0x80, 0x80, "the receive thread was stuck: see whether the client takes its packets"},
    {0x81, 0x81, "the controller did not answer a command: see its power, the wiring and the speed"},
    {0x82, 0x82, "the controller sent an event that is none: see the speed and the flow control"},
    {0x83, 0x83, "the controller sent a packet of no known type: bytes get lost; see the speed and the flow control"},
    {0x84, 0x84, "the controller's port takes nothing, or has hung up: see the tty, its driver and the flow control"},
    {0x90, 0x90,
     "the controller's port could not be opened: see UartPort, or hci0, and who has or may use it (bthal check)"},
    {0x91, 0x91, "the controller could not be powered: see its rfkill entry (bthal check)"},
    {0x92, 0x92, "the controller or its port did not take the working speed: see what the tty's driver can do"},
    {0x93, 0x93, "the controller did not obey the first reset: see its power, the wiring and UartPort"},
    {0x94, 0x94, "the firmware patch could not be downloaded: see the .hcd files (bthal check)"},
    {0x95, 0x95, "the patched controller did not obey its reset: see that the patch is one for this chip"},
    {0x96, 0x96, "there is no Bluetooth address to give the controller (bthal check says where it is looked for)"},
    {0x97, 0x97, "the coexistence driver could not be opened: see /dev/wbrc (bthal check)"},
    {0x98, 0x99,
     "the controller could not be reset for the next client: see what the service said before; one without the "
     "vendor's commands needs AccelBtDisable = true (bthal check)"},
    {0xC0, 0xE1, "the sensor hub's transport failed: set UserialType = 1 where there is no hub"},
};

// Whether it is said in the line, as a whole where it ends with a number.
bool IsSaid(std::string_view said, std::string_view line) {
  const size_t at = line.find(said);
  if (at == line.npos) return false;
  const std::string_view behind = line.substr(at + said.size());
  return behind.empty() || isdigit(static_cast<unsigned char>(behind.front())) == 0;
}

// As a report names it, and as the fatal line does.
std::optional<unsigned> CodeIn(std::string_view line) {
  for (const std::string_view before : {"error_code: (", "vendor error code "}) {
    const size_t at = line.find(before);
    if (at == line.npos) continue;
    return static_cast<unsigned>(strtoul(std::string(line.substr(at + before.size(), 4)).c_str(), nullptr, 10));
  }
  return std::nullopt;
}

bool WrittenSince(const fs::path& path, const timespec& begin) {
  struct stat info = {};
  return stat(path.c_str(), &info) == 0 && S_ISREG(info.st_mode) &&
         std::tie(info.st_mtim.tv_sec, info.st_mtim.tv_nsec) >= std::tie(begin.tv_sec, begin.tv_nsec);
}

std::string Named(const fs::path& file) {
  std::error_code error;
  return file.string() + (fs::file_size(file, error) == 0 ? " (empty: the disk may be full)" : "");
}

}  // namespace

std::string CauseOfDeath(const std::vector<std::string>& last_words) {
  for (const std::string& line : last_words) {
    for (const Phrase& phrase : kPhrases) {
      if (IsSaid(phrase.said, line)) return phrase.cause;
    }
  }
  for (const std::string& line : last_words) {
    const std::optional<unsigned> code = CodeIn(line);
    const auto* known = std::ranges::find_if(
        kCodes, [&](const Code& range) { return code && *code >= range.first && *code <= range.last; });
    if (known != std::end(kCodes)) return known->cause;
  }
  return "";
}

std::vector<std::string> CrashFilesSince(const timespec& begin) {
  using ::android::hardware::bluetooth::os::DevicePath;
  std::vector<std::string> files;
  std::error_code error;
  for (fs::recursive_directory_iterator entry(DevicePath(kCrashFolder), error), end; !error && entry != end;
       entry.increment(error)) {
    if (WrittenSince(entry->path(), begin)) files.push_back(Named(entry->path()));
  }
  for (fs::directory_iterator entry(DevicePath(kLogFolder), error), end; !error && entry != end;
       entry.increment(error)) {
    const bool saved = entry->path().filename().string().starts_with(kSavedLogPrefix);
    if (saved && WrittenSince(entry->path(), begin)) files.push_back(Named(entry->path()));
  }
  std::ranges::sort(files);
  return files;
}

}  // namespace bthal::tool
