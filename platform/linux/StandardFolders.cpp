#include "platform/linux/StandardFolders.h"

#include <cstdlib>
#include <fstream>
#include <optional>

#include "foundation/text/Path.h"
#include "platform/linux/Accounts.h"

namespace platform::Linux {

namespace {

// The folder that the variable names; a relative one counts as not set.
std::string baseFolder(const char* variable, const std::string& home, const std::string& fallback) {
  const char* value = std::getenv(variable);
  return value != nullptr && *value == '/' ? value : foundation::Path::appending(home, fallback);
}

// The value of a line XDG_DESKTOP_DIR="$HOME/Desktop" or ="/absolute", with its backslash escapes; nothing otherwise.
std::optional<std::string> desktopOfLine(std::string_view line, const std::string& home) {
  constexpr std::string_view start = "XDG_DESKTOP_DIR=\"";
  if (!line.starts_with(start)) return std::nullopt;
  line.remove_prefix(start.size());
  std::string folder;
  if (line.starts_with("$HOME")) {
    folder = home;
    line.remove_prefix(5);
  }
  if (!line.starts_with('/')) return std::nullopt;
  for (std::size_t i = 0; i < line.size() && line[i] != '"'; ++i) {
    if (line[i] == '\\' && i + 1 < line.size()) ++i;
    folder += line[i];
  }
  return folder;
}

std::string desktopFolder(const std::string& home) {
  std::string folder = foundation::Path::appending(home, "Desktop");
  std::ifstream file(foundation::Path::appending(baseFolder("XDG_CONFIG_HOME", home, ".config"), "user-dirs.dirs"));
  for (std::string line; std::getline(file, line);) folder = desktopOfLine(line, home).value_or(folder);
  return folder;
}

std::string userFolder(SearchPathDirectory kind, const std::string& home) {
  switch (kind) {
    case SearchPathDirectory::application:
      return foundation::Path::appending(home, "Applications");
    case SearchPathDirectory::library:
      return foundation::Path::appending(baseFolder("XDG_STATE_HOME", home, ".local/state"), "Library");
    case SearchPathDirectory::desktop:
      return desktopFolder(home);
    case SearchPathDirectory::caches:
      return baseFolder("XDG_CACHE_HOME", home, ".cache");
    case SearchPathDirectory::applicationSupport:
      return baseFolder("XDG_DATA_HOME", home, ".local/share");
  }
  return {};
}

std::string withTilde(const std::string& folder, const std::string& home) {
  if (folder == home) return "~";
  return folder.starts_with(home + "/") ? "~" + folder.substr(home.size()) : folder;
}

}  // namespace

std::vector<std::string> standardFolders(SearchPathDirectory kind, SearchPathDomainMask domain, bool expandTilde) {
  std::vector<std::string> folders;
  const std::string home = homeFolder();
  if ((domain & NSUserDomainMask) != 0 && !home.empty()) {
    const std::string folder = userFolder(kind, home);
    if (!folder.empty()) folders.push_back(expandTilde ? folder : withTilde(folder, home));
  }
  if ((domain & NSLocalDomainMask) != 0 && kind == SearchPathDirectory::application) folders.emplace_back("/Applications");
  return folders;
}

}  // namespace platform::Linux
