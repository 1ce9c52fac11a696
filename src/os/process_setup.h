// What the process entry does first: where log lines go, how a fatal error dies, which signals do not count.
#pragma once

namespace android::hardware::bluetooth::os {

// On Linux: log lines go to stderr, one line each, with time, process, thread, severity and tag; environment variable
// BTHAL_LOG (verbose, debug, info, warning, error; info by default) says from which severity on. Once stderr has taken
// nothing for a second, nobody waits for it any more: what it does not take at once is left out, and counted there. A
// fatal log prints a stack trace with the functions' names to stderr and aborts. SIGPIPE is ignored: a peer that has
// gone is an error of the write; so is SIGXFSZ, for a file that may not grow any more. SIGTERM and SIGUSR2 are
// unblocked, whatever this process has inherited. A standard descriptor that is closed becomes /dev/null: what is
// opened later would take its number. On Android the platform does all that, and this does nothing. Call once, before
// any other thread exists, or any descriptor is opened.
void SetUpProcess();

// On Linux: ends the process with a status of its own (EX_UNAVAILABLE, 69) and one line on stderr where another service
// runs below the same device root, before anything of that one is touched. Call after SetUpProcess, before main(). On
// Android init starts one only.
void EndUnlessOnlyService();

}  // namespace android::hardware::bluetooth::os
