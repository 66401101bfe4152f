#include "cli/Arguments.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <filesystem>

namespace cli {
namespace {

enum class Bundle { needed, optional };

struct Form {
  std::string_view name;
  Command command;
  Bundle bundle;
  bool hasPlace;
  bool changes;  // takes the options of the commands that change something
};

constexpr std::array<Form, 7> forms{{
    {"install", Command::install, Bundle::needed, true, true},
    {"update", Command::update, Bundle::needed, true, true},
    {"remove", Command::remove, Bundle::needed, false, true},
    {"rollback", Command::rollback, Bundle::needed, false, true},
    {"history", Command::history, Bundle::optional, false, false},
    {"verify", Command::verify, Bundle::needed, false, false},
    {"status", Command::status, Bundle::optional, false, false},
}};

// Without "." and "..", and without a slash at the end. The folder of a relative path is followed through its links,
// because the path is then the caller's own word; a link at the end is left for the checks of the run.
std::string absolute(const std::string& word) {
  namespace fs = std::filesystem;
  fs::path path(word);
  if (!path.has_filename() && path.has_relative_path()) path = path.parent_path();
  const bool isPlain = path.is_absolute() && std::ranges::none_of(path, [](const fs::path& component) {
                         return component == "." || component == "..";
                       });
  if (isPlain) return path.string();
  std::error_code error;
  const bool namesFolder = path.filename() == "." || path.filename() == "..";
  const auto whole = fs::absolute(path, error);
  const auto folder = fs::weakly_canonical(namesFolder ? whole : whole.parent_path(), error);
  if (error) return whole.string();
  return (namesFolder ? folder : folder / whole.filename()).string();
}

class Reader {
 public:
  explicit Reader(const std::vector<std::string>& words) : _words(words) {}

  ReadArguments read() {
    if (isAsked("--help")) return {.arguments = {}, .wantsHelp = true, .wantsVersion = false, .cause = {}};
    if (_words.empty()) return refused("no command is given (see --help)");
    if (_words.size() == 1 && isAsked("--version"))
      return {.arguments = {}, .wantsHelp = false, .wantsVersion = true, .cause = {}};
    const auto form = std::ranges::find(forms, _words.front(), &Form::name);
    if (form == forms.end()) return refused("unknown command: " + _words.front() + " (see --help)");
    _arguments.command = form->command;
    for (_next = 1; _next < _words.size();) {
      if (auto cause = readWord(*form); !cause.empty()) return refused(std::move(cause));
    }
    if (_arguments.bundle.empty() && form->bundle == Bundle::needed)
      return refused(std::string(form->name) + " needs a bundle (see --help)");
    return {.arguments = std::move(_arguments), .wantsHelp = false, .wantsVersion = false, .cause = {}};
  }

 private:
  static ReadArguments refused(std::string cause) {
    return {.arguments = {}, .wantsHelp = false, .wantsVersion = false, .cause = std::move(cause)};
  }
  [[nodiscard]] bool isAsked(std::string_view option) const { return std::ranges::find(_words, option) != _words.end(); }

  // Each of these answers with a cause, or nothing.
  std::string readWord(const Form& form) {
    const std::string& word = _words[_next++];
    if (word == "--json") return set(_arguments.isJSON, true);
    if (form.hasPlace && word == "--to") return readPath(word, _arguments.place);
    if (form.command == Command::rollback && word == "--version") return readVersion(word);
    if (form.command == Command::history && word == "--journal") return readPath(word, _arguments.journal);
    if (form.changes && word == "--yes") return set(_arguments.isConfirmed, true);
    if (form.changes && word == "--no-relaunch") return set(_arguments.relaunches, false);
    if (form.changes && word == "--wait-pid") return readProcess(word);
    if (word.starts_with("-")) return "unknown option of " + std::string(form.name) + ": " + word + " (see --help)";
    if (!_arguments.bundle.empty()) return "more than one bundle is given: " + word;
    if (word.empty()) return "the name of the bundle is empty";
    _arguments.bundle = absolute(word);
    return {};
  }

  static std::string set(bool& option, bool value) {
    option = value;
    return {};
  }

  const std::string* value() { return _next < _words.size() ? &_words[_next++] : nullptr; }

  std::string readPath(const std::string& option, std::string& path) {
    const auto* word = value();
    if (word == nullptr || word->empty()) return option + " needs a path";
    path = absolute(*word);
    return {};
  }

  std::string readVersion(const std::string& option) {
    const auto* word = value();
    if (word == nullptr || word->empty()) return option + " needs a version";
    _arguments.version = *word;
    return {};
  }

  std::string readProcess(const std::string& option) {
    const auto* word = value();
    int number = 0;
    if (word != nullptr) {
      const char* end = word->data() + word->size();
      const auto [stopped, error] = std::from_chars(word->data(), end, number);
      if (error != std::errc() || stopped != end) number = 0;
    }
    if (number <= 1) return option + " needs the number of a process";
    _arguments.awaitedProcess = number;
    return {};
  }

  const std::vector<std::string>& _words;
  std::size_t _next = 0;
  Arguments _arguments;
};

}  // namespace

std::string_view nameOf(Command command) { return std::ranges::find(forms, command, &Form::command)->name; }

ReadArguments readArguments(const std::vector<std::string>& words) { return Reader(words).read(); }

const std::string_view help =
    R"help(Usage: kelto COMMAND [BUNDLE] [OPTION]...

Installs, updates and removes application bundles from a terminal, a script or a timer, with administrator rights that
the policy service grants.

  install NEW [--to FOLDER]    puts the bundle NEW into FOLDER (/Applications), where nothing has its name yet
  update NEW [--to BUNDLE]     replaces the installed BUNDLE (of the name of NEW in /Applications) by NEW
  remove BUNDLE                moves the installed BUNDLE to the Trash
  rollback BUNDLE              returns to the version before the installed one, which administrators have had kept
  history [BUNDLE]             lists the jobs of this machine, or those of BUNDLE
  verify BUNDLE                compares a signed bundle with its manifest, by the keys that administrators trust
  status [BUNDLE]              shows what is installed, the last run and the policy of this machine

A bundle keeps its file name. Running copies of the application are asked to quit; when you have started one of them, the
new version is started in the end.

  --version VERSION   returns to this version, where several are kept
  --wait-pid NUMBER   waits for the end of this process first, and starts the new version
  --no-relaunch       starts nothing
  --yes               does not ask on the terminal whether to go on
  --json              prints one JSON object on standard output, and asks nothing
  --journal FOLDER    reads the history from the journal's files in this folder
  --help              shows this text
  --version           shows the version

Exit status:
  0  done
  1  failed
  2  bad arguments
  4  the administrator rights were refused
  5  the application is still running
  6  cancelled by the user or by a signal
Unless it is 0, one line in the system log and on standard error names the step, the path and the cause.
)help";

}  // namespace cli
