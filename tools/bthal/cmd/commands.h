// The subcommands. Each function adds its own to `app`, with its options and its help; when the user asks for it, it
// runs, and what it returns is the program's exit status. One file each.
#pragma once

namespace bthal::tool {

class Command;

void AddDemo(Command& app);
void AddShell(Command& app);
void AddBoard(Command& app);
void AddSupervise(Command& app);
void AddHci(Command& app);
void AddDump(Command& app);
void AddTimeline(Command& app);
void AddSnoop(Command& app);
void AddDecode(Command& app);
void AddServices(Command& app);
void AddProp(Command& app);
void AddConf(Command& app);
void AddCheck(Command& app);
void AddThread(Command& app);
void AddFinder(Command& app);
void AddAfh(Command& app);
void AddBridge(Command& app);

}  // namespace bthal::tool
