// Checks in a process of its own what a confined job can still reach.
#include "privileged/tool/Confinement.h"

#include <fcntl.h>

#include <cerrno>
#include <functional>

#include "tests/privileged/tool/ToolRun.h"

namespace tests::tool {
namespace {

class Confinement : public ToolTest {
 protected:
  Confinement() {
    for (const char* name : {"one", "two", "outside"}) write(folder / name / "file", name);
  }
  // The error number of `call` in a process that is confined to the folders "one" and "two"; 0 when it succeeds, 200 when
  // this kernel cannot confine.
  int errorOf(const std::function<long()>& call) const {
    const pid_t child = ::fork();
    if (child == 0) {
      std::vector<posix::Descriptor> folders;
      for (const char* name : {"one", "two"})
        folders.emplace_back(::open((folder / name).c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
      ::prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0);
      if (!AssistantTool::confineTo(folders).empty()) ::_exit(200);
      errno = 0;
      ::_exit(call() < 0 ? errno : 0);
    }
    int status = 0;
    ::waitpid(child, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
  }
  [[nodiscard]] long opens(const fs::path& path, int flags) const {
    return ::open((folder / path).c_str(), flags | O_CLOEXEC, 0600);
  }
  [[nodiscard]] long renames(const fs::path& from, const fs::path& to) const {
    return ::rename((folder / from).c_str(), (folder / to).c_str());
  }
};

TEST_F(Confinement, LeavesTheFoldersOfTheJob) {
  const int error = errorOf([this] { return opens("one/new", O_WRONLY | O_CREAT); });
  if (error == 200) GTEST_SKIP() << "this kernel has no Landlock";
  EXPECT_EQ(error, 0);
  EXPECT_EQ(errorOf([this] { return renames("one/file", "two/moved"); }), 0);
  EXPECT_EQ(errorOf([this] { return ::truncate((folder / "two/file").c_str(), 0); }), 0);
  EXPECT_EQ(errorOf([] { return ::open("/proc/self/mountinfo", O_RDONLY | O_CLOEXEC); }), 0);
}

TEST_F(Confinement, LetsNothingBeWrittenOutside) {
  const int error = errorOf([this] { return opens("outside/file", O_WRONLY); });
  if (error == 200) GTEST_SKIP() << "this kernel has no Landlock";
  EXPECT_EQ(error, EACCES);
  EXPECT_EQ(errorOf([this] { return opens("outside/new", O_WRONLY | O_CREAT); }), EACCES);
  EXPECT_EQ(errorOf([this] { return ::mkdir((folder / "outside/folder").c_str(), 0700); }), EACCES);
  EXPECT_EQ(errorOf([this] { return ::unlink((folder / "outside/file").c_str()); }), EACCES);
  EXPECT_NE(errorOf([this] { return renames("one/file", "outside/moved"); }), 0);
  EXPECT_NE(errorOf([this] { return renames("outside/file", "one/moved"); }), 0);
  EXPECT_EQ(errorOf([] { return ::open("/etc/kelto-test", O_WRONLY | O_CREAT | O_CLOEXEC, 0600); }), EACCES);
  EXPECT_EQ(read(folder / "outside/file"), "outside");
}

TEST_F(Confinement, LetsNothingBeReadOutside) {
  const int error = errorOf([this] { return opens("outside/file", O_RDONLY); });
  if (error == 200) GTEST_SKIP() << "this kernel has no Landlock";
  EXPECT_EQ(error, EACCES);
}

}  // namespace
}  // namespace tests::tool
