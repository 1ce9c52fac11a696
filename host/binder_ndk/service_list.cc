#define LOG_TAG "binder.services"

#include "service_list.h"

#include <errno.h>
#include <stdio.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>

#include <android-base/file.h>
#include <android-base/logging.h>

#include "host/device_root.h"
#include "host/run_directory.h"
#include "host/service_registry.h"
#include "object.h"
#include "process.h"
#include "socket.h"

namespace bthal::binder {
namespace {

using bthal::host::BelowDeviceRoot;

constexpr size_t kMaxNameBytes = 127;

bool IsNameCharacter(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
         std::string_view("_.-/").find(c) != std::string_view::npos;
}

// Puts the entry in its place, over that of a service before it.
bool PublishEntry(const std::string& name, const std::string& socket_name) {
  const std::string entry = std::string(kServiceDirectory) + "/" + name;
  const std::string place = bthal::host::MakeDirectory(entry.substr(0, entry.rfind('/')));
  if (place.empty()) return false;
  // No part of a service's name begins with a dot.
  const std::string unfinished = place + "/." + socket_name;
  unlink(unfinished.c_str());
  return symlink(socket_name.c_str(), unfinished.c_str()) == 0 &&
         rename(unfinished.c_str(), BelowDeviceRoot(entry).c_str()) == 0;
}

}  // namespace

bool IsServiceName(std::string_view name) {
  if (name.empty() || name.size() > kMaxNameBytes || !std::all_of(name.begin(), name.end(), IsNameCharacter)) {
    return false;
  }
  return name.front() != '/' && name.back() != '/' && name.front() != '.' &&
         name.find("//") == std::string_view::npos && name.find("/.") == std::string_view::npos;
}

binder_exception_t ServiceList::Add(AIBinder* object, const std::string& name) {
  if (object == nullptr || object->AsLocal() == nullptr || !IsServiceName(name)) {
    LOG(ERROR) << "\"" << name << "\" is not published: " << (IsServiceName(name) ? "no own object" : "unusable name");
    return EX_ILLEGAL_ARGUMENT;
  }
  const std::lock_guard lock(mutex_);
  if (socket_name_.empty()) {
    std::string socket_name;
    android::base::unique_fd socket = ListenOnNewSocket(&socket_name);
    if (socket.get() < 0) return EX_ILLEGAL_STATE;
    socket_name_ = socket_name;
    Process::Get().Listen(std::move(socket));
  }
  object->AddStrong();
  services_[name] = ndk::SpAIBinder(object);
  if (PublishEntry(name, socket_name_)) return EX_NONE;
  PLOG(ERROR) << "cannot make the entry " << kServiceDirectory << "/" << name;
  services_.erase(name);
  return EX_ILLEGAL_STATE;
}

ndk::SpAIBinder ServiceList::Find(const std::string& name) {
  const std::lock_guard lock(mutex_);
  const auto found = services_.find(name);
  return found == services_.end() ? ndk::SpAIBinder() : found->second;
}

bool ServiceList::IsOwnSocket(const std::string& name) {
  const std::lock_guard lock(mutex_);
  return !name.empty() && name == socket_name_;
}

std::string SocketOfService(const std::string& name) {
  std::string socket_name;
  if (!IsServiceName(name)) return "";
  if (!android::base::Readlink(BelowDeviceRoot(std::string(kServiceDirectory) + "/" + name), &socket_name)) return "";
  // The entry is only as good as the folder's permissions, but it can lead nowhere else.
  return PidOf(socket_name) == 0 || socket_name.find('/') != std::string::npos ? "" : socket_name;
}

}  // namespace bthal::binder

namespace bthal::host {

std::vector<RegisteredService> ListServices() {
  const std::filesystem::path root = bthal::host::BelowDeviceRoot(bthal::binder::kServiceDirectory);
  std::vector<RegisteredService> services;
  std::error_code error;
  for (std::filesystem::recursive_directory_iterator entry(root, error), end; !error && entry != end;
       entry.increment(error)) {
    if (!entry->is_symlink(error)) continue;
    const std::string name = entry->path().lexically_relative(root).string();
    const std::string socket_name = bthal::binder::SocketOfService(name);
    if (socket_name.empty()) continue;
    services.push_back({name, bthal::binder::PidOf(socket_name), bthal::binder::ConnectSocket(socket_name).get() >= 0});
  }
  std::sort(services.begin(), services.end(), [](const auto& a, const auto& b) { return a.instance < b.instance; });
  return services;
}

}  // namespace bthal::host
