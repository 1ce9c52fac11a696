// Standard output, of which every byte is looked after: whether it arrived, and whether a terminal may be given it.
#pragma once

namespace bthal::tool {

// From now on what is printed on stdout goes through here. On a terminal it is filtered (see TerminalFilter). When it
// cannot be written, `end` is called. A reader that does not read keeps nobody from ending: once the descriptor that
// `interrupt_fd` returns is readable it is no longer waited for. Once, before anything is printed.
void WatchStandardOutput(int (*interrupt_fd)(), void (*end)());

// To be called last: `status`, if all that was printed has arrived. Otherwise 1, with one line on standard error; where
// the reader has gone, the end that SIGPIPE brings.
int EndStandardOutput(int status);

}  // namespace bthal::tool
