#pragma once
// For tests of attacks on root's tool: what each account can still do with an installed bundle, and a place for the verdict
// that only the invoking user enters. Shared folders, homes and root's folders lie on one volume of the test's own.
#include <fcntl.h>

#include <functional>

#include "tests/privileged/tool/Namespace.h"
#include "tests/support/OtherProcess.h"
#include "tests/support/SharedCount.h"
#include "tests/support/TestedPrograms.h"

namespace tests::tool {

class AttackGround : public NamespaceTest {
 protected:
  static constexpr uid_t otherAccount = 54321;  // an account that has no part in the job

  void SetUp() override {
    NamespaceTest::SetUp();
    if (IsSkipped()) return;
    command = {tests::testedPrograms() / "assistantTool"};
    result = folder / "verdict/result";
    write(result, "");
    fs::permissions(result, fs::perms(0666));
    fs::permissions(result.parent_path(), fs::perms(0700));
    becomeAnotherUsersTool();
    giveToUser(result.parent_path());
    for (const char* name : {"apps", "etc/cron.d"}) fs::create_directories(folder / name);
  }

  // Runs one job of the user; true when the verdict was written, which is taken away again.
  bool isDone(const Answer& answer) {
    const bool done = answer.status == 0 && read(result) == protocol::successVerdict;
    fs::resize_file(result, 0);
    lastText = answer.text;
    return done;
  }
  // A download of the user's, in place of an earlier one of that name.
  fs::path download(const std::string& name, const std::string& version) const {
    const auto app = home() / "Downloads" / name;
    fs::remove_all(app);
    makeBundle(app, version);
    giveToUser(home() / "Downloads");
    giveTree(app, invokingUser);
    return app;
  }
  fs::path rootsBundle(const fs::path& app, const std::string& version) const {
    makeBundle(app, version);
    giveTree(app, 0);
    return app;
  }
  static void giveTree(const fs::path& tree, uid_t owner) {
    EXPECT_EQ(::lchown(tree.c_str(), owner, owner), 0);
    for (const auto& entry : fs::recursive_directory_iterator(tree))
      EXPECT_EQ(::lchown(entry.path().c_str(), owner, owner), 0);
  }
  static std::string versionOf(const fs::path& app) { return read(app / "Contents/Info.plist"); }

  // The things in the tree that the account can write, one a line: files opened for writing, folders in which it makes a
  // file. Nothing is changed.
  static std::string writableBy(uid_t account, const fs::path& tree) {
    return tests::resultAs(account, [&] {
      std::string found;
      const auto look = [&](const fs::path& path) {
        const auto type = fs::symlink_status(path).type();
        const int flags = type == fs::file_type::directory ? O_TMPFILE | O_WRONLY : O_WRONLY | O_NOFOLLOW;
        const int opened = type == fs::file_type::symlink ? -1 : ::open(path.c_str(), flags | O_CLOEXEC, 0600);
        if (opened < 0) return;
        ::close(opened);
        found += path.string() + "\n";
      };
      std::error_code unreadable;
      look(tree);
      for (const auto& entry :
           fs::recursive_directory_iterator(tree, fs::directory_options::skip_permission_denied, unreadable))
        look(entry.path());
      return found;
    });
  }

  std::string lastText;  // what the tool said about the last job
};

}  // namespace tests::tool
