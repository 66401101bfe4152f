#pragma once
// For tests: a user gives the files of a download second names while root's tool installs it, to keep them.
#include <sys/stat.h>

#include "tests/privileged/tool/themes/AttackGround.h"

namespace tests::tool {

class SecondNames : public AttackGround {
 protected:
  static constexpr int fileCount = 400;

  void SetUp() override {
    AttackGround::SetUp();
    if (IsSkipped()) return;
    app = folder / "apps/App.app";
  }

  // One update while the user does so; `true` when the tool has done it.
  bool attackOnce() {
    const auto source = bigDownload();
    fs::remove_all(app);
    rootsBundle(app, "1");
    fs::remove_all(home() / "kept");
    fs::create_directory(home() / "kept");
    giveToUser(home() / "kept");
    const tests::SharedCount ready;
    tests::OtherProcess user(invokingUser,
                             [&] { keepNames(source / "Contents/many", const_cast<tests::SharedCount&>(ready)); });
    while (ready.value() == 0) continue;
    const bool done = isDone(replace(app, source));
    names += static_cast<int>(std::distance(fs::directory_iterator(home() / "kept"), fs::directory_iterator()));
    user.stop();
    return done;
  }
  // The files of the installed bundle that the user can change by the names that it kept.
  int changedByTheUser() {
    tests::resultAs(invokingUser, [&] {
      for (const auto& kept : fs::directory_iterator(home() / "kept")) std::ofstream(kept.path()) << "changed by the user";
      return std::string();
    });
    int changed = 0;
    for (const auto& file : fs::directory_iterator(app / "Contents/many")) {
      const auto status = statusOf(file.path());
      if (read(file.path()) == "changed by the user" || status.st_uid != 0 || status.st_nlink != 1) ++changed;
    }
    return changed;
  }

  fs::path app;
  int names = 0;  // that the user has made in all

 private:
  fs::path bigDownload() const {
    fs::remove_all(home() / "Downloads");
    const auto source = download("App.app", "2");
    for (int i = 0; i < fileCount; ++i) write(source / "Contents/many" / std::to_string(i), "as published");
    giveTree(source, invokingUser);
    return source;
  }
  static bool isSame(const timespec& one, const timespec& other) {
    return one.tv_sec == other.tv_sec && one.tv_nsec == other.tv_nsec;
  }
  // Begins when the tool changes anything beside the installed bundle, and holds on to the folder wherever it goes.
  void keepNames(const fs::path& many, tests::SharedCount& ready) const {
    const int from = ::open(many.c_str(), O_RDONLY | O_DIRECTORY);
    const int to = ::open((home() / "kept").c_str(), O_RDONLY | O_DIRECTORY);
    struct stat before {};
    struct stat now {};
    ::stat(app.parent_path().c_str(), &before);
    ready.increment();
    do {
      ::stat(app.parent_path().c_str(), &now);
    } while (isSame(before.st_mtim, now.st_mtim));
    for (;;) {
      for (int i = 0; i < fileCount; ++i) {
        const auto name = std::to_string(i);
        ::linkat(from, name.c_str(), to, name.c_str(), 0);
      }
    }
  }
};

}  // namespace tests::tool
