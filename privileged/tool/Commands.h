#pragma once
// The commands of the tool: the one table that says how each is named, which paths it is given and what performs it.
#include <array>
#include <span>
#include <string_view>

#include "privileged/tool/Request.h"

namespace AssistantTool {

struct Command {
  std::string_view name;
  // The keys of the paths that an instruction with this command has to hold; nullptr for none.
  std::array<const char*, 2> paths;
  // Returns when the effect is on the disk. Throws Failure with everything as it was.
  Outcome (*perform)(const Request& request);
  // File jobs start no program and make no socket. The service manager's job does both.
  bool isFileJob = true;
};

std::span<const Command> commands();

// The command with this name. Throws Failure.
const Command& commandNamed(std::string_view name);

}  // namespace AssistantTool
