#pragma once
// Which program of a bundle is the application itself. Any thread.
#include <optional>
#include <string>
#include <string_view>

#include "platform/Bundle.h"

namespace platform::Linux {

// The folders of a bundle that hold its programs, best first.
inline constexpr std::string_view programFolders[] = {"Contents/Linux", "Contents/MacOS"};

// The bundle that the program at `path` belongs to: the innermost folder above it with an information list, when the
// program is below one of its program folders. The program itself need not exist any more.
std::optional<std::string> bundleOfProgram(std::string_view path);

// True when `program`, a path inside the bundle such as "Contents/Linux/App", is what a launch of the bundle starts. In a
// bundle that names no such program, each one in a program folder is taken for it.
bool isMainExecutable(const platform::Bundle& bundle, std::string_view program);

// The path of what a launch of the bundle starts; nothing when there is no such program that can be executed.
std::optional<std::string> mainExecutableOf(const platform::Bundle& bundle);

}  // namespace platform::Linux
