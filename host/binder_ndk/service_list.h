// The services of this process, and those of the machine.
#pragma once

#include <android/binder_auto_utils.h>

#include <map>
#include <mutex>
#include <string>
#include <string_view>

namespace bthal::binder {

// The folder in which a symbolic link named after each service leads to its process's socket; a device path. Where the
// name has a slash, the link has. There is no service manager to keep alive: the entry of a dead service leads to a
// socket that nobody listens at, until the next one of the name replaces it.
inline constexpr std::string_view kServiceDirectory = "/run/bthal/services";

class ServiceList {
 public:
  // EX_NONE, EX_ILLEGAL_ARGUMENT, EX_ILLEGAL_STATE; see AServiceManager_addService.
  binder_exception_t Add(AIBinder* object, const std::string& name);
  // A service of this process, or null.
  ndk::SpAIBinder Find(const std::string& name);
  bool IsOwnSocket(const std::string& name);

 private:
  std::mutex mutex_;
  std::string socket_name_;  // empty until there is a service
  std::map<std::string, ndk::SpAIBinder> services_;
};

// Whether a service can have that name: parts of letters, digits and "_.-" with slashes between them.
bool IsServiceName(std::string_view name);

// The name of the socket at which the named service's process listens or listened; empty when there is no such entry.
std::string SocketOfService(const std::string& name);

}  // namespace bthal::binder
