#pragma once
// The command line of a desktop entry, as its keys Exec and TryExec hold it: taken apart, and put together again in one
// form that every menu reads in the same way.
//
// Pure; any thread.
#include <string>
#include <string_view>
#include <vector>

namespace AssistantTool {

struct DesktopCommand {
  std::string program;                 // a path in the bundle, without "." and ".."
  std::vector<std::string> arguments;  // as they stand in an entry: quoted words, or the code of what is opened
};

// `value` as it stands in the entry: a path in the bundle, then words. Each throws Failure: the program is not named by a
// path that stays inside the bundle, a word has characters that have to be quoted, or a code is unknown, old or in a word.
DesktopCommand desktopCommandOf(std::string_view value);
std::string desktopProgramOf(std::string_view value);

// The values for the entry of a bundle at `bundle`, an absolute path.
std::string valueOfCommand(const DesktopCommand& command, const std::string& bundle);
std::string valueOfProgram(const std::string& program, const std::string& bundle);

// A text as the value of a key, and back. The second throws Failure for an escape that is not one of blank and backslash.
std::string escapedValue(std::string_view text);
std::string unescapedValue(std::string_view value);

}  // namespace AssistantTool
