// The file interfaces on this system, held to the contracts.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "platform/linux/FileManager.h"
#include "platform/linux/LogStorage.h"
#include "platform/linux/LoggingHost.h"
#include "platform/linux/SurvivingMemories.h"
#include "posix/Descriptor.h"
#include "tests/platform/contracts/FileManagerContract.h"
#include "tests/platform/contracts/LogStorageContract.h"
#include "tests/platform/contracts/LoggingHostContracts.h"
#include "tests/support/Environment.h"
#include "tests/support/TemporaryFolder.h"

using namespace tests::contracts;

namespace {

class RealFiles {
 public:
  platform::FileManager& files() { return _files; }
  [[nodiscard]] std::string path(const std::string& name) const {
    return name.empty() ? _folder.path() : _folder.path(name);
  }
  static void write(const std::string& path, const std::string& contents, std::int32_t permissions) {
    tests::writeFile(path, contents);
    EXPECT_EQ(::chmod(path.c_str(), static_cast<mode_t>(permissions)), 0);
  }
  [[nodiscard]] static std::int32_t permissionsOf(const std::string& path) {
    struct stat status {};
    EXPECT_EQ(::lstat(path.c_str(), &status), 0);
    return static_cast<std::int32_t>(status.st_mode & 07777);
  }
  [[nodiscard]] std::string homeFolder() const { return _folder.path(); }

 private:
  tests::TemporaryFolder _folder;
  tests::EnvironmentVariable _home{"HOME", _folder.path()};
  platform::Linux::FileManager _files;
};

class RealLogFiles {
 public:
  platform::LogStorage& storage() { return _storage; }
  [[nodiscard]] std::string path(const std::string& name) const {
    return name.empty() ? _folder.path() : _folder.path(name);
  }
  static void unlink(const std::string& path) { EXPECT_EQ(::unlink(path.c_str()), 0); }

 private:
  tests::TemporaryFolder _folder;
  platform::Linux::LogStorage _storage;
};

class RealProcess {
 public:
  platform::ProcessInfo& process() { return _process; }

 private:
  platform::Linux::ProcessInfo _process;
};

class RealTerminal {
 public:
  platform::Terminal& terminal() { return _terminal; }
  [[nodiscard]] std::string text() const { return tests::readFile(_folder.path("output")); }

 private:
  tests::TemporaryFolder _folder;
  posix::Descriptor _file{::open(_folder.path("output").c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600)};
  platform::Linux::Terminal _terminal{_file.get()};
};

// A memory belongs to a process that has died when nothing holds it any more.
class RealMemories {
 public:
  platform::SurvivingMemories& memories() { return _memories; }
  void die() {}

 private:
  tests::TemporaryFolder _folder;
  platform::Linux::SurvivingMemories _memories{_folder.path()};
};

}  // namespace

INSTANTIATE_TYPED_TEST_SUITE_P(Linux, FileManagerContract, RealFiles);
INSTANTIATE_TYPED_TEST_SUITE_P(Linux, LogStorageContract, RealLogFiles);
INSTANTIATE_TYPED_TEST_SUITE_P(Linux, ProcessInfoContract, RealProcess);
INSTANTIATE_TYPED_TEST_SUITE_P(Linux, TerminalContract, RealTerminal);
INSTANTIATE_TYPED_TEST_SUITE_P(Linux, SurvivingMemoriesContract, RealMemories);
