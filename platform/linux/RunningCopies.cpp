#include "platform/linux/RunningCopies.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <filesystem>
#include <fstream>
#include <map>
#include <optional>
#include <set>
#include <string_view>

#include "foundation/text/Path.h"
#include "platform/linux/BundleProgram.h"
#include "platform/linux/Bus.h"
#include "platform/linux/BusCall.h"
#include "platform/linux/LaunchMark.h"
#include "platform/linux/ProcessFacts.h"

namespace platform::Linux {

namespace {

namespace Path = foundation::Path;

constexpr std::uint64_t busPatience = 3'000'000;  // microseconds
constexpr std::string_view stagingFolder = "/.kelto-staging-";

struct File {
  dev_t device;
  ino_t number;
  bool operator==(const File&) const = default;
};

std::optional<File> fileAt(const std::string& path) {
  struct stat status {};
  if (path.empty() || ::stat(path.c_str(), &status) != 0) return std::nullopt;
  return File{status.st_dev, status.st_ino};
}

std::string withoutDeleted(std::string path) {
  constexpr std::string_view deleted = " (deleted)";
  if (path.ends_with(deleted)) path.resize(path.size() - deleted.size());
  return path;
}

// Whether programs belong to one application.
class Programs {
 public:
  Programs(const SoughtApplication& application, const platform::Bundles& bundles)
      : _application(application), _bundles(bundles) {
    const auto installed =
        application.installedBundle.empty() ? nullptr : bundles.bundleWithPath(application.installedBundle);
    if (installed != nullptr) _installed = fileAt(mainExecutableOf(*installed).value_or(""));
  }

  [[nodiscard]] bool isMain(const std::string& program) const {
    const auto folder = bundleOfProgram(program);
    return folder && isMainOf(*folder, std::string_view(program).substr(folder->size() + 1));
  }

  // The folder that the bundle had its place in is known, and its name only if the process was started by its full path.
  [[nodiscard]] bool wasMainBeforeItWasReplaced(const std::string& program, const std::string& startedAs) const {
    const auto staging = program.find(stagingFolder);
    const auto item = staging == std::string::npos ? staging : program.find('/', staging + stagingFolder.size());
    const auto inside = item == std::string::npos ? item : program.find('/', item + 1);
    if (inside == std::string::npos) return false;
    if (bundleOfProgram(startedAs)) return isMain(startedAs);
    std::error_code error;
    std::filesystem::directory_iterator entry(program.substr(0, staging), error);
    for (; !error && entry != std::filesystem::directory_iterator(); entry.increment(error))
      if (isMainOf(entry->path(), std::string_view(program).substr(inside + 1))) return true;
    return false;
  }

  [[nodiscard]] bool isInstalledFile(pid_t process) const {
    return _installed && fileAt("/proc/" + std::to_string(process) + "/exe") == _installed;
  }

 private:
  [[nodiscard]] bool isMainOf(const std::string& folder, std::string_view program) const {
    const auto bundle = _bundles.bundleWithPath(folder);
    return bundle && (bundle->bundleIdentifier() == _application.identifier || folder == _application.installedBundle) &&
           isMainExecutable(*bundle, program);
  }

  const SoughtApplication& _application;
  const platform::Bundles& _bundles;
  std::optional<File> _installed;
};

// The first word that does not look like an option: an interpreter's script.
std::string scriptOf(pid_t process, const std::vector<std::string>& words) {
  for (std::size_t place = 1; place < words.size(); ++place) {
    if (words[place].empty() || words[place][0] == '-') continue;
    if (words[place][0] == '/') return words[place];
    std::error_code error;
    const auto folder = std::filesystem::read_symlink("/proc/" + std::to_string(process) + "/cwd", error);
    return error ? std::string()
                 : (std::filesystem::path(withoutDeleted(folder)) / words[place]).lexically_normal().string();
  }
  return {};
}

// A program that only reads the script, such as an editor, is not its interpreter. The kernel names a process after the
// script that it starts; one that came by way of "env" is called as the script's first line says.
bool interprets(pid_t process, const std::string& program, const std::string& script) {
  constexpr std::size_t longestName = 15;
  if (nameOf(process) == Path::lastComponent(script).substr(0, longestName)) return true;
  std::string line;
  if (std::ifstream file(script); !std::getline(file, line) || !line.starts_with("#!")) return false;
  std::replace(line.begin(), line.end(), '\t', ' ');
  line = " " + line.substr(2) + " ";
  const std::string name = Path::lastComponent(program);
  return line.find(" " + name + " ") != std::string::npos || line.find("/" + name + " ") != std::string::npos;
}

// The value of a mark that names this process, and was not inherited from another.
std::string markIn(std::string_view environment, pid_t process, const char* variable, const char* processVariable) {
  if (valueIn(environment, processVariable) != std::to_string(process)) return {};
  return valueIn(environment, variable).value_or("");
}

// By this program, or by a desktop, which names the file that describes the application to it.
bool wasLaunchedAs(pid_t process, const std::string& identifier) {
  const std::string environment = environmentOf(process);
  return markIn(environment, process, launchedIdentifierVariable, launchedProcessVariable) == identifier ||
         markIn(environment, process, "GIO_LAUNCHED_DESKTOP_FILE", "GIO_LAUNCHED_DESKTOP_FILE_PID")
             .ends_with("/" + identifier + ".desktop");
}

// The parts of a unit's name between its hyphens. A hyphen of the identifier's own is escaped.
std::vector<std::string> partsOf(std::string_view unit) {
  std::vector<std::string> parts{""};
  for (const char each : unit) each == '-' ? static_cast<void>(parts.emplace_back()) : parts.back().push_back(each);
  return parts;
}

std::string escaped(const std::string& identifier) {
  std::string text;
  for (const char each : identifier) each == '-' ? text += "\\x2d" : text += each;
  return text;
}

// Desktops name units "app-IDENTIFIER-ANY.scope" and "app-IDENTIFIER@ANY.service", with their own name before the
// identifier or not. Returns ANY when the unit is of that kind.
std::optional<std::string> instanceOfUnit(std::string_view unit, const std::string& identifier) {
  const bool isScope = unit.ends_with(".scope");
  if (!unit.starts_with("app-") || (!isScope && !unit.ends_with(".service"))) return std::nullopt;
  const auto stem = unit.substr(0, unit.rfind('.'));
  const auto at = isScope ? std::string_view::npos : stem.find('@');
  auto parts = partsOf(stem.substr(0, at));
  std::string instance = at == std::string_view::npos ? "" : std::string(stem.substr(at + 1));
  if (isScope) {
    instance = parts.back();
    parts.pop_back();
  }
  if (parts.size() < 2 || parts.size() > 3 || parts.back() != escaped(identifier)) return std::nullopt;
  return instance;
}

// Everything that an application starts is in its unit: only the first process is the application. Some desktops tell its
// number, otherwise it is the oldest.
class Units {
 public:
  explicit Units(const std::string& identifier) : _identifier(identifier) {}

