// What a user has asked to be written to a file of his.
#pragma once

#include <string>
#include <string_view>

namespace bthal::tool {

// Whether WriteOutput may write there, nothing having been touched yet; if not, one line in `error`.
bool MayWriteOutput(const std::string& path, std::string* error);

// All of `content`, or nothing: it is written to a new file beside `path`, which then takes its place, with the
// permissions and the owner of what was there; through a link, the place of what it leads to. A fifo or a character
// device is written to. Nothing else is written to, removed or replaced. False with one line in `error`.
bool WriteOutput(const std::string& path, std::string_view content, std::string* error);

// Whether both names lead to one regular file, through whatever links; or, as long as neither is there, to one name in
// one folder.
bool AreOneFile(const std::string& one, const std::string& other);

}  // namespace bthal::tool
