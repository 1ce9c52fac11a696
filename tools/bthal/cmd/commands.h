// The subcommands. Each function adds its own to `app`, with its options and its help; when the user asks for it, it
// runs as the command line is parsed and leaves the program's exit status in *status. One file each.
#pragma once

namespace CLI {
class App;
}

namespace bthal::tool {

void AddDemo(CLI::App& app, int* status);
void AddBoard(CLI::App& app, int* status);
void AddSupervise(CLI::App& app, int* status);
void AddHci(CLI::App& app, int* status);
void AddDump(CLI::App& app, int* status);
void AddTimeline(CLI::App& app, int* status);
void AddSnoop(CLI::App& app, int* status);
void AddServices(CLI::App& app, int* status);
void AddProp(CLI::App& app, int* status);
void AddConf(CLI::App& app, int* status);
void AddCheck(CLI::App& app, int* status);
void AddThread(CLI::App& app, int* status);
void AddFinder(CLI::App& app, int* status);
void AddAfh(CLI::App& app, int* status);

}  // namespace bthal::tool
