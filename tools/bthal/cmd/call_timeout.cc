#include "bthal/cmd/call_timeout.h"

#include <chrono>
#include <memory>
#include <utility>

#include "bthal/cli/command.h"
#include "bthal/run/service_calls.h"

namespace bthal::tool {

void RunWithCallTimeout(Command& sub, std::function<int()> run) {
  auto seconds = std::make_shared<double>(std::chrono::duration<double>(CallPatience()).count());
  sub.Take("--call-timeout", seconds.get(), "seconds until a service that does not answer a call is given up")
      .ShowDefault()
      .Type("SECONDS")
      .Within(0.001, 3600.0);
  sub.Run([seconds, run = std::move(run)] {
    SetCallPatience(std::chrono::milliseconds(static_cast<int>(*seconds * 1000)));
    return run();
  });
}

}  // namespace bthal::tool
