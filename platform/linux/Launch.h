#pragma once
// Starting a program that outlives this one and owes it nothing.
#include <string>
#include <vector>

namespace platform::Linux {

// Starts the program at the absolute path `program` with these arguments, and returns once it runs: 0, or the number of
// the error that kept it from running.
//
// It gets a session of its own, signals as at login, the home folder as working folder ("/" when there is none), nothing on
// standard input, this process's standard output and error and no other descriptor, and this process's environment with
// PATH as it was before this program put its own folders in front. It is not a child of this process. It carries the mark
// of LaunchMark.h for `identifier`. Any thread.
int launch(const std::string& program, const std::vector<std::string>& arguments, const std::string& identifier = {});

}  // namespace platform::Linux
