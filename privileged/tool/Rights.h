#pragma once
// Drops the rights that the tool is started with but does not need, so that neither a fault of its own nor a hostile file
// can use them. It cannot regain them, and neither can the programs that it starts.
#include <cstdint>

namespace AssistantTool {

// The capabilities that jobs need as root: to give things to their owners and to work in any folder, and to become the
// invoking user while working in that user's home. One bit each, as in /proc/PID/status.
std::uint64_t neededCapabilities();

// At the start: every other capability, gaining rights by running programs, and the system calls that no job makes, such as
// mounting, tracing, loading modules, setting clocks, entering namespaces and every network but the machine's own sockets.
// Such a call fails with EPERM; one of another architecture ends the process. Throws Failure.
void giveUpRights();
// Before a job that works on files only: starting programs, and making sockets; one that is open stays so. Throws Failure.
void giveUpProgramsAndSockets();
// Before a program of the system is run: what is left to root is what root's files leave to their owner. Throws Failure.
void giveUpCapabilitiesAndSockets();

}  // namespace AssistantTool