  void add(pid_t process) {
    const std::string unit = controlGroupOf(process);
    const auto instance = unit.empty() ? std::nullopt : instanceOfUnit(unit, _identifier);
    if (!instance) return;
    const bool isNumber = !instance->empty() && instance->find_first_not_of("0123456789") == std::string::npos;
    if (isNumber && *instance != std::to_string(process)) return;
    const auto [place, isNew] = _first.emplace(unit, process);
    if (!isNew && startOf(process) < startOf(place->second)) place->second = process;
  }

  [[nodiscard]] std::set<pid_t> firstProcesses() const {
    std::set<pid_t> processes;
    for (const auto& [unit, process] : _first) processes.insert(process);
    return processes;
  }

 private:
  const std::string& _identifier;
  std::map<std::string, pid_t> _first;
};

std::optional<pid_t> ownerOnBus(const std::string& identifier) {
  if (sd_bus_service_name_is_valid(identifier.c_str()) <= 0) return std::nullopt;
  const auto bus = Bus::openUser();
  if (!bus) return std::nullopt;
  sd_bus_set_method_call_timeout(bus->get(), busPatience);
  const auto owner = ownerOfName(bus->get(), identifier);
  return owner ? processOfConnection(bus->get(), *owner) : std::nullopt;
}

bool isCopy(pid_t process, const Programs& programs, const std::string& identifier) {
  const auto words = argumentsOf(process);
  if (words.empty()) return false;  // one of the kernel's, or one that has ended
  const std::string program = withoutDeleted(programOf(process));
  if (programs.isInstalledFile(process) || programs.isMain(program.empty() ? words[0] : program)) return true;
  if (programs.wasMainBeforeItWasReplaced(program, words[0])) return true;
  const std::string script = scriptOf(process, words);
  if ((programs.isMain(script) || programs.wasMainBeforeItWasReplaced(script, words[0])) &&
      interprets(process, words[0], script))
    return true;
  return wasLaunchedAs(process, identifier);
}

}  // namespace

std::vector<RunningProcess> copiesOf(const SoughtApplication& application, const platform::Bundles& bundles) {
  if (application.identifier.empty()) return {};
  const Programs programs(application, bundles);
  Units units(application.identifier);
  std::map<pid_t, RunningProcess> copies;
  // A process is held before it is looked at: what is seen is this process's only if it still runs afterwards.
  const auto take = [&](pid_t number, const auto& isTaken) {
    if (number == ::getpid() || copies.contains(number)) return;
    RunningProcess process = processWithNumber(number);
    if (process.handle && isTaken(number) && isRunning(process)) copies.emplace(number, std::move(process));
  };
  for (const pid_t number : allProcesses()) {
    units.add(number);
    take(number, [&](pid_t process) { return isCopy(process, programs, application.identifier); });
  }
  for (const pid_t number : units.firstProcesses())
    take(number,
         [&](pid_t process) { return instanceOfUnit(controlGroupOf(process), application.identifier).has_value(); });
  if (const auto owner = ownerOnBus(application.identifier))
    take(*owner, [&](pid_t process) { return ownerOnBus(application.identifier) == process; });
  std::vector<RunningProcess> found;
  for (auto& [number, process] : copies) found.push_back(std::move(process));
  return found;
}

}  // namespace platform::Linux
