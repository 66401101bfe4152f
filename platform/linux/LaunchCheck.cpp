#include "platform/linux/LaunchCheck.h"

#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstring>
#include <filesystem>
#include <string>
#include <string_view>

#include "protocol/LaunchArguments.h"

namespace platform::Linux {
namespace {

namespace fs = std::filesystem;

constexpr const char* step = "check the paths";

// Empty if there is no cause. Each of these looks at one path.
using Cause = std::string;

Cause ofForm(const std::string& path) {
  if (path.empty() || path.front() != '/') return "the path is not absolute";
  if (path.size() >= PATH_MAX) return "the path is too long";
  const fs::path whole(path);
  for (const auto& component : whole)
    if (component == "." || component == "..") return "the path holds \"" + component.string() + "\"";
  if (whole.relative_path().empty()) return "the path is /";
  return {};
}

bool canBeWrittenByOthers(const struct stat& status) {
  if (status.st_uid != 0 && status.st_uid != ::geteuid()) return true;
  return (status.st_mode & (S_IWGRP | S_IWOTH)) != 0;
}

fs::path withoutSlashAtTheEnd(const fs::path& path) { return path.has_filename() ? path : path.parent_path(); }

// Of the item itself, not of the item a link leads to.
std::optional<struct stat> statusOf(const fs::path& path) {
  struct stat status {};
  if (::lstat(withoutSlashAtTheEnd(path).c_str(), &status) != 0) return std::nullopt;
  return status;
}

// A link is not followed: as the new bundle it would be no more than a name for something that may go, and as the installed
// one it would be replaced by name while its target stays.
Cause ofItemItself(const std::string& path) {
  const auto status = statusOf(path);
  return status && S_ISLNK(status->st_mode) ? "it is a symbolic link, and not the bundle that it leads to" : Cause();
}

bool areSame(const std::optional<struct stat>& one, const std::optional<struct stat>& other) {
  return one && other && one->st_dev == other->st_dev && one->st_ino == other->st_ino;
}

// The new bundle gets its own file name beside the installed one. Anything else of that name would be started in its stead.
Cause ofNewName(const std::string& source, const std::string& installed) {
  const fs::path place = withoutSlashAtTheEnd(installed).parent_path() / withoutSlashAtTheEnd(source).filename();
  const auto taken = statusOf(place);
  if (!taken || areSame(taken, statusOf(installed)) || areSame(taken, statusOf(source))) return {};
  return "the new bundle gets the name " + place.string() + ", which is taken";
}

// The tool follows no link that somebody else could have laid.
Cause ofLinks(const fs::path& path) {
  fs::path walked;
  for (const auto& component : path) {
    struct stat folder {};
    struct stat status {};
    const fs::path above = walked;
    walked /= component;
    if (::lstat(walked.c_str(), &status) != 0 || !S_ISLNK(status.st_mode)) continue;
    if (::stat(above.c_str(), &folder) != 0 || !canBeWrittenByOthers(folder)) continue;
    return walked.string() + " is a symbolic link in a folder that others can write";
  }
  return {};
}

// The folder that the item at `path` lies in.
Cause ofFolderAbove(const fs::path& path) {
  const fs::path above = withoutSlashAtTheEnd(path).parent_path();
  struct stat status {};
  if (::stat(above.c_str(), &status) != 0) return above.string() + ": " + std::strerror(errno);
  if (!S_ISDIR(status.st_mode)) return above.string() + " is not a folder";
  struct statvfs fileSystem {};
  const bool isReadOnly = ::statvfs(above.c_str(), &fileSystem) == 0 && (fileSystem.f_flag & ST_RDONLY) != 0;
  return isReadOnly ? above.string() + ": " + std::strerror(EROFS) : Cause();
}

Cause ofPresence(const std::string& path) {
  struct stat status {};
  if (::stat(path.c_str(), &status) != 0) return std::strerror(errno);
  return S_ISDIR(status.st_mode) ? Cause() : "it is not a folder";
}

bool isInside(const fs::path& inner, const fs::path& outer) {
  auto place = inner.begin();
  for (const auto& component : outer) {
    if (component.empty()) continue;
    if (place == inner.end() || *place++ != component) return false;
  }
  return true;
}

Cause ofNesting(const std::string& source, const std::string& destination) {
  std::error_code error;
  const fs::path from = fs::weakly_canonical(source, error);
  const fs::path to = fs::weakly_canonical(destination, error);
  if (error) return {};
  if (isInside(from, to) && isInside(to, from)) return "the new bundle is the installed one";
  if (isInside(from, to)) return "the new bundle lies inside the installed one";
  if (isInside(to, from)) return "the installed bundle lies inside the new one";
  return {};
}

// Pipes, sockets and devices are not what a bundle is made of.
Cause ofContents(const std::string& source) {
  std::error_code error;
  auto entry = fs::recursive_directory_iterator(source, fs::directory_options::skip_permission_denied, error);
  for (; !error && entry != fs::recursive_directory_iterator(); entry.increment(error)) {
    const auto type = entry->symlink_status(error).type();
    if (error || type == fs::file_type::regular || type == fs::file_type::directory || type == fs::file_type::symlink)
      continue;
    return entry->path().string() + " is a pipe, a socket or a device";
  }
  return {};
}

Cause ofBounds(const std::string& installed, const ReadOnlyFolder& readOnlyFolder) {
  std::error_code error;
  const auto folder = readOnlyFolder(fs::weakly_canonical(withoutSlashAtTheEnd(installed).parent_path(), error));
  if (folder.empty()) return {};
  return "the broker's service has " + folder + " read-only; move the bundle to another place, such as /opt or a home";
}

std::optional<Failure> firstCause(const std::string& path, std::initializer_list<Cause (*)(const std::string&)> questions) {
  for (const auto question : questions)
    if (auto cause = question(path); !cause.empty()) return Failure{Ending::failed, step, path, std::move(cause)};
  return std::nullopt;
}

constexpr auto links = [](const std::string& path) { return ofLinks(path); };
constexpr auto folderAbove = [](const std::string& path) { return ofFolderAbove(path); };

std::optional<Failure> reasonOfNewBundle(const std::string& source, const std::string& installed) {
  if (auto failure = firstCause(source, {ofForm, ofItemItself, ofPresence, links, ofContents})) return failure;
  if (auto cause = ofNesting(source, installed); !cause.empty())
    return Failure{Ending::failed, step, installed, std::move(cause)};
  if (auto cause = ofNewName(source, installed); !cause.empty())
    return Failure{Ending::failed, step, source, std::move(cause)};
  return std::nullopt;
}

}  // namespace

std::optional<Failure> reasonToRefuse(const platform::UserDefaults& arguments, const ReadOnlyFolder& readOnlyFolder) {
  const auto installed = arguments.stringForKey(protocol::trashPathArgument);
  const auto source = arguments.stringForKey(protocol::sourcePathArgument);
  if (!installed)
    return Failure{Ending::badArguments, "read the arguments", "",
                   std::string("-") + protocol::trashPathArgument + " is missing"};
  if (auto failure = firstCause(*installed, {ofForm, folderAbove, ofItemItself, links})) return failure;
  if (auto failure = source ? reasonOfNewBundle(*source, *installed) : firstCause(*installed, {ofPresence})) return failure;
  if (auto cause = ofBounds(*installed, readOnlyFolder); !cause.empty())
    return Failure{Ending::failed, step, *installed, std::move(cause)};
  return std::nullopt;
}

std::string installedBundle(const platform::UserDefaults& arguments) {
  return arguments.stringForKey(protocol::trashPathArgument).value_or("");
}

Failure failureWithoutRights(const platform::UserDefaults& arguments) {
  return {Ending::refused, "wait for the rights", installedBundle(arguments), "no rights were handed over"};
}

}  // namespace platform::Linux
