#pragma once
// For tests: what is kept, row by row, when a tree is replaced, copied, moved, or trashed and restored.
#include <linux/posix_acl.h>
#include <linux/posix_acl_xattr.h>

#include <cerrno>
#include <functional>

#include "protocol/ToolProtocol.h"
#include "tests/privileged/tool/Namespace.h"
#include "tests/privileged/tool/TreeState.h"

namespace tests::tool {

struct Way {
  std::string command;  // "replace", "copy", "move", "trash"
  bool across = false;
  std::string restoredBy{};  // the program that takes it out of the Trash; empty when it is looked at there
  [[nodiscard]] std::string name() const {
    return command + (across ? " across" : "") + (restoredBy.empty() ? "" : " restored by " + restoredBy);
  }
  // By a program that copies in its own way.
  [[nodiscard]] bool isCopiedByRestorer() const { return across && restoredBy == "trash-restore"; }
  // GNU's mv and trash-restore copy by whole paths, which a system call takes up to 4096 bytes only.
  [[nodiscard]] bool isTooDeepForRestorer() const { return isCopiedByRestorer() || (across && restoredBy == "mv"); }
};
inline const std::vector<Way> allWays{{"replace", false},
                                      {"replace", true},
                                      {"copy", false},
                                      {"copy", true},
                                      {"move", false},
                                      {"move", true},
                                      {"trash", false, "trash-restore"},
                                      {"trash", true},
                                      {"trash", true, "trash-restore"},
                                      {"trash", true, "mv"},
                                      {"trash", true, protocol::moveFileCommand}};

// The letters and digits of `text`: what a test's name may have.
inline std::string lettersOf(const std::string& text) {
  std::string letters;
  for (const char character : text) {
    if (std::isalnum(static_cast<unsigned char>(character)) != 0) letters.push_back(character);
  }
  return letters;
}
inline std::string wayOf(const ::testing::TestParamInfo<Way>& info) { return lettersOf(info.param.name()); }

// As root in a mount name space; the trees go from one place to another, on the same file system or not.
class Fidelity : public NamespaceTest {
 protected:
  static constexpr Ids sourceOwner{.user = 4001, .group = 4002};
  static constexpr Ids oldOwner{.user = invokingUser, .group = 5002};

  void SetUp() override {
    NamespaceTest::SetUp();
    if (IsSkipped()) return;
    other = volume("other", "mode=755,size=12g,nr_inodes=0");
    _home = volume("store", "mode=755,size=12g,nr_inodes=0");
    bindAccount();
  }
  // Where the tree is made that is then taken.
  [[nodiscard]] fs::path source(const Way& way) const { return (way.across ? other : _home) / "from/App.app"; }
  // Why it cannot be done here; empty when it can.
  [[nodiscard]] static std::string missingFor(const Way& way) {
    const bool isMissing = way.restoredBy == "trash-restore" && !isThere("/usr/bin/trash-restore");
    return isMissing ? "trash-cli is not installed" : "";
  }
  // Does it, and answers where the tree is then. Whose it has to be then: see docs/fidelity.md.
  fs::path take(const Way& way) {
    const auto from = source(way);
    const auto to = _home / "to/App.app";
    fs::create_directories(to.parent_path());
    if (way.command == "replace") {
      write(to / "old", "old");
      giveTree(to, oldOwner);
      EXPECT_EQ(replace(to, from).text, std::string(protocol::doneMark) + "replaced " + to.string() + "\n");
    } else if (way.command == "copy") {
      EXPECT_EQ(copy(from, to).text, std::string(protocol::doneMark) + "copied to " + to.string() + "\n");
    } else if (way.command == "move") {
      EXPECT_EQ(move(from, to).text, std::string(protocol::doneMark) + "moved to " + to.string() + "\n");
    } else {
      return trashAndRestore(way, from);
    }
    EXPECT_EQ(read(result), protocol::successVerdict);
    EXPECT_EQ(isThere(from), way.command == "copy");
    return to;
  }
  [[nodiscard]] Ids ownerAfter(const Way& way) const {
    if (way.command == "replace") return oldOwner;
    return way.command == "trash" ? Ids{.user = invokingUser, .group = invokingGroup} : sourceOwner;
  }

