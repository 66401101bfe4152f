#include "platform/linux/RunningCopies.h"

#include <fstream>
#include <set>

#include "tests/platform/linux/Applications.h"
#include "tests/support/OtherProcess.h"

namespace platform::Linux {
namespace {

namespace fs = std::filesystem;
using tests::ApplicationTest;
using tests::TestProgram;

const std::string program = "/Contents/Linux/program";
constexpr uid_t owner = 47011;
constexpr uid_t asker = 47012;

class RunningCopiesAsRoot : public ApplicationTest {
 protected:
  void SetUp() override {
    if (::geteuid() != 0) GTEST_SKIP() << "needs root";
  }

  tests::ScopedEnvironment _bus{"DBUS_SESSION_BUS_ADDRESS", "unix:path=/no/such/bus"};
  tests::ScopedEnvironment _display{"DISPLAY", ":no-such-display"};
};

TEST_F(RunningCopiesAsRoot, AnotherUsersCopyCountsAndTheLogSaysWhose) {
  for (const auto& part : {fs::path(root), fs::path(makeBundle("App.app"))}) fs::permissions(part, fs::perms(0755));
  const tests::OtherProcess copy(owner, [&] {
    const std::string path = root + "/App.app" + program;
    ::execl(path.c_str(), path.c_str(), "handler", nullptr);
  });
  const auto ask = [&]() -> std::string {
    const auto copies = running();
    if (copies.size() != 1) return std::to_string(copies.size()) + " copies";
    return copies[0]->terminate() ? "asked" : log.lines.back();
  };
  std::string answer;
  EXPECT_TRUE(tests::eventually([&] { return (answer = tests::resultAs(asker, ask)) != "0 copies"; }));
  EXPECT_EQ(answer, "Process " + std::to_string(copy.number()) + ", which belongs to the user with the number " +
                        std::to_string(owner) + ", could not be asked to quit");
}

// A control group of the test's own, with this name.
class ControlGroup {
 public:
  explicit ControlGroup(const std::string& name) {
    std::ifstream mounts("/proc/self/mounts");
    for (std::string device, folder, type, rest; mounts >> device >> folder >> type && std::getline(mounts, rest);)
      if (type == "cgroup2") _folder = folder + "/" + name;
    std::error_code error;
    if (!_folder.empty()) fs::create_directory(_folder, error);
    if (error) _folder.clear();
  }
  ControlGroup(const ControlGroup&) = delete;
  ControlGroup& operator=(const ControlGroup&) = delete;
  ~ControlGroup() {
    std::error_code error;
    tests::eventually([&] { return _folder.empty() || fs::remove(_folder, error); });
  }

  bool take(pid_t process) const {
    std::ofstream processes(_folder + "/cgroup.procs");
    return !_folder.empty() && (processes << process << std::flush);
  }

 private:
  std::string _folder;
};

// A unit's name keeps the hyphen for its own parts.
std::string unitNameOf(std::string identifier) { return identifier.replace(identifier.find('-'), 1, "\\x2d"); }

TEST_F(RunningCopiesAsRoot, TheFirstProcessOfAUnitNamedAfterTheApplicationCounts) {
  const std::string start = KELTO_BIN_DIR "/test_application";
  const std::string name = unitNameOf(identifier);
  for (const std::string& unit : {"app-gnome-" + name + "-NUMBER.scope", "app-" + name + "-0a1b.scope",
                                  "app-" + name + "@0a1b.service", "app-desktop-" + name + ".service"}) {
    TestProgram first({start, "twice"});
    ASSERT_EQ(std::set({first.line(), first.line()}), std::set<std::string>({"ready", "child"}));
    TestProgram later({start, "plain"});
    ASSERT_TRUE(later.isReady());
    const auto number = unit.find("NUMBER");
    const ControlGroup group(
        number == std::string::npos ? unit : std::string(unit).replace(number, 6, std::to_string(first.number())));
    if (!group.take(first.number())) GTEST_SKIP() << "control groups cannot be made here";
    group.take(later.number());
    EXPECT_EQ(running().size(), 1U) << unit;
    first.kill();
    later.kill();
    first.reap();
    later.reap();
  }
}

TEST_F(RunningCopiesAsRoot, AUnitOfAnotherNameIsAnotherApplications) {
  const std::string name = unitNameOf(identifier);
  for (const std::string& unit :
       {std::string("app-gnome-com.kelto.other-1.scope"), name + ".service", "app-" + name + ".more-1.scope",
        "run-" + name + "-0a1b.scope", "app-" + name + ".slice", "app-of-some-" + name + "-0a1b.scope"}) {
    const ControlGroup group(unit);
    TestProgram other({KELTO_BIN_DIR "/test_application", "plain"});
    ASSERT_TRUE(other.isReady());
    if (!group.take(other.number())) GTEST_SKIP() << "control groups cannot be made here";
    EXPECT_TRUE(running().empty()) << unit;
  }
}

// The desktop tells the number of the application itself: the others in its unit are programs that it has started.
TEST_F(RunningCopiesAsRoot, AUnitWhoseApplicationHasEndedHoldsNone) {
  TestProgram ended({KELTO_BIN_DIR "/test_application", "plain"});
  TestProgram left({KELTO_BIN_DIR "/test_application", "plain"});
  ASSERT_TRUE(ended.isReady() && left.isReady());
  const ControlGroup group("app-gnome-" + unitNameOf(identifier) + "-" + std::to_string(ended.number()) + ".scope");
  if (!group.take(left.number())) GTEST_SKIP() << "control groups cannot be made here";
  ended.kill();
  ended.reap();
  EXPECT_TRUE(running().empty());
  left.kill();
  left.reap();
}

}  // namespace
}  // namespace platform::Linux
