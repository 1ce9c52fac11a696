#include "support/run_program.h"

#include <android-base/file.h>
#include <sys/wait.h>

#include <optional>
#include <stdexcept>

#include "bthal/run/process.h"

namespace bthal::test {
namespace {

std::string Content(const TemporaryFile& file) {
  std::string content;
  ::android::base::ReadFileToString(file.path, &content);
  return content;
}

}  // namespace

ProgramResult RunProgram(const std::vector<std::string>& arguments, const std::string& input,
                         std::chrono::seconds patience) {
  const TemporaryFile in;
  const TemporaryFile out;
  const TemporaryFile error;
  ::android::base::WriteStringToFile(input, in.path);
  std::string failure;
  tool::Child child = tool::Child::Spawn({.arguments = arguments,
                                          .environment = {},
                                          .standard_input = in.fd,
                                          .standard_output = out.fd,
                                          .standard_error = error.fd},
                                         &failure);
  if (!child.running()) throw std::runtime_error(failure);
  const std::optional<int> status = child.Wait(patience);
  ProgramResult result;
  if (status) result.status = WIFSIGNALED(*status) ? 128 + WTERMSIG(*status) : WEXITSTATUS(*status);
  result.out = Content(out);
  result.error = Content(error);
  return result;
}

ProgramResult Bthal(std::vector<std::string> arguments, const std::string& input) {
  arguments.insert(arguments.begin(), BTHAL_PROGRAM);
  return RunProgram(arguments, input);
}

}  // namespace bthal::test
