// Checks in a process of its own what a confined job can still reach.
#include "privileged/tool/Confinement.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <functional>

#include "privileged/tool/Commands.h"
#include "protocol/ToolProtocol.h"
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

TEST_F(Confinement, RunsNoProgramAndMakesNoDevice) {
  fs::copy_file("/bin/true", folder / "one/true");
  const int error = errorOf([this] { return ::execl((folder / "one/true").c_str(), "true", nullptr); });
  if (error == 200) GTEST_SKIP() << "this kernel has no Landlock";
  EXPECT_EQ(error, EACCES);
  if (::geteuid() != 0) return;  // only root makes devices at all
  EXPECT_EQ(errorOf([this] { return ::mknod((folder / "one/null").c_str(), S_IFCHR | 0600, makedev(1, 3)); }), EACCES);
}

// The folders of a job that a process of its own asks for, because accounts are remembered.
struct FoldersOfAJob : ToolTest {
  FoldersOfAJob() {
    write(folder / "work/item", "item");
    fs::create_directories(folder / "data");
  }
  // Whether the job would be let into the folder at `path`.
  bool include(const fs::path& path, const char* command) const {
    const pid_t child = ::fork();
    if (child == 0) {
      ::setenv("XDG_DATA_HOME", (folder / "data").c_str(), 1);
      ::setenv("XDG_STATE_HOME", (folder / "state").c_str(), 1);
      ::_exit(isAmongFolders(path, command) ? 1 : 0);
    }
    int status = 0;
    ::waitpid(child, &status, 0);
    EXPECT_TRUE(WIFEXITED(status));
    return WEXITSTATUS(status) == 1;
  }

 private:
  bool isAmongFolders(const fs::path& path, const char* command) const {
    const std::string item = folder / "work/item";
    const InstructionArchive::Instructions instructions{
        {protocol::filePathKey, item}, {protocol::sourcePathKey, item}, {protocol::destinationPathKey, item}};
    const AssistantTool::PathWalk walk(::getuid());
    const AssistantTool::Rules rules;
    AssistantTool::Bundles bundles;
    const AssistantTool::Request request{.instructions = instructions, .walk = walk, .rules = rules, .bundles = bundles};
    struct stat wanted {};
    if (::stat(path.c_str(), &wanted) != 0) return false;
    const auto folders = AssistantTool::foldersOf(AssistantTool::commandNamed(command), request);
    return std::ranges::any_of(folders, [&](const posix::Descriptor& one) {
      struct stat status {};
      return ::fstat(one.get(), &status) == 0 && status.st_ino == wanted.st_ino && status.st_dev == wanted.st_dev;
    });
  }
};

TEST_F(FoldersOfAJob, AreThoseOfItsItemsAndTheTrashWhenSomethingGoesThere) {
  fs::create_directories(folder / "data/Trash");
  EXPECT_TRUE(include(folder / "work", protocol::trashFileCommand));
  EXPECT_TRUE(include(folder / "data/Trash", protocol::trashFileCommand));
  EXPECT_TRUE(include(folder / "work", protocol::replaceItemCommand));
  EXPECT_FALSE(include(folder / "data/Trash", protocol::replaceItemCommand));
}

TEST_F(FoldersOfAJob, AreNotWhereALinkInPlaceOfTheTrashLeads) {
  fs::create_directories(folder / "elsewhere");
  fs::create_directory_symlink(folder / "elsewhere", folder / "data/Trash");
  EXPECT_FALSE(include(folder / "elsewhere", protocol::trashFileCommand));
  EXPECT_TRUE(include(folder / "data", protocol::trashFileCommand));
}

TEST_F(FoldersOfAJob, AreNeverTheRootFolder) { EXPECT_FALSE(include("/", protocol::trashFileCommand)); }

}  // namespace
}  // namespace tests::tool
