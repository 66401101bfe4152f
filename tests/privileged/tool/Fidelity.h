#pragma once
// For tests: what is kept, row by row, when a tree is replaced, copied, moved, or trashed and restored.
#include <linux/posix_acl.h>
#include <linux/posix_acl_xattr.h>

#include <cerrno>
#include <functional>

#include "tests/privileged/tool/Namespace.h"
#include "tests/privileged/tool/TreeState.h"

namespace ToolTests {

struct Way {
  std::string command;  // "replace", "copy", "move", "trash"
  bool across = false;
  [[nodiscard]] std::string name() const { return command + (across ? ", across file systems" : ""); }
};
inline const std::vector<Way> Ways{{"replace", false}, {"replace", true}, {"copy", false},  {"copy", true},
                                   {"move", false},    {"move", true},    {"trash", false}, {"trash", true}};

// As root in a mount name space; the trees go from one place to another, on the same file system or not.
class Fidelity : public NamespaceTest {
 protected:
  static constexpr Ids SourceOwner{.user = 4001, .group = 4002};
  static constexpr Ids OldOwner{.user = 5001, .group = 5002};

  void SetUp() override {
    NamespaceTest::SetUp();
    if (IsSkipped()) return;
    other = volume("other", "mode=755,size=12g,nr_inodes=0");
    home_ = volume("store", "mode=755,size=12g,nr_inodes=0");
    bindAccount();
  }
  // Where the tree is made that is then taken.
  [[nodiscard]] fs::path source(const Way& way) const { return (way.across ? other : home_) / "from/App.app"; }
  // Does it, and answers where the tree is then. Whose it has to be then: see docs/fidelity.md.
  fs::path take(const Way& way) {
    const auto from = source(way);
    const auto to = home_ / "to/App.app";
    fs::create_directories(to.parent_path());
    if (way.command == "replace") {
      write(to / "old", "old");
      giveTree(to, OldOwner);
      EXPECT_EQ(replace(to, from).text, "replaced " + to.string() + "\n");
    } else if (way.command == "copy") {
      EXPECT_EQ(copy(from, to).text, "copied to " + to.string() + "\n");
    } else if (way.command == "move") {
      EXPECT_EQ(move(from, to).text, "moved to " + to.string() + "\n");
    } else {
      return trashAndRestore(way, from);
    }
    EXPECT_EQ(read(result), "tool result ok");
    EXPECT_EQ(isThere(from), way.command == "copy");
    return to;
  }
  [[nodiscard]] Ids ownerAfter(const Way& way) const {
    if (way.command == "replace") return OldOwner;
    return way.command == "trash" ? Ids{.user = User, .group = Group} : SourceOwner;
  }

  fs::path other;

 private:
  // The user's home is where the trees go to.
  void bindAccount() {
    setHome(home_ / "user");
    fs::create_directories(home_ / "user/.local/share");
    giveTree(home_ / "user", {.user = User, .group = Group});
    // No Trash on the other volume: what comes from there is copied.
    write(other / (".Trash-" + std::to_string(User)), "");
  }
  // As a file manager does, with the rights of the user: the folder is made theirs for that.
  fs::path trashAndRestore(const Way& way, const fs::path& from) {
    const auto trashFolder = home_ / "user/.local/share/Trash";
    EXPECT_THAT(trash(from).text, ::testing::StartsWith("moved to the Trash as "));
    EXPECT_EQ(read(result), "tool result ok");
    EXPECT_FALSE(isThere(from));
    EXPECT_THAT(read(trashFolder / "info/App.app.trashinfo"), ::testing::HasSubstr("\nPath=" + from.string() + "\n"));
    if (way.across) return trashFolder / "files/App.app";  // a file manager would copy, by its own rules
    EXPECT_EQ(::chown(from.parent_path().c_str(), User, Group), 0);
    const pid_t child = ::fork();
    if (child == 0) {
      if (::setgid(Group) != 0 || ::setuid(User) != 0) ::_exit(2);
      ::_exit(::rename((trashFolder / "files/App.app").c_str(), from.c_str()) == 0 ? 0 : 1);
    }
    int status = -1;
    ::waitpid(child, &status, 0);
    EXPECT_EQ(status, 0) << "the user cannot restore it";
    return from;
  }
  fs::path home_;
};

// A list of access rights in the form of its extended attribute: the three of the mode, one user more and the mask.
inline std::string accessListFor(uid_t user) {
  const auto entry = [](std::uint16_t tag, std::uint16_t rights, std::uint32_t id) {
    posix_acl_xattr_entry one{};
    one.e_tag = tag;
    one.e_perm = rights;
    one.e_id = id;
    return std::string(reinterpret_cast<const char*>(&one), sizeof one);
  };
  const std::uint32_t version = POSIX_ACL_XATTR_VERSION;
  constexpr auto NoId = static_cast<std::uint32_t>(ACL_UNDEFINED_ID);
  return std::string(reinterpret_cast<const char*>(&version), sizeof version) + entry(ACL_USER_OBJ, 6, NoId) +
         entry(ACL_USER, 4, user) + entry(ACL_GROUP_OBJ, 4, NoId) + entry(ACL_MASK, 4, NoId) + entry(ACL_OTHER, 0, NoId);
}

inline std::string attributeOf(const fs::path& path, const char* name) {
  std::array<char, 1024> value{};
  const auto size = ::lgetxattr(path.c_str(), name, value.data(), value.size());
  return size < 0 ? std::string("none") : std::string(value.data(), static_cast<std::size_t>(size));
}

inline void setAttribute(const fs::path& path, const char* name, const std::string& value) {
  EXPECT_EQ(::lsetxattr(path.c_str(), name, value.data(), value.size(), 0), 0) << path << " " << std::strerror(errno);
}

}  // namespace ToolTests
