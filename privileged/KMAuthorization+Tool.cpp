// The exchange with the assistant tool: one job is one run of it.
#include <array>
#include <bit>
#include <cstdint>
#include <cstring>

#include "foundation/text/UTF8.h"
#include "logging/KTLogger.h"
#include "privileged/KMAuthorization.h"
#include "privileged/NSString+KAPathExtensions.h"
#include "protocol/ToolProtocol.h"

static_assert(std::endian::native == std::endian::little, "the tool reads the length of the archive in this byte order");

namespace {

std::optional<std::string> pathForKey(const InstructionArchive::Instructions& instructions, std::string_view key) {
  const std::string* path = InstructionArchive::valueForKey(instructions, key);
  return path ? std::optional(*path) : std::nullopt;
}

// The text of a job's file, which is removed; nothing when it vanished or does not hold UTF-8.
std::optional<std::string> takeText(platform::FileManager& files, const std::string& path) {
  auto text = files.contentsAtPath(path);
  files.removeItemAtPath(path);
  if (text && !foundation::isValidUTF8(*text)) return std::nullopt;
  return text;
}

// The length, in the byte order of the machine, and the archive in one write: a tool never wakes up for a part.
bool sendInstructions(platform::ByteStream& tool, const InstructionArchive::Instructions& instructions) {
  const std::string archive = InstructionArchive::archivedData(instructions);
  const std::uint64_t length = archive.size();
  std::string message(sizeof length, '\0');
  std::memcpy(message.data(), &length, sizeof length);
  message += archive;
  return tool.write(message.data(), message.size()) == message.size();
}

std::string firstLine(std::string_view text) { return std::string(text.substr(0, text.find('\n'))); }

// For a line of the tool where the verdict is missing.
std::string causeOfLine(const std::string& line) {
  return line.starts_with(protocol::doneMark) ? "the tool left no verdict, although it says \"" + line + "\"" : line;
}

std::string readAnswer(platform::ByteStream& tool) {
  std::string answer;
  std::array<char, protocol::answerChunk> chunk{};
  std::size_t count = 0;
  do {
    count = tool.read(chunk.data(), chunk.size());
    answer.append(chunk.data(), count);
  } while (count == chunk.size());
  return answer;
}

}  // namespace

std::optional<std::string> KMAuthorization::_pathForTool() const {
  auto path = _platform.bundles.mainBundle().pathForResource(_toolName.value_or(""), "");
  if (!path || !_platform.fileManager.isExecutableFileAtPath(*path)) return std::nullopt;
  return path;
}

void KMAuthorization::_createOutputFileAtPath(const std::optional<std::string>& path) {
  if (!path || path->empty()) return;
  _platform.fileManager.createFileAtPath(*path, {.posixPermissions = 0666});
}

bool KMAuthorization::resultFromToolWithPrompt_instructions_output(std::string_view prompt,
                                                                   const Instructions& instructions,
                                                                   std::optional<std::string>* output) {
  Instructions complete = instructions;
  const std::string resultPath = NSString::KAPathExtensions::temporaryPath(_platform.fileManager);
  InstructionArchive::setValueForKey(complete, protocol::resultPathKey, resultPath);
  std::string outputPath;
  if (output != nullptr) {
    outputPath = NSString::KAPathExtensions::temporaryPath(_platform.fileManager);
    InstructionArchive::setValueForKey(complete, protocol::outputPathKey, outputPath);
  }
  _ending = platform::Ending::failed;
  _cause = "the tool ended without a word";
  _outputFromToolWithPrompt_andInstructions(prompt, complete);
  if (output != nullptr) *output = takeText(_platform.fileManager, outputPath);
  const bool isDone = takeText(_platform.fileManager, resultPath) == protocol::successVerdict;
  if (!isDone) reportFailedJob(instructions);
  _cause.clear();
  return isDone;
}

void KMAuthorization::reportFailedJob(const Instructions& instructions) {
  const std::string step = pathForKey(instructions, protocol::commandKey).value_or("no command");
  auto path = pathForKey(instructions, protocol::destinationPathKey);
  if (!path) path = pathForKey(instructions, protocol::filePathKey);
  _platform.report.fail({_ending, step, path.value_or(""), _cause});
}

std::optional<std::string> KMAuthorization::_outputFromToolWithPrompt_andInstructions(std::string_view /*prompt*/,
                                                                                      const Instructions& instructions) {
  _createOutputFileAtPath(pathForKey(instructions, protocol::resultPathKey));
  _createOutputFileAtPath(pathForKey(instructions, protocol::outputPathKey));
  if (!obtainRight(true, true)) {
    _ending = platform::Ending::refused;
    return std::nullopt;
  }
  return _outputFromToolWithInstructions(instructions);
}

std::optional<std::string> KMAuthorization::_outputFromToolWithInstructions(const Instructions& instructions) {
  const auto path = _pathForTool();
  if (!path) {
    _cause = "the bundle has no executable tool " + _toolName.value_or("");
    return std::nullopt;
  }
  std::unique_ptr<platform::ByteStream> tool;
  const auto status = _platform.authorizationServices.executeWithPrivileges(_authorization, *path,
                                                                            platform::kAuthorizationFlagDefaults, tool);
  if (status != platform::errAuthorizationSuccess) {
    _cause = causeOf(_platform, status);
    return std::nullopt;
  }
  if (!sendInstructions(*tool, instructions)) {
    _cause = "the tool did not take the instruction";
    return std::nullopt;
  }
  if (const auto result = pathForKey(instructions, protocol::resultPathKey)) tool->expectSignsOfLife(*result);
  std::string answer = foundation::textFromASCII(readAnswer(*tool));
  if (const auto given = _platform.authorizationServices.cause(); answer.empty() && !given.empty()) _cause = given;
  tool.reset();
  if (const auto line = firstLine(answer); !line.empty()) _cause = causeOfLine(line);
  KTDiagnostics::log({"KMAuthorization", this, "_outputFromToolWithInstructions:", 102}, 7, "output is '%@'", answer);
  return answer;
}
