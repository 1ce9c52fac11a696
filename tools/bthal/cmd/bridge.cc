// bthal bridge: a host stack on top of the HAL.
#include <arpa/inet.h>

#include <memory>
#include <utility>

#include "bthal/bridge/bridge.h"
#include "bthal/cli/command.h"
#include "bthal/cmd/commands.h"
#include "bthal/run/interrupt.h"
#include "bthal/show/terminal.h"

namespace bthal::tool {
namespace {

struct Choice {
  BridgeOptions bridge;
  std::string node = "/dev/vhci";
  std::string path;
  std::string listen = "127.0.0.1";
  int port = 0;
};

int Serve(std::unique_ptr<Backend> backend, const BridgeOptions& options) {
  CatchInterrupts();
  return Bridge(std::move(backend), options).Run();
}

bool IsLoopback(const std::string& address) {
  in_addr v4 = {};
  if (inet_pton(AF_INET, address.c_str(), &v4) == 1) return ntohl(v4.s_addr) >> 24 == 127;
  return address == "::1";
}

int ServeTcp(const Choice& choice) {
  std::unique_ptr<Backend> backend = MakeTcpBackend(choice.listen, choice.port);
  std::string error;
  if (!backend->Check(&error)) return Complain(error);
  if (!IsLoopback(choice.listen)) {
    Complain("warning: whoever reaches " + choice.listen +
             " has the controller; nothing is asked of them, and nothing "
             "is encrypted");
  }
  return Serve(std::move(backend), choice.bridge);
}

}  // namespace

void AddBridge(Command& app) {
  auto choice = std::make_shared<Choice>();
  Command sub = app.Add("bridge", "Let a Bluetooth host stack of this machine use the HAL");
  sub.NeedsSubcommand();
  const auto add = [&](const char* name, const char* about) {
    Command backend = sub.Add(name, about);
    backend.Flag("--once", &choice->bridge.once, "end with the first host that goes, or with the service");
    backend.Flag("-v,--verbose", &choice->bridge.verbose, "show every packet");
    backend.Flag("--take-over", &choice->bridge.take_over, "end another bthal that has the HAL");
    return backend;
  };
  Command vhci = add("vhci", "as a controller of this machine's kernel, for BlueZ");
  vhci.Take("--device", &choice->node, "the kernel's node for virtual controllers").ShowDefault().Type("PATH");
  vhci.Run([choice] { return Serve(MakeVhciBackend(choice->node), choice->bridge); });

  Command pty = add("pty", "as a serial port, for stacks that speak H4 to one");
  pty.Take("link", &choice->path, "where the link to the pseudo-terminal is made").Required();
  pty.Run([choice] { return Serve(MakePtyBackend(choice->path), choice->bridge); });

  Command unix_socket = add("unix", "as a Unix socket that speaks H4, for this user");
  unix_socket.Take("path", &choice->path, "where the socket is made").Required();
  unix_socket.Run([choice] { return Serve(MakeUnixBackend(choice->path), choice->bridge); });

  Command tcp = add("tcp", "as a TCP port that speaks H4, for this machine");
  tcp.Take("port", &choice->port, "the port; 0 takes any that is free").Required().Within(0, 65535);
  tcp.Take("--listen", &choice->listen, "the address to listen on").ShowDefault().Type("ADDRESS");
  tcp.Run([choice] { return ServeTcp(*choice); });

  sub.Footer(
      "It waits for the service, initialises the HAL, and then offers the controller to one host at a time. A host "
      "that\n"
      "goes makes room for the next one; when the service dies, the host loses its controller until there is a new "
      "one.\n"
      "At the end, and on SIGUSR1, it prints which commands the controller refused or never answered, and what has no\n"
      "name here.\n"
      "\nExamples:\n"
      "  bthal bridge vhci\n"
      "  bthal bridge pty /tmp/hci\n"
      "  bthal bridge unix /tmp/hci.sock --once -v");
}

}  // namespace bthal::tool
