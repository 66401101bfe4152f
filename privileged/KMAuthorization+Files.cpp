// The file operations: each is one job of the assistant tool.
#include <initializer_list>

#include "privileged/KMAuthorization.h"
#include "protocol/ToolProtocol.h"

namespace {

struct Entry {
  std::string_view key;
  const std::optional<std::string>& value;
};

// The instruction for `command`. Ends at the first missing value, as a nil-terminated list does.
InstructionArchive::Instructions instructionsForCommand(std::string_view command, std::initializer_list<Entry> entries) {
  InstructionArchive::Instructions instructions;
  InstructionArchive::setValueForKey(instructions, protocol::commandKey, std::string(command));
  for (const auto& [key, value] : entries) {
    if (!value) break;
    InstructionArchive::setValueForKey(instructions, key, *value);
  }
  return instructions;
}

}  // namespace

bool KMAuthorization::trashItemAtPath(const std::optional<std::string>& path) {
  return resultFromToolWithPrompt_instructions_output(
      "", instructionsForCommand(protocol::trashFileCommand, {{protocol::filePathKey, path}}), nullptr);
}

bool KMAuthorization::removeItemAtPath(const std::optional<std::string>& path) {
  return resultFromToolWithPrompt_instructions_output(
      "", instructionsForCommand(protocol::removeFileCommand, {{protocol::filePathKey, path}}), nullptr);
}

bool KMAuthorization::copyItemAtPath_toPath(const std::optional<std::string>& source,
                                            const std::optional<std::string>& destination) {
  const auto instructions = instructionsForCommand(
      protocol::copyFileCommand, {{protocol::sourcePathKey, source}, {protocol::destinationPathKey, destination}});
  return resultFromToolWithPrompt_instructions_output("", instructions, nullptr);
}

bool KMAuthorization::moveItemAtPath_toPath(const std::optional<std::string>& source,
                                            const std::optional<std::string>& destination) {
  const auto instructions = instructionsForCommand(
      protocol::moveFileCommand, {{protocol::sourcePathKey, source}, {protocol::destinationPathKey, destination}});
  return resultFromToolWithPrompt_instructions_output("", instructions, nullptr);
}

bool KMAuthorization::replaceItemAtPath_withItemAtPath(const std::optional<std::string>& path,
                                                       const std::optional<std::string>& replacement) {
  const auto instructions = instructionsForCommand(
      protocol::replaceItemCommand, {{protocol::sourcePathKey, replacement}, {protocol::destinationPathKey, path}});
  return resultFromToolWithPrompt_instructions_output("", instructions, nullptr);
}
