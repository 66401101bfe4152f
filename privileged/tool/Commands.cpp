#include "privileged/tool/Commands.h"

#include <algorithm>
#include <string>

#include "privileged/tool/Failure.h"
#include "privileged/tool/FileCommands.h"
#include "privileged/tool/ServerUpgrade.h"
#include "privileged/tool/TrashCommand.h"
#include "protocol/ToolProtocol.h"

namespace AssistantTool {
namespace {

using namespace protocol;

constexpr std::array<Command, 6> table{{
    {.name = trashFileCommand, .paths = {filePathKey, nullptr}, .perform = trashFile},
    {.name = removeFileCommand, .paths = {filePathKey, nullptr}, .perform = removeFile},
    {.name = copyFileCommand, .paths = {sourcePathKey, destinationPathKey}, .perform = copyFile},
    {.name = moveFileCommand, .paths = {sourcePathKey, destinationPathKey}, .perform = moveFile},
    {.name = replaceItemCommand, .paths = {sourcePathKey, destinationPathKey}, .perform = replaceItem},
    {.name = upgradeServerCommand, .paths = {filePathKey, nullptr}, .perform = upgradeServer, .isFileJob = false},
}};

}  // namespace

std::span<const Command> commands() { return table; }

const Command& commandNamed(std::string_view name) {
  const auto command = std::ranges::find(table, name, &Command::name);
  if (command == table.end()) throw Failure("unknown command: " + std::string(name));
  return *command;
}

}  // namespace AssistantTool
