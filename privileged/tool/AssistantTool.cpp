#include "privileged/tool/AssistantTool.h"

#include <syslog.h>
#include <unistd.h>

#include <array>
#include <charconv>
#include <cstdlib>
#include <exception>
#include <memory>
#include <string>
#include <string_view>

#include "privileged/tool/Failure.h"
#include "privileged/tool/Instruction.h"
#include "privileged/tool/Operations.h"
#include "privileged/tool/Request.h"
#include "protocol/ToolProtocol.h"

namespace AssistantTool {
namespace {

struct Command {
  std::string_view name;
  Outcome (Operations::*perform)(const Request&);
};
constexpr std::array<Command, 6> Commands{{
    {protocol::trashFileCommand, &Operations::trashFile},
    {protocol::removeFileCommand, &Operations::removeFile},
    {protocol::copyFileCommand, &Operations::copyFile},
    {protocol::moveFileCommand, &Operations::moveFile},
    {protocol::replaceItemCommand, &Operations::replaceItem},
    {protocol::upgradeServerCommand, &Operations::upgradeServer},
}};

Outcome perform(Operations& operations, const Request& request, const std::string& name) {
  for (const auto& command : Commands) {
    if (command.name == name) return (operations.*command.perform)(request);
  }
  throw Failure("unknown command: " + name);
}

const std::string& required(const InstructionArchive::Instructions& instructions, std::string_view key) {
  const auto* value = InstructionArchive::valueForKey(instructions, key);
  if (value == nullptr) throw Failure("no \"" + std::string(key) + "\" in the instruction");
  return *value;
}

// Does the job and writes the verdict.
Outcome job(int input, Operations& operations) {
  const auto instructions = readInstruction(input);
  const PathWalk walk(invokingUser());
  const auto& command = required(instructions, protocol::commandKey);
  const auto result = operations.answerAt(required(instructions, protocol::resultPathKey), walk);
  std::unique_ptr<Answer> output;
  if (const auto* path = InstructionArchive::valueForKey(instructions, protocol::outputPathKey)) {
    output = operations.answerAt(*path, walk);
  }
  if (output && output->identity() == result->identity()) throw Failure("result and output are the same file");
  Outcome outcome = perform(operations, {instructions, walk}, command);
  if (output) output->write(outcome.output);
  result->write(protocol::successVerdict);
  return outcome;
}

// One line of printable ASCII, short enough for one read.
std::string line(std::string text) {
  for (char& character : text) {
    if (character < ' ' || character > '~') character = '?';
  }
  if (text.size() > protocol::answerChunk - 2) text.resize(protocol::answerChunk - 2);
  return text + "\n";
}

void tell(int output, const std::string& text) {
  const auto message = line(text);
  if (::write(output, message.data(), message.size()) < 0) return;  // nobody listens any more: the verdict is written
}

}  // namespace

Location Request::locate(const char* key) const { return walk.locate(required(instructions, key)); }

uid_t invokingUser() {
  const char* text = ::getuid() == 0 && ::geteuid() == 0 ? std::getenv(protocol::invokingUserVariable) : nullptr;
  if (text == nullptr) return ::getuid();
  const std::string_view digits(text);
  uid_t user = 0;
  const auto [end, error] = std::from_chars(digits.begin(), digits.end(), user);
  if (error != std::errc() || end != digits.end() || user == static_cast<uid_t>(-1))
    throw Failure("the invoking user is not known");
  return user;
}

int run(int input, int output, Operations& operations) {
  try {
    const auto outcome = job(input, operations);
    tell(output, outcome.report);
    operations.log(LOG_NOTICE, line(outcome.report));
    const auto warning = outcome.afterwards ? outcome.afterwards() : std::string();
    if (!warning.empty()) operations.log(LOG_WARNING, line(warning));
    return EXIT_SUCCESS;
  } catch (const std::exception& failure) {
    tell(output, failure.what());
    operations.log(LOG_WARNING, line(failure.what()));
    return EXIT_FAILURE;
  }
}

}  // namespace AssistantTool
