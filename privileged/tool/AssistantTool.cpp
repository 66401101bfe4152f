#include "privileged/tool/AssistantTool.h"

#include <unistd.h>

#include <charconv>
#include <cstdlib>
#include <exception>
#include <memory>
#include <string>
#include <string_view>

#include "privileged/tool/Effects.h"
#include "privileged/tool/Failure.h"
#include "privileged/tool/Instruction.h"
#include "privileged/tool/SignOfLife.h"
#include "protocol/ToolProtocol.h"

namespace AssistantTool {
namespace {

// Does the job and writes the verdict; `record` gets to know what it is about, also when it fails.
Outcome job(int input, const Effects& effects, JobRecord& record) {
  const auto instructions = readInstruction(input);
  for (const char* key : {protocol::filePathKey, protocol::sourcePathKey, protocol::destinationPathKey}) {
    if (const auto* path = InstructionArchive::valueForKey(instructions, key)) record.paths.push_back(*path);
  }
  record.command = requiredValue(instructions, protocol::commandKey);
  const PathWalk walk(invokingUser());
  const auto result = effects.openAnswer(requiredValue(instructions, protocol::resultPathKey), walk);
  const SignsOfLife signs(*result);
  std::unique_ptr<Answer> output;
  if (const auto* path = InstructionArchive::valueForKey(instructions, protocol::outputPathKey)) {
    output = effects.openAnswer(*path, walk);
  }
  if (output && output->identity() == result->identity()) throw Failure("result and output are the same file");
  Outcome outcome = effects.perform(commandNamed(record.command),
                                    {instructions, walk, effects.rules, record.bundles, effects.rules.bounds()});
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

int run(int input, int output, const Effects& effects) {
  JobRecord record;
  const auto report = [&](JobRecord::Verdict verdict, const std::string& text) {
    record.verdict = verdict;
    record.line = line(text);
    record.line.pop_back();
    effects.record(record);
  };
  try {
    const auto outcome = job(input, effects, record);
    const auto told = outcome.report + (outcome.warning.empty() ? "" : "; " + outcome.warning);
    record.isWarning = !outcome.warning.empty();
    tell(output, protocol::doneMark + told);
    report(JobRecord::Verdict::done, told);
    const auto warning = outcome.afterwards ? outcome.afterwards() : std::string();
    if (!warning.empty()) report(JobRecord::Verdict::incomplete, warning);
    return EXIT_SUCCESS;
  } catch (const std::exception& failure) {
    tell(output, failure.what());
    report(JobRecord::Verdict::refused, failure.what());
    return EXIT_FAILURE;
  }
}

}  // namespace AssistantTool
