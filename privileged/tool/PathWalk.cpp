#include "privileged/tool/PathWalk.h"

#include <fcntl.h>
#include <sys/statvfs.h>

#include <array>
#include <cerrno>
#include <climits>
#include <deque>
#include <vector>

#include "privileged/tool/Failure.h"
#include "privileged/tool/Folder.h"

namespace AssistantTool {
namespace {

constexpr int maximumLinks = 40;

std::deque<std::string> componentsOf(std::string_view path) {
  std::deque<std::string> components;
  while (!path.empty()) {
    const auto slash = path.find('/');
    const auto component = path.substr(0, slash);
    if (!component.empty()) components.emplace_back(component);
    path.remove_prefix(slash == std::string_view::npos ? path.size() : slash + 1);
  }
  return components;
}

std::deque<std::string> checkedComponentsOf(std::string_view path) {
  if (path.empty() || path.front() != '/') throw Failure("a path is not absolute");
  if (path.size() >= PATH_MAX || path.find('\0') != std::string_view::npos) throw Failure("a path is not valid");
  auto components = componentsOf(path);
  for (const auto& component : components) {
    if (component == "." || component == "..") throw Failure("a path holds \"" + component + "\"");
  }
  return components;
}

class Walker {
 public:
  explicit Walker(uid_t user) : _user(user) { toRoot(); }

  void follow(std::deque<std::string> components) {
    while (!components.empty()) {
      const std::string component = std::move(components.front());
      components.pop_front();
      if (component == ".") continue;
      if (component == "..") {
        up();
      } else if (const auto target = enter(component)) {
        auto further = componentsOf(*target);
        components.insert(components.begin(), further.begin(), further.end());
      }
    }
  }
  // The last component stays what it is, but a link that someone else could have laid there is refused as well.
  Location finish(std::string name) {
    struct stat status {};
    const bool exists = ::fstatat(_folder.get(), name.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0;
    if (exists && S_ISLNK(status.st_mode)) judgeLink(name);
    if (_isLedByUser && statusOf(_folder.get()).st_uid != _user)
      throw Failure("a symbolic link leads to a folder of someone else: " + _path);
    std::string path = _path + "/" + name;
    return {.folder = std::move(_folder), .name = std::move(name), .path = std::move(path)};
  }

 private:
  void toRoot() {
    _folder = posix::Descriptor(::open("/", O_PATH | O_DIRECTORY | O_CLOEXEC));
    if (!_folder) failWithSystemError("cannot open /");
    _path.clear();
  }
  void up() {
    _folder = posix::Descriptor(::openat(_folder.get(), "..", O_PATH | O_DIRECTORY | O_CLOEXEC));
    if (!_folder) failWithSystemError("cannot open the folder above " + _path);
    _path.erase(_path.empty() ? 0 : _path.rfind('/'));
  }
  void judgeLink(const std::string& name) {
    if (++_links > maximumLinks) throw Failure("too many symbolic links in a path");
    if (!canBeWrittenByOthers(statusOf(_folder.get()), _user)) return;
    throw Failure("a symbolic link in a folder that others can write: " + _path + "/" + name);
  }
  // Goes into the folder `name`, or returns the target when it is a link.
  std::optional<std::string> enter(const std::string& name) {
    posix::Descriptor item(::openat(_folder.get(), name.c_str(), O_PATH | O_NOFOLLOW | O_CLOEXEC));
    if (!item) failWithSystemError("cannot open " + _path + "/" + name);
    const auto status = statusOf(item.get());
    if (S_ISLNK(status.st_mode)) {
      judgeLink(name);
      if (::geteuid() == 0 && !isRoots(_folder.get())) _isLedByUser = true;
      return targetOf(item.get());
    }
    if (!S_ISDIR(status.st_mode)) throw Failure("not a folder: " + _path + "/" + name);
    _folder = std::move(item);
    _path += "/" + name;
    return std::nullopt;
  }
  std::string targetOf(int link) {
    std::array<char, PATH_MAX> target{};
    const auto length = ::readlinkat(link, "", target.data(), target.size());
    if (length <= 0 || static_cast<std::size_t>(length) == target.size()) throw Failure("cannot read a symbolic link");
    if (target.front() == '/') toRoot();
    return {target.data(), static_cast<std::size_t>(length)};
  }

  uid_t _user;
  posix::Descriptor _folder;
  std::string _path;  // of folder_, empty for "/"
  int _links = 0;
  bool _isLedByUser = false;  // by a link in a folder of the invoking user
};

}  // namespace

std::optional<struct stat> Location::status() const {
  struct stat status {};
  if (::fstatat(folder.get(), name.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0) return status;
  if (errno != ENOENT) failWithSystemError("cannot look at " + path);
  return std::nullopt;
}

posix::Descriptor Location::openFolder() const {
  posix::Descriptor opened(::openat(folder.get(), ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!opened) failWithSystemError("cannot open " + folderPath());
  return opened;
}

std::string Location::folderPath() const {
  const auto slash = path.rfind('/');
  return slash == 0 ? "/" : path.substr(0, slash);
}

bool isRoots(int folder) {
  struct statvfs fileSystem {};
  if (::fstatvfs(folder, &fileSystem) != 0) failWithSystemError("cannot look at a file system");
  return statusOf(folder).st_uid == 0 && (fileSystem.f_flag & ST_NOSUID) == 0;
}

bool canBeWrittenByOthers(const struct stat& status, uid_t user) {
  if (status.st_uid != 0 && status.st_uid != user) return true;
  return (status.st_mode & (S_IWGRP | S_IWOTH)) != 0;
}

Location PathWalk::locate(std::string_view path) const {
  auto components = checkedComponentsOf(path);
  if (components.empty()) throw Failure("the path is /");
  std::string name = std::move(components.back());
  components.pop_back();
  Walker walker(_user);
  walker.follow(std::move(components));
  return walker.finish(std::move(name));
}

Location PathWalk::locateInside(std::string_view folderPath, std::string_view name) const {
  Walker walker(_user);
  walker.follow(checkedComponentsOf(folderPath));
  return walker.finish(std::string(name));
}

}  // namespace AssistantTool
