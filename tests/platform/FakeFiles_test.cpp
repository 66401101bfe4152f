// The fakes of the file interfaces, held to the contracts.
#include "platform/fake/FakePlatform.h"
#include "tests/platform/contracts/FileManagerContract.h"
#include "tests/platform/contracts/LeveledSystemLogContract.h"
#include "tests/platform/contracts/LogStorageContract.h"
#include "tests/platform/contracts/LogTableContract.h"
#include "tests/platform/contracts/LoggingHostContracts.h"

using namespace tests::contracts;

namespace {

class FakeFiles {
 public:
  FakeFiles() {
    _files.addFolder("/folder");
    _files.searchPaths[{platform::SearchPathDirectory::application, platform::NSUserDomainMask}] = {
        "/home/me/Applications"};
    _files.searchPaths[{platform::SearchPathDirectory::application, platform::NSLocalDomainMask}] = {"/Applications"};
    _files.volumes["/"] = "file:///";
  }

  platform::FileManager& files() { return _files; }
  [[nodiscard]] static std::string path(const std::string& name) { return name.empty() ? "/folder" : "/folder/" + name; }
  void write(const std::string& path, const std::string& contents, std::int32_t permissions) {
    _files.addFile(path, contents, (permissions & 0111) != 0);
    _files.items[path].attributes.posixPermissions = permissions;
  }
  [[nodiscard]] std::int32_t permissionsOf(const std::string& path) const {
    return _files.items.at(path).attributes.posixPermissions.value_or(-1);
  }
  [[nodiscard]] std::string homeFolder() const { return _files.homeFolder; }

 private:
  platform::fake::FakeFileManager _files;
};

class FakeLogFiles {
 public:
  FakeLogFiles() {
    platform::Error error;
    _storage.createDirectory("/logs", error);
  }

  platform::LogStorage& storage() { return _storage; }
  [[nodiscard]] static std::string path(const std::string& name) { return name.empty() ? "/logs" : "/logs/" + name; }
  void unlink(const std::string& path) { _storage.unlink(path); }

 private:
  platform::fake::FakeLogStorage _storage;
};

class FakeProcess {
 public:
  platform::ProcessInfo& process() { return _process; }

 private:
  platform::fake::FakeProcessInfo _process;
};

class FakeStandardError {
 public:
  platform::Terminal& terminal() { return _terminal; }
  [[nodiscard]] std::string text() const { return _terminal.text(); }

 private:
  platform::fake::FakeTerminal _terminal;
};

struct FakeSystemLogWorld {
  platform::LeveledSystemLog& log() { return fake; }
  [[nodiscard]] std::vector<std::pair<int, std::string>> lines() const { return fake.lines(); }
  platform::fake::FakeLeveledSystemLog fake;
};

class FakeMemories {
 public:
  FakeMemories() { _memories.hasNone = false; }
  platform::SurvivingMemories& memories() { return _memories; }
  void die() { _memories.die(); }

 private:
  platform::fake::FakeSurvivingMemories _memories;
};

class FakeDatabase {
 public:
  std::unique_ptr<platform::LogTable> table() { return _database.open(); }
  [[nodiscard]] std::vector<std::string> texts() const { return _database.texts(); }
  void disappear() { _database.isUnreachable = true; }
  void appear() { _database.isUnreachable = false; }

 private:
  platform::fake::FakeLogDatabase _database;
};

}  // namespace

INSTANTIATE_TYPED_TEST_SUITE_P(Fake, FileManagerContract, FakeFiles);
INSTANTIATE_TYPED_TEST_SUITE_P(Fake, LogStorageContract, FakeLogFiles);
INSTANTIATE_TYPED_TEST_SUITE_P(Fake, ProcessInfoContract, FakeProcess);
INSTANTIATE_TYPED_TEST_SUITE_P(Fake, TerminalContract, FakeStandardError);
INSTANTIATE_TYPED_TEST_SUITE_P(Fake, LeveledSystemLogContract, FakeSystemLogWorld);
INSTANTIATE_TYPED_TEST_SUITE_P(Fake, SurvivingMemoriesContract, FakeMemories);
INSTANTIATE_TYPED_TEST_SUITE_P(Fake, LogTableContract, FakeDatabase);
