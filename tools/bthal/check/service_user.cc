#include "bthal/check/service_user.h"

#include <android-base/file.h>
#include <android-base/strings.h>
#include <endian.h>
#include <errno.h>
#include <grp.h>
#include <linux/securebits.h>
#include <pwd.h>
#include <string.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <cstdint>
#include <string_view>
#include <vector>

#include "bthal/cli/shell_quotes.h"
#include "bthal/run/device_names.h"
#include "bthal/run/process.h"

namespace bthal::tool {
namespace {

struct Capability {
  int number;
  std::string_view name;
};
constexpr Capability kUsed[] = {
    {CAP_BLOCK_SUSPEND, "CAP_BLOCK_SUSPEND"}, {CAP_NET_ADMIN, "CAP_NET_ADMIN"}, {CAP_SYS_NICE, "CAP_SYS_NICE"}};

constexpr const char* kUnitFolders[] = {"/etc/systemd/system/", "/usr/local/lib/systemd/system/",
                                        "/usr/lib/systemd/system/", "/lib/systemd/system/"};
constexpr const char* kUnits[] = {"bthal-supervise.service", "bthal.service"};

// What the first unit that is installed says behind "name="; empty without one.
std::string UnitSetting(std::string_view name) {
  std::string text;
  for (const char* unit : kUnits) {
    for (const char* folder : kUnitFolders) {
      if (!::android::base::ReadFileToString(std::string(folder) + unit, &text)) continue;
      for (const std::string& line : ::android::base::Split(text, "\n")) {
        if (line.starts_with(name) && line.substr(name.size()).starts_with('=')) return line.substr(name.size() + 1);
      }
    }
  }
  return {};
}

__user_cap_data_struct* Word(__user_cap_data_struct* data, int capability) { return data + CAP_TO_INDEX(capability); }

// Puts `wanted` into this thread's sets, and nothing else.
bool SetCapabilities(const std::vector<int>& wanted) {
  __user_cap_header_struct header = {_LINUX_CAPABILITY_VERSION_3, 0};
  __user_cap_data_struct data[_LINUX_CAPABILITY_U32S_3] = {};
  for (const int capability : wanted) {
    auto* word = Word(data, capability);
    word->permitted |= CAP_TO_MASK(capability);
    word->effective |= CAP_TO_MASK(capability);
    word->inheritable |= CAP_TO_MASK(capability);
  }
  if (syscall(SYS_capset, &header, data) != 0) return false;
  for (const int capability : wanted) {
    if (prctl(PR_CAP_AMBIENT, PR_CAP_AMBIENT_RAISE, capability, 0, 0) != 0) return false;
  }
  return true;
}

bool HasEffective(int capability) {
  __user_cap_header_struct header = {_LINUX_CAPABILITY_VERSION_3, 0};
  __user_cap_data_struct data[_LINUX_CAPABILITY_U32S_3] = {};
  if (syscall(SYS_capget, &header, data) != 0) return false;
  return (Word(data, capability)->effective & CAP_TO_MASK(capability)) != 0;
}

// What setcap has written into the program's file.
bool FileGrants(const std::string& program, int capability) {
  vfs_ns_cap_data data = {};
  const ssize_t size = getxattr(program.c_str(), "security.capability", &data, sizeof(data));
  if (size < static_cast<ssize_t>(XATTR_CAPS_SZ_2)) return false;
  const bool effective = (le32toh(data.magic_etc) & VFS_CAP_FLAGS_EFFECTIVE) != 0;
  const uint32_t permitted = le32toh(data.data[CAP_TO_INDEX(capability)].permitted);
  return effective && (permitted & CAP_TO_MASK(capability)) != 0 && prctl(PR_CAPBSET_READ, capability) == 1 &&
         prctl(PR_GET_NO_NEW_PRIVS, 0, 0, 0, 0) == 0;
}

}  // namespace

bool BecomeServiceUser(const std::string& user, std::string* error) {
  const passwd* entry = getpwnam(user.c_str());
  if (entry == nullptr) {
    *error = "there is no user " + user;
    return false;
  }
  if (entry->pw_uid == geteuid()) return true;
  if (geteuid() != 0) {
    *error = "only root can look as another user does";
    return false;
  }
  std::vector<int> granted;
  const std::string unit_grants = user == UnitsUser() ? UnitSetting("AmbientCapabilities") : "";
  for (const Capability& capability : kUsed) {
    const bool has = unit_grants.find(capability.name) != std::string::npos && HasEffective(capability.number);
    if (has) granted.push_back(capability.number);
  }
  if (initgroups(user.c_str(), entry->pw_gid) == 0 && setgid(entry->pw_gid) == 0 &&
      prctl(PR_SET_KEEPCAPS, 1, 0, 0, 0) == 0 && setuid(entry->pw_uid) == 0 && SetCapabilities(granted)) {
    return true;
  }
  *error = "cannot go on as " + user + ": " + strerror(errno);
  return false;
}

// Root's programs get what is not taken from root, others what is handed on to them; and what their file says.
bool ServiceHas(int capability) {
  const bool handed_on =
      geteuid() == 0 ? HasEffective(capability) : prctl(PR_CAP_AMBIENT, PR_CAP_AMBIENT_IS_SET, capability, 0, 0) == 1;
  return handed_on || FileGrants(ProgramBeside(kServiceProgram), capability);
}

std::string HowToGrant() {
  return "setcap cap_block_suspend,cap_net_admin,cap_sys_nice+ep " + QuotedIfNeeded(ProgramBeside(kServiceProgram)) +
         ", or run the service as root or by its systemd unit";
}

std::string ServiceUserWords() {
  const passwd* entry = getpwuid(geteuid());
  std::string words = entry != nullptr ? entry->pw_name : "user " + std::to_string(geteuid());
  std::vector<std::string_view> has;
  for (const Capability& capability : kUsed) {
    if (ServiceHas(capability.number)) has.push_back(capability.name);
  }
  return words + (has.empty() ? ", without capabilities" : ", with " + ::android::base::Join(has, ", "));
}

std::string UnitsUser() { return UnitSetting("User"); }

}  // namespace bthal::tool
