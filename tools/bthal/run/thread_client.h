// The Thread radio's side of the service: one client on a local socket, one message a frame.
#pragma once

#include <android-base/unique_fd.h>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace bthal::tool {

// Connects to the SEQPACKET socket at `path`, of whatever length. Invalid, with one line in `error`, on failure.
::android::base::unique_fd ConnectToThreadSocket(const std::string& path, std::string* error);

bool SendFrame(int socket, const std::vector<uint8_t>& frame, std::string* error);

// The next frame; nothing, with `error` empty, when the service has hung up.
std::optional<std::vector<uint8_t>> ReceiveFrame(int socket, std::string* error);

}  // namespace bthal::tool
