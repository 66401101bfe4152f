#pragma once
// Facts about one process, as /proc shows them. Any thread.
//
// A number may come to stand for another process between two questions: hold a handle and look whether it still runs. An
// answer is empty when the process has ended or this user may not look.
#include <sys/types.h>

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace platform::Linux {

std::vector<pid_t> allProcesses();

// The path of the program file, as the kernel knows it now: " (deleted)" follows that of a file which is gone.
std::string programOf(pid_t process);
// The kernel's name for it: the first 15 bytes of the file name that it was started by, unless it has changed that.
std::string nameOf(pid_t process);
// The words it was started with. Other users' processes show theirs too.
std::vector<std::string> argumentsOf(pid_t process);
// The environment it was started with: variables, each followed by a zero byte.
std::string environmentOf(pid_t process);
// The value of a variable in such an environment.
std::optional<std::string> valueIn(std::string_view environment, std::string_view name);
std::optional<std::string> environmentValueOf(pid_t process, std::string_view name);
// The last component of its control group's path: the unit that the desktop or the service manager started it in.
std::string controlGroupOf(pid_t process);
pid_t parentOf(pid_t process);
std::optional<uid_t> ownerOf(pid_t process);
// When it was started, in clock ticks since the machine's start; 0 when not known.
unsigned long long startOf(pid_t process);
// True when it has a handler of its own for the signal.
bool handlesSignal(pid_t process, int signal);
// The targets of its descriptors ("socket:[12]"); nullopt when this user may not look.
std::optional<std::vector<std::string>> descriptorsOf(pid_t process);

}  // namespace platform::Linux
