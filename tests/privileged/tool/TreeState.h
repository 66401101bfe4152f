#pragma once
// For tests: everything that can be told of a tree, and trees that have something to tell.
#include <fcntl.h>
#include <sys/xattr.h>

#include <array>
#include <optional>

#include "tests/privileged/tool/ToolRun.h"

namespace tests::tool {

using Tree = std::map<std::string, std::string>;

struct Ids {
  uid_t user = 0;
  gid_t group = 0;
};

inline std::string attributesOf(const fs::path& path) {
  std::array<char, 4096> names{};
  const auto length = ::llistxattr(path.c_str(), names.data(), names.size());
  std::map<std::string, std::string> found;
  for (ssize_t at = 0; at < length;) {
    const std::string name(names.data() + at);
    std::array<char, 4096> value{};
    const auto size = ::lgetxattr(path.c_str(), name.c_str(), value.data(), value.size());
    if (size >= 0) found[name] = std::string(value.data(), static_cast<std::size_t>(size));
    at += static_cast<ssize_t>(name.size()) + 1;
  }
  std::string text;
  for (const auto& [name, value] : found) text += " " + name + "=" + value;
  return text;
}

// Kind, mode, owner, times, extended attributes and contents. With `as` it is described as if it belonged to them.
inline std::string describe(const fs::path& path, std::optional<Ids> as) {
  const auto status = statusOf(path);
  std::ostringstream text;
  text << std::oct << status.st_mode << std::dec << ' ' << (as ? as->user : status.st_uid) << ':'
       << (as ? as->group : status.st_gid) << ' ' << status.st_mtim.tv_sec << '.' << status.st_mtim.tv_nsec;

  text << attributesOf(path);
  if (S_ISLNK(status.st_mode)) text << " -> " << fs::read_symlink(path).string();
  if (S_ISREG(status.st_mode)) text << ": " << read(path);
  return text.str();
}

// The item itself and all below it; empty when nothing is there.
inline Tree treeOf(const fs::path& path, std::optional<Ids> as = std::nullopt) {
  Tree tree;
  if (!isThere(path)) return tree;
  tree["."] = describe(path, as);
  if (fs::symlink_status(path).type() != fs::file_type::directory) return tree;
  for (const auto& entry : fs::recursive_directory_iterator(path))
    tree[entry.path().lexically_relative(path)] = describe(entry.path(), as);
  return tree;
}

inline void setTimes(const fs::path& path, long seconds, long nanoseconds) {
  const std::array<timespec, 2> times{
      {{.tv_sec = seconds, .tv_nsec = nanoseconds}, {.tv_sec = seconds, .tv_nsec = nanoseconds}}};
  EXPECT_EQ(::utimensat(AT_FDCWD, path.c_str(), times.data(), AT_SYMLINK_NOFOLLOW), 0) << path;
}

// A bundle with modes, times and an attribute that are worth keeping, and `further` files.
inline void makeRichBundle(const fs::path& app, const std::string& version, int further = 0) {
  write(app / "Contents/Info.plist", "version " + version);
  write(app / "Contents/Linux/Controller", "program " + version);
  fs::permissions(app / "Contents/Linux/Controller", fs::perms(0755));
  fs::permissions(app / "Contents/Info.plist", fs::perms(0640));
  EXPECT_EQ(::setxattr((app / "Contents/Info.plist").c_str(), "user.version", version.data(), version.size(), 0), 0);
  fs::create_symlink("Info.plist", app / "Contents/Link");
  fs::create_directory(app / "Contents/Empty");
  for (int i = 0; i < further; ++i)
    write(app / "Contents" / ("file " + std::to_string(i)), version + " of " + std::to_string(i));
  setTimes(app / "Contents/Info.plist", 1000, 123456789);
  setTimes(app / "Contents/Link", 2000, 1);
  setTimes(app / "Contents", 3000, 999999999);
}

inline void giveTree(const fs::path& path, Ids to) {
  EXPECT_EQ(::lchown(path.c_str(), to.user, to.group), 0) << path;
  if (fs::symlink_status(path).type() != fs::file_type::directory) return;
  for (const auto& entry : fs::recursive_directory_iterator(path))
    EXPECT_EQ(::lchown(entry.path().c_str(), to.user, to.group), 0) << entry.path();
}

}  // namespace tests::tool
