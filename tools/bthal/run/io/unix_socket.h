// Sockets that lie below the device root.
#pragma once

#include <android-base/unique_fd.h>

#include <string>

namespace bthal::tool {

// A connection to the socket at `path`, however long that is; invalid, with errno set, when nobody listens there.
// `type` as socket(2) takes it.
::android::base::unique_fd ConnectTo(const std::string& path, int type);

}  // namespace bthal::tool
