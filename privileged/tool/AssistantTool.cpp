#include "privileged/tool/AssistantTool.h"

#include <fcntl.h>
#include <syslog.h>
#include <unistd.h>

#include <array>
#include <charconv>
#include <cstdlib>
#include <exception>
#include <optional>
#include <string>
#include <string_view>

#include "privileged/tool/AnswerFile.h"
#include "privileged/tool/Failure.h"
#include "privileged/tool/FileCommands.h"
#include "privileged/tool/Instruction.h"
#include "privileged/tool/Request.h"
#include "privileged/tool/ServerUpgrade.h"
#include "privileged/tool/TrashCommand.h"

namespace AssistantTool {
namespace {

constexpr std::string_view SuccessText = "tool result ok";
// The reader takes an answer of this many bytes or more for a part of a longer one.
constexpr std::size_t ShortRead = 512;

struct Command {
  std::string_view name;
  Outcome (*perform)(const Request&);
};
constexpr std::array<Command, 6> Commands{{
    {"trash file", trashFile},
    {"remove file", removeFile},
    {"copy file", copyFile},
    {"move file", moveFile},
    {"replace item", replaceItem},
    {"upgrade server", upgradeServer},
}};

Outcome perform(const Request& request, const std::string& name) {
  for (const auto& command : Commands) {
    if (command.name == name) return command.perform(request);
  }
  throw Failure("unknown command: " + name);
}

const std::string& required(const InstructionArchive::Instructions& instructions, std::string_view key) {
  const auto* value = InstructionArchive::valueForKey(instructions, key);
  if (value == nullptr) throw Failure("no \"" + std::string(key) + "\" in the instruction");
  return *value;
}

// Does the job and writes the verdict.
Outcome job(int input) {
  const auto instructions = readInstruction(input);
  const PathWalk walk(invokingUser());
  const auto& command = required(instructions, "command");
  const AnswerFile result(required(instructions, "result path"), walk);
  std::optional<AnswerFile> output;
  if (const auto* path = InstructionArchive::valueForKey(instructions, "output path")) output.emplace(*path, walk);
  if (output && output->isSameFileAs(result)) throw Failure("result and output are the same file");
  Outcome outcome = perform({instructions, walk}, command);
  if (output) output->write(outcome.output);
  result.write(SuccessText);
  return outcome;
}

// One line of printable ASCII, short enough for one read.
std::string line(std::string text) {
  for (char& character : text) {
    if (character < ' ' || character > '~') character = '?';
  }
  if (text.size() > ShortRead - 2) text.resize(ShortRead - 2);
  return text + "\n";
}

void log(int level, const std::string& text) {
  if (::geteuid() == 0) ::syslog(LOG_AUTHPRIV | level, "%s", line(text).c_str());
}

void tell(int output, const std::string& text) {
  const auto message = line(text);
  if (::write(output, message.data(), message.size()) < 0) return;  // nobody listens any more: the verdict is written
}

}  // namespace

Location Request::locate(const char* key) const { return walk.locate(required(instructions, key)); }

uid_t invokingUser() {
  const char* text = ::getuid() == 0 && ::geteuid() == 0 ? std::getenv("KELTO_INVOKING_UID") : nullptr;
  if (text == nullptr) return ::getuid();
  const std::string_view digits(text);
  uid_t user = 0;
  const auto [end, error] = std::from_chars(digits.begin(), digits.end(), user);
  if (error != std::errc() || end != digits.end() || user == static_cast<uid_t>(-1))
    throw Failure("the invoking user is not known");
  return user;
}

int run(int input, int output) {
  try {
    const auto outcome = job(input);
    tell(output, outcome.report);
    log(LOG_NOTICE, outcome.report);
    if (outcome.afterwards && !outcome.afterwards()) log(LOG_WARNING, "something replaced could not be deleted completely");
    return EXIT_SUCCESS;
  } catch (const std::exception& failure) {
    tell(output, failure.what());
    log(LOG_WARNING, failure.what());
    return EXIT_FAILURE;
  }
}

}  // namespace AssistantTool