  [[nodiscard]] fs::path trashed(const std::string& name = "App.app") const { return trashFolder() / "files" / name; }
  [[nodiscard]] fs::path infoOf(const std::string& name = "App.app") const {
    return trashFolder() / "info" / (name + ".trashinfo");
  }
  // Into the Trash of the user's home, by way of the tool.
  void trashWhole(const fs::path& from) {
    EXPECT_THAT(trash(from).text, ::testing::StartsWith(std::string(protocol::doneMark) + "moved to the Trash as "));
    EXPECT_EQ(read(result), protocol::successVerdict);
    EXPECT_FALSE(isThere(from));
    fs::resize_file(result, 0);
    // So that the user may put it back there.
    EXPECT_EQ(::chown(from.parent_path().c_str(), invokingUser, invokingGroup), 0);
  }
  // Has the user run a program, which reads `input`. Its output has its errors, too.
  Answer runAsUser(const std::vector<std::string>& program, const std::string& input = {}) const {
    std::vector<std::string> all{"/bin/sh", "-c", "exec \"$@\" 2>&1", "sh", "/usr/bin/setpriv", "--clear-groups"};
    all.push_back("--reuid=" + std::to_string(invokingUser));
    all.push_back("--regid=" + std::to_string(invokingGroup));
    all.insert(all.end(), program.begin(), program.end());
    return runWithBytes(all, input, {"HOME=" + (_home / "user").string()}, true);
  }
  // The user asks for the first item of the Trash whose old path begins with that.
  Answer restoreByTrashProgram(const fs::path& from) const { return runAsUser({"/usr/bin/trash-restore", from}, "0\n"); }
  Answer restoreByMv(const fs::path& from) const {
    return runAsUser({"/usr/bin/mv", "-T", "--", trashed(from.filename()), from});
  }

  fs::path other;

 private:
  [[nodiscard]] fs::path trashFolder() const { return _home / "user/.local/share/Trash"; }
  // The user's home is where the trees go to.
  void bindAccount() {
    setHome(_home / "user");
    fs::create_directories(_home / "user/.local/share");
    giveTree(_home / "user", {.user = invokingUser, .group = invokingGroup});
    // No Trash on the other volume: what comes from there is copied.
    write(other / (".Trash-" + std::to_string(invokingUser)), "");
  }
  fs::path trashAndRestore(const Way& way, const fs::path& from) {
    trashWhole(from);
    EXPECT_THAT(read(infoOf()), ::testing::HasSubstr("\nPath=" + from.string() + "\n"));
    if (way.restoredBy.empty()) return trashed();
    if (way.restoredBy == protocol::moveFileCommand) {
      EXPECT_EQ(move(trashed(), from).text, std::string(protocol::doneMark) + "moved to " + from.string() + "\n");
      EXPECT_EQ(read(result), protocol::successVerdict);
    } else {
      const auto answer = way.restoredBy == "mv" ? restoreByMv(from) : restoreByTrashProgram(from);
      EXPECT_EQ(answer.status, 0) << answer.text;
      EXPECT_EQ(isThere(infoOf()), way.restoredBy == "mv");
    }
    EXPECT_FALSE(isThere(trashed()));
    return from;
  }
  fs::path _home;
};

// A list of access rights in the form of its extended attribute: the three of the mode, one user more and the mask.
inline std::string accessListFor(uid_t user, std::uint16_t userRights = ACL_READ) {
  const auto entry = [](std::uint16_t tag, std::uint16_t rights, std::uint32_t id) {
    posix_acl_xattr_entry one{};
    one.e_tag = tag;
    one.e_perm = rights;
    one.e_id = id;
    return std::string(reinterpret_cast<const char*>(&one), sizeof one);
  };
  const std::uint32_t version = POSIX_ACL_XATTR_VERSION;
  constexpr auto noID = static_cast<std::uint32_t>(ACL_UNDEFINED_ID);
  return std::string(reinterpret_cast<const char*>(&version), sizeof version) + entry(ACL_USER_OBJ, 6, noID) +
         entry(ACL_USER, userRights, user) + entry(ACL_GROUP_OBJ, 4, noID) + entry(ACL_MASK, userRights, noID) +
         entry(ACL_OTHER, 0, noID);
}

inline std::string attributeOf(const fs::path& path, const char* name) {
  std::array<char, 1024> value{};
  const auto size = ::lgetxattr(path.c_str(), name, value.data(), value.size());
  return size < 0 ? std::string("none") : std::string(value.data(), static_cast<std::size_t>(size));
}

inline void setAttribute(const fs::path& path, const char* name, const std::string& value) {
  EXPECT_EQ(::lsetxattr(path.c_str(), name, value.data(), value.size(), 0), 0) << path << " " << std::strerror(errno);
}

}  // namespace tests::tool
