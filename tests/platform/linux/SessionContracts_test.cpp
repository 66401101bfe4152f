// The interfaces to other applications, bundles, defaults, the shell and the system log on this system, held to the
// contracts.
#include <fcntl.h>
#include <unistd.h>

#include <sstream>

#include "platform/linux/Bundle.h"
#include "platform/linux/Shell.h"
#include "platform/linux/SystemLog.h"
#include "platform/linux/UserDefaults.h"
#include "platform/linux/Workspace.h"
#include "tests/platform/contracts/BundlesContract.h"
#include "tests/platform/contracts/ShellContract.h"
#include "tests/platform/contracts/SystemLogContract.h"
#include "tests/platform/contracts/UserDefaultsContract.h"
#include "tests/platform/contracts/WorkspaceContract.h"
#include "tests/platform/linux/Applications.h"
#include "tests/support/Environment.h"

using namespace tests::contracts;

namespace {

class RealDefaults {
 public:
  platform::UserDefaults& defaults() { return _defaults; }
  platform::UserDefaults& unstorable() { return _unstorable; }

 private:
  tests::TemporaryFolder _folder;
  tests::EnvironmentVariable _config{"XDG_CONFIG_HOME", _folder.path()};
  platform::fake::FakeSystemLog _log;
  platform::Linux::UserDefaults _defaults{0, nullptr, "com.kelto.test", _log};
  platform::Linux::UserDefaults _unstorable{0, nullptr, "", _log};
};

class RealBundles {
 public:
  RealBundles() {
    write("Info.plist",
          "<plist><dict><key>CFBundleIdentifier</key><string>com.kelto.test</string><key>CFBundleName</key>"
          "<string>Test</string><key>Number</key><integer>7</integer></dict></plist>");
    write("Resources/thing.txt", "");
    write("Resources/tool", "");
    write("Resources/en.lproj/Localizable.strings", "\"hello\" = \"Hello\";");
    write("Resources/en.lproj/More.strings", "\"hello\" = \"Other\";");
  }
  platform::Bundles& bundles() { return _bundles; }
  [[nodiscard]] std::string path() const { return _folder.path("Test.app"); }

 private:
  void write(const std::string& name, const std::string& contents) const {
    const std::filesystem::path file = path() + "/Contents/" + name;
    std::filesystem::create_directories(file.parent_path());
    tests::writeFile(file, contents);
  }

  tests::TemporaryFolder _folder;
  platform::fake::FakeSystemLog _log;
  platform::Linux::Bundles _bundles{_log, [] { return std::vector<std::string>{"en"}; }};
};

class RealShell {
 public:
  platform::Shell& shell() { return _shell; }

 private:
  platform::Linux::DirectCall _direct;
  platform::Linux::Shell _shell{_direct};
};

// Standard error goes to a file while this object lives.
class RealLog {
 public:
  RealLog() : _before(::dup(STDERR_FILENO)) {
    const posix::Descriptor file(::open(_path.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600));
    ::dup2(file.get(), STDERR_FILENO);
  }
  ~RealLog() { ::dup2(_before.get(), STDERR_FILENO); }
  RealLog(const RealLog&) = delete;
  RealLog& operator=(const RealLog&) = delete;

  platform::SystemLog& log() { return _log; }
  [[nodiscard]] std::vector<std::string> lines() const {
    std::vector<std::string> all;
    std::istringstream text(tests::readFile(_path));
    for (std::string line; std::getline(text, line);) all.push_back(line.substr(std::string("test: ").size()));
    return all;
  }

 private:
  tests::TemporaryFolder _folder;
  const std::string _path = _folder.path("error");
  posix::Descriptor _before;
  platform::Linux::SystemLog _log{"test"};
};

// Applications that know neither a session bus nor a display: they are asked by a signal.
class RealApplications : public tests::ApplicationTest {
 public:
  RealApplications() { _path = makeBundle("App.app"); }

  platform::Workspace& workspace() { return ApplicationTest::workspace; }
  [[nodiscard]] static std::string identifier() { return ApplicationTest::identifier; }
  std::string launchedPath() {
    _reportVariable.emplace("KELTO_TEST_REPORT", _report);
    return _path;
  }
  [[nodiscard]] std::string missingPath() const { return root + "/Missing.app"; }
  void start(bool quits) {
    _copy = std::make_unique<tests::TestProgram>(
        std::vector<std::string>{_path + "/Contents/Linux/program", quits ? "handler" : "refuse"});
    EXPECT_TRUE(_copy->isReady());
  }
  void crash() {
    _copy->kill();
    _copy->reap();
  }
  // A copy that is launched with the variable reports and ends.
  [[nodiscard]] bool hasBeenLaunched() const { return std::filesystem::exists(_report); }
  template <class Condition>
  bool waitFor(Condition condition) {
    return tests::eventually(condition);
  }

 private:
  void TestBody() override {}

  tests::ScopedEnvironment _bus{"DBUS_SESSION_BUS_ADDRESS", "unix:path=/no/such/bus"};
  tests::ScopedEnvironment _display{"DISPLAY", ":no-such-display"};
  std::string _report = folder.path("report");
  std::optional<tests::ScopedEnvironment> _reportVariable;
  std::string _path;
  std::unique_ptr<tests::TestProgram> _copy;
};

}  // namespace

INSTANTIATE_TYPED_TEST_SUITE_P(Linux, UserDefaultsContract, RealDefaults);
INSTANTIATE_TYPED_TEST_SUITE_P(Linux, BundlesContract, RealBundles);
INSTANTIATE_TYPED_TEST_SUITE_P(Linux, ShellContract, RealShell);
INSTANTIATE_TYPED_TEST_SUITE_P(Linux, SystemLogContract, RealLog);
INSTANTIATE_TYPED_TEST_SUITE_P(Linux, WorkspaceContract, RealApplications);
