#include "bthal/demo/service_child.h"

#include <errno.h>
#include <fcntl.h>
#include <string.h>

#include <fstream>

#include "bthal/run/device_names.h"
#include "bthal/show/last_words.h"

namespace bthal::tool {

Child SpawnService(const std::string& log, std::string* error,
                   std::vector<std::pair<std::string, std::string>> environment) {
  const ::android::base::unique_fd file(open(log.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_APPEND | O_CLOEXEC, 0644));
  if (!file.ok()) {
    *error = "cannot write " + log + ": " + strerror(errno);
    return {};
  }
  return Child::Spawn({.arguments = {ProgramBeside(kServiceProgram)},
                       .environment = std::move(environment),
                       .standard_output = file.get(),
                       .standard_error = file.get()},
                      error);
}

std::vector<std::string> LastWordsIn(const std::string& log) {
  LastWords words;
  std::ifstream file(log);
  for (std::string line; std::getline(file, line);) words.Look(line);
  return words.Lines();
}

}  // namespace bthal::tool
