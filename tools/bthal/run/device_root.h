// Folders that play the device's root: whether they may be trusted, and who furnishes them.
#pragma once

#include <android-base/unique_fd.h>

#include <initializer_list>
#include <string>
#include <string_view>

namespace bthal::tool {

// Whether the folder is one, no link to one, owned by this user or by root, and closed to the writing of others:
// otherwise what lies in it is what someone else wants opened. A folder that is not there yet is fine. If not, one line
// in `error`.
bool RootIsOurs(const std::string& path, std::string* error);

// Where the device's paths lie; "/" is the machine itself.
std::string DeviceRoot();

// Whether this user may use the folder where the service and its clients meet, or there is none yet: of another user's
// service nothing can be seen, not even that it runs. If not, one line in `error`.
bool MeetingPlaceIsOpen(std::string* error);

// The service or the supervisor that runs on the device root already, in one line; empty where neither does.
std::string RunningThere();

// Makes the folder if need be, and locks it as long as the descriptor lives: a root has one board. Nothing below it has
// been touched when this fails, with one line in `error`.
::android::base::unique_fd OccupyRoot(const std::string& path, std::string* error);

// Removes everything in the folder but what is called as one of `kept`. Goes from descriptor to descriptor: a link is
// removed, never followed, and another file system that is mounted below stays. Whether all of it went.
bool RemoveAllIn(int folder, std::initializer_list<std::string_view> kept = {});

}  // namespace bthal::tool
