#include "privileged/tool/DesktopCommand.h"

#include <algorithm>
#include <cstddef>

#include "privileged/tool/Failure.h"

namespace AssistantTool {
namespace {

constexpr std::string_view ofCommands = "a command ";
constexpr std::string_view plainCharacters = "@+=:,./_-";
constexpr std::string_view escapedInQuotes = "\"`$\\";
constexpr std::string_view codes = "fFuUick";
constexpr std::string_view codesOfFiles = "fFuU";

[[noreturn]] void refuseCommand(const std::string& reason) { throw Failure(std::string(ofCommands) + reason); }

bool isPlain(char character) {
  const bool isLetter = (character >= 'a' && character <= 'z') || (character >= 'A' && character <= 'Z');
  const bool isBeyondASCII = static_cast<unsigned char>(character) >= 0x80;
  return isLetter || isBeyondASCII || (character >= '0' && character <= '9') ||
         plainCharacters.find(character) != std::string_view::npos;
}

// A word as an entry has it: a percent sign is doubled, and everything that a menu could read as more than itself is
// quoted.
std::string quotedWord(std::string_view word) {
  std::string text;
  bool isQuoted = word.empty();
  for (const char character : word) {
    isQuoted = isQuoted || !isPlain(character);
    if (escapedInQuotes.find(character) != std::string_view::npos) text += '\\';
    if (character == '%') text += '%';
    text += character;
  }
  return isQuoted ? "\"" + text + "\"" : text;
}

// Takes a command line apart, after the escapes of the entry's values are gone.
class CommandReader {
 public:
  explicit CommandReader(std::string_view text) : _rest(text) {}

  bool skipBlanks() {
    _rest.remove_prefix(std::min(_rest.find_first_not_of(' '), _rest.size()));
    return !_rest.empty();
  }
  // The next word for an entry.
  std::string word() {
    if (_rest.front() == '"') return quotedWord(withoutCodes(quoted()));
    const auto text = unquoted();
    if (text.size() == 2 && text.front() == '%' && codes.find(text[1]) != std::string_view::npos) return code(text);
    return quotedWord(withoutCodes(text));
  }
  // The next word for itself.
  std::string plainWord() { return withoutCodes(_rest.front() == '"' ? quoted() : unquoted()); }

 private:
  std::string code(const std::string& text) {
    if (codesOfFiles.find(text[1]) == std::string_view::npos) return text;
    if (_hasFiles) refuseCommand("has two codes for what is opened");
    _hasFiles = true;
    return text;
  }
  std::string unquoted() {
    const auto word = _rest.substr(0, _rest.find(' '));
    const auto isHarmless = [](char character) { return isPlain(character) || character == '%'; };
    if (!std::ranges::all_of(word, isHarmless)) refuseCommand("has a character that has to be quoted");
    _rest.remove_prefix(word.size());
    return std::string(word);
  }
  std::string quoted() {
    std::string word;
    for (std::size_t at = 1; at < _rest.size(); ++at) {
      if (_rest[at] == '"') return _rest.remove_prefix(at + 1), endQuoted(), word;
      const bool isEscape = _rest[at] == '\\';
      if (isEscape && ++at == _rest.size()) break;
      const bool hasToBeEscaped = escapedInQuotes.find(_rest[at]) != std::string_view::npos;
      if (isEscape != hasToBeEscaped) break;
      word += _rest[at];
    }
    refuseCommand("has a quoted word that does not end, or with a wrong escape");
  }
  void endQuoted() const {
    if (!_rest.empty() && _rest.front() != ' ') refuseCommand("has a word that is quoted in part");
  }
  static std::string withoutCodes(const std::string& word) {
    std::string text;
    for (std::size_t at = 0; at < word.size(); ++at) {
      if (word[at] == '%' && (++at == word.size() || word[at] != '%'))
        refuseCommand("has a code in a word, or an unknown one");
      text += word[at];
    }
    return text;
  }

  std::string_view _rest;
  bool _hasFiles = false;
};

// Any other path could lead out of the bundle, and a bare name to whatever program a menu finds by it.
std::string pathInBundle(std::string program) {
  for (std::string_view rest = program;;) {
    const auto component = rest.substr(0, rest.find('/'));
    if (component.empty() || component == "." || component == "..")
      refuseCommand("names a program outside the bundle: " + program);
    if (component.size() == rest.size()) break;
    rest.remove_prefix(component.size() + 1);
  }
  return program;
}

}  // namespace

DesktopCommand desktopCommandOf(std::string_view value) {
  const auto text = unescapedValue(value);
  CommandReader reader(text);
  if (!reader.skipBlanks()) refuseCommand("is empty");
  DesktopCommand command{.program = pathInBundle(reader.plainWord()), .arguments = {}};
  while (reader.skipBlanks()) command.arguments.push_back(reader.word());
  return command;
}

std::string desktopProgramOf(std::string_view value) { return pathInBundle(unescapedValue(value)); }

std::string valueOfCommand(const DesktopCommand& command, const std::string& bundle) {
  auto text = quotedWord(bundle + "/" + command.program);
  for (const auto& argument : command.arguments) text += " " + argument;
  return escapedValue(text);
}

std::string valueOfProgram(const std::string& program, const std::string& bundle) {
  return escapedValue(bundle + "/" + program);
}

std::string escapedValue(std::string_view text) {
  std::string value;
  for (const char character : text) {
    if (character == '\\') value += '\\';
    value += character;
  }
  return value;
}

std::string unescapedValue(std::string_view value) {
  std::string text;
  for (std::size_t at = 0; at < value.size(); ++at) {
    if (value[at] != '\\') {
      text += value[at];
      continue;
    }
    const char escaped = ++at < value.size() ? value[at] : '\0';
    if (escaped != '\\' && escaped != 's') throw Failure("an escape is neither a blank nor a backslash");
    text += escaped == 's' ? ' ' : '\\';
  }
  return text;
}

}  // namespace AssistantTool
