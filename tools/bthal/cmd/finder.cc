// bthal finder: lets the controller be found while the device is off.
#include <android-base/file.h>

#include <cstdio>
#include <cstring>
#include <memory>

#include "bthal/cli/command.h"
#include "bthal/cmd/call_timeout.h"
#include "bthal/cmd/commands.h"
#include "bthal/run/extension_clients.h"
#include "bthal/show/terminal.h"

namespace bthal::tool {
namespace {

int Run(const std::string& path) {
  std::string content;
  if (!::android::base::ReadFileToString(path, &content, /*follow_symlinks=*/true)) {
    return Complain("cannot read " + path + ": " + strerror(errno));
  }
  std::string error;
  const std::optional<FinderFile> file = ParseFinderFile(content, &error);
  if (!file) return Complain(path + ": " + error);
  if (file->keys.empty() && !file->enable) return Complain(path + ": holds neither a key nor a mode");
  if (!file->keys.empty()) {
    if (!SendFinderKeys(file->keys, &error)) return Complain(error);
    const size_t keys = file->keys.size() / kFinderKeySize;
    printf("%zu %s given\n", keys, keys == 1 ? "key" : "keys");
  }
  if (file->enable) {
    if (!SetFinderMode(*file->enable, &error)) return Complain(error);
    printf("powered-off mode %s\n", *file->enable ? "on" : "off");
  }
  return 0;
}

}  // namespace

void AddFinder(Command& app) {
  auto path = std::make_shared<std::string>();
  Command sub = app.Add("finder", "Give the powered-off finder its keys, and switch it on or off");
  sub.Take("file", path.get(), "keys of 20 bytes in hex, one a line, and 'mode on' or 'mode off'").Required();
  sub.Footer(
      "Keys are added to those given before. With the mode on, a SIGTERM to the service sends them to the controller,\n"
      "which stays powered and can be found; the service ends once the controller has confirmed.\n"
      "\nExample:\n"
      "  $ cat keys.txt\n"
      "  mode on\n"
      "  000102030405060708090a0b0c0d0e0f10111213   # one key\n"
      "  $ bthal finder keys.txt");
  RunWithCallTimeout(sub, [path] { return Run(*path); });
}

}  // namespace bthal::tool
