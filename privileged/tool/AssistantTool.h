#pragma once
// One run of the assistant tool: an instruction from its standard input, the job, the verdict in the result file, one line
// on its standard output.
#include <sys/types.h>

namespace AssistantTool {

struct Effects;

// The user who asked: for a tool started as root the user named in its environment, else the process's own. Throws Failure
// when the variable does not hold a user id.
uid_t invokingUser();

// Reads from `input`, which holds the length (8 bytes, host order) and as many bytes of archive; writes to `output`. On
// success the result file holds exactly "tool result ok" before anything is printed; what the job replaced is deleted after
// that, so that nobody waits for it. Returns the exit status: 0, or 1 with the reason printed and nothing in the result
// file.
int run(int input, int output, const Effects& effects);

}  // namespace AssistantTool
