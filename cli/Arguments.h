#pragma once
// The words that "kelto" is started with. Pure; any thread.
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace cli {

enum class Command { install, update, remove, rollback, history, verify, status };

std::string_view nameOf(Command command);

struct Arguments {
  Command command = Command::status;
  std::string bundle;                  // absolute; what the command is about: the new bundle of install and update
  std::string place;                   // absolute; install's folder, or update's installed bundle; empty if not given
  std::optional<std::string> version;  // that rollback returns to
  std::string journal;                 // absolute; the folder with the journal's files; empty if not given
  std::optional<int> awaitedProcess;
  bool isJSON = false;
  bool relaunches = true;
  bool isConfirmed = false;
};

// The arguments, or something to say instead: the help or the version on standard output, or a cause for a refusal.
struct ReadArguments {
  std::optional<Arguments> arguments;
  bool wantsHelp = false;
  bool wantsVersion = false;
  std::string cause;
};

// `words` without the program's name. A path may be relative to the working folder.
ReadArguments readArguments(const std::vector<std::string>& words);

extern const std::string_view help;

}  // namespace cli
