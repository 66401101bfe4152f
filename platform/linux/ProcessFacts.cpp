#include "platform/linux/ProcessFacts.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <climits>
#include <cstdint>
#include <memory>
#include <utility>

#include "posix/Descriptor.h"

namespace platform::Linux {

namespace {

struct CloseFolder {
  void operator()(DIR* folder) const { ::closedir(folder); }
};

std::string fileOf(pid_t process, const char* name) { return "/proc/" + std::to_string(process) + "/" + name; }

// Without a stream: a scan reads several files of each process. Reading fails when the process ends meanwhile.
std::string contentsOf(const std::string& path) {
  std::string contents;
  const posix::Descriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
  char buffer[8192];
  for (ssize_t count = 0; file && (count = ::read(file.get(), buffer, sizeof buffer)) > 0;)
    contents.append(buffer, static_cast<std::size_t>(count));
  return contents;
}

std::string targetOf(const std::string& link) {
  char target[PATH_MAX + 16];
  const ssize_t length = ::readlink(link.c_str(), target, sizeof target);
  if (length <= 0 || length == sizeof target) return {};
  return {target, static_cast<std::size_t>(length)};
}

// The numbers after the program's name, which may itself hold blanks and brackets: the first is the third of the manual.
std::vector<std::string> statusWords(pid_t process) {
  const std::string text = contentsOf(fileOf(process, "stat"));
  const auto end = text.rfind(')');
  std::vector<std::string> words;
  if (end == std::string::npos) return words;
  for (auto start = end + 2; start < text.size();) {
    const auto blank = std::min(text.find(' ', start), text.size());
    words.push_back(text.substr(start, blank - start));
    start = blank + 1;
  }
  return words;
}

template <class Number>
Number numberIn(const std::vector<std::string>& words, std::size_t place) {
  Number number{};
  if (place < words.size()) std::from_chars(words[place].data(), words[place].data() + words[place].size(), number);
  return number;
}

std::vector<std::string> splitAtZero(const std::string& text) {
  std::vector<std::string> parts;
  for (std::size_t start = 0; start < text.size();) {
    const auto end = std::min(text.find('\0', start), text.size());
    parts.push_back(text.substr(start, end - start));
    start = end + 1;
  }
  return parts;
}

}  // namespace

std::vector<pid_t> allProcesses() {
  std::vector<pid_t> processes;
  const std::unique_ptr<DIR, CloseFolder> folder(::opendir("/proc"));
  if (!folder) return processes;
  while (const dirent* entry = ::readdir(folder.get())) {
    const std::string_view name = entry->d_name;
    pid_t number = 0;
    const auto* const end = name.data() + name.size();
    if (std::from_chars(name.data(), end, number).ptr == end) processes.push_back(number);
  }
  return processes;
}

std::string programOf(pid_t process) { return targetOf(fileOf(process, "exe")); }

std::string nameOf(pid_t process) {
  std::string name = contentsOf(fileOf(process, "comm"));
  if (name.ends_with('\n')) name.pop_back();
  return name;
}

std::vector<std::string> argumentsOf(pid_t process) { return splitAtZero(contentsOf(fileOf(process, "cmdline"))); }

std::string environmentOf(pid_t process) { return contentsOf(fileOf(process, "environ")); }

std::optional<std::string> valueIn(std::string_view environment, std::string_view name) {
  while (!environment.empty()) {
    const auto variable = environment.substr(0, environment.find('\0'));
    if (variable.size() > name.size() && variable.starts_with(name) && variable[name.size()] == '=')
      return std::string(variable.substr(name.size() + 1));
    environment.remove_prefix(std::min(variable.size() + 1, environment.size()));
  }
  return std::nullopt;
}

std::optional<std::string> environmentValueOf(pid_t process, std::string_view name) {
  return valueIn(environmentOf(process), name);
}

std::string controlGroupOf(pid_t process) {
  const std::string groups = contentsOf(fileOf(process, "cgroup"));
  const auto line = groups.rfind("0::", 0) == 0 ? 0 : groups.find("\n0::");
  if (line == std::string::npos) return {};
  const std::string path = groups.substr(line, groups.find('\n', line + 1) - line);
  return path.substr(path.rfind('/') + 1);
}

pid_t parentOf(pid_t process) { return numberIn<pid_t>(statusWords(process), 1); }

std::optional<uid_t> ownerOf(pid_t process) {
  struct stat status {};
  if (::stat(("/proc/" + std::to_string(process)).c_str(), &status) != 0) return std::nullopt;
  return status.st_uid;
}

unsigned long long startOf(pid_t process) { return numberIn<unsigned long long>(statusWords(process), 19); }

bool handlesSignal(pid_t process, int signal) {
  constexpr std::string_view start = "\nSigCgt:\t";
  const std::string status = contentsOf(fileOf(process, "status"));
  const auto place = status.find(start);
  if (place == std::string::npos) return false;
  std::uint64_t caught = 0;
  std::from_chars(status.data() + place + start.size(), status.data() + status.size(), caught, 16);
  return (caught >> (signal - 1) & 1U) != 0;
}

std::optional<std::vector<std::string>> descriptorsOf(pid_t process) {
  const std::string path = fileOf(process, "fd");
  const std::unique_ptr<DIR, CloseFolder> folder(::opendir(path.c_str()));
  if (!folder) return std::nullopt;
  std::vector<std::string> targets;
  while (const dirent* entry = ::readdir(folder.get()))
    if (auto target = targetOf(path + "/" + entry->d_name); !target.empty()) targets.push_back(std::move(target));
  return targets;
}

}  // namespace platform::Linux
