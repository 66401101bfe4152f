#include <gtest/gtest.h>

#include "platform/linux/Bus.h"
#include "platform/linux/BusCall.h"
#include "tests/platform/linux/Applications.h"

namespace platform::Linux {
namespace {

using tests::ApplicationTest;
using tests::TestProgram;

const std::string program = "/Contents/Linux/program";
const std::string quitAction = "action quit sava{sv} /com/kelto/test_Application" + tests::numberOfThisRun;

class QuitOverTheBus : public ApplicationTest {
 protected:
  tests::PrivateBus bus;
  tests::ScopedEnvironment _display{"DISPLAY", ":no-such-display"};
};

TEST_F(QuitOverTheBus, TheActionIsActivatedAndTheCopyQuits) {
  TestProgram copy({makeBundle("App.app") + program, "bus", identifier, "quit"});
  ASSERT_TRUE(copy.isReady());
  EXPECT_TRUE(askOnlyCopy());
  EXPECT_EQ(copy.line(), quitAction);
  EXPECT_EQ(copy.reap(), 0);
  EXPECT_TRUE(running().empty());
}

TEST_F(QuitOverTheBus, ARefusalIsNotFollowedByASignal) {
  TestProgram copy({makeBundle("App.app") + program, "bus", identifier, "refuse"});
  ASSERT_TRUE(copy.isReady());
  EXPECT_TRUE(askOnlyCopy());
  EXPECT_EQ(copy.line(), quitAction);
  EXPECT_TRUE(askOnlyCopy());
  EXPECT_EQ(copy.line(), quitAction);
  EXPECT_TRUE(copy.isAlive());
}

TEST_F(QuitOverTheBus, SilenceIsNotFollowedByASignal) {
  TestProgram copy({makeBundle("App.app") + program, "bus", identifier, "silent"});
  ASSERT_TRUE(copy.isReady());
  EXPECT_TRUE(askOnlyCopy());
  EXPECT_EQ(copy.line(), quitAction);
  EXPECT_TRUE(askOnlyCopy());
  EXPECT_EQ(copy.line(), quitAction);
}

TEST_F(QuitOverTheBus, AnOwnerOfTheNameWithoutActionsGetsTheSignal) {
  TestProgram copy({makeBundle("App.app") + program, "bus", identifier, "none"});
  ASSERT_TRUE(copy.isReady());
  EXPECT_TRUE(askOnlyCopy());
  EXPECT_EQ(copy.line(), "SIGTERM");
}

// It would answer success to the action, and do nothing.
TEST_F(QuitOverTheBus, AnApplicationWithoutThatActionGetsTheSignal) {
  for (const auto* kind : {"without", "disabled"}) {
    TestProgram copy({makeBundle(std::string(kind) + ".app") + program, "bus", identifier, kind});
    ASSERT_TRUE(copy.isReady()) << kind;
    EXPECT_TRUE(askOnlyCopy()) << kind;
    EXPECT_EQ(copy.line(), "SIGTERM") << kind;
    copy.reap();
  }
}

// Programs that an interpreter runs have the interpreter as executable.
TEST_F(QuitOverTheBus, TheOwnerOfTheIdentifierIsACopyWhateverItsProgramIs) {
  TestProgram copy({KELTO_BIN_DIR "/test_application", "bus", identifier, "quit"});
  ASSERT_TRUE(copy.isReady());
  EXPECT_TRUE(askOnlyCopy());
  EXPECT_EQ(copy.line(), quitAction);
  EXPECT_EQ(copy.reap(), 0);
  EXPECT_TRUE(running().empty());
}

TEST_F(QuitOverTheBus, TwoCopiesAreAskedEachInItsWay) {
  const std::string bundle = makeBundle("App.app");
  TestProgram owner({bundle + program, "bus", identifier, "quit"});
  ASSERT_TRUE(owner.isReady());
  TestProgram second({bundle + program, "handler"});
  ASSERT_TRUE(second.isReady());
  const auto copies = running();
  ASSERT_EQ(copies.size(), 2U);
  for (const auto& copy : copies) EXPECT_TRUE(copy->terminate());
  EXPECT_EQ(owner.line(), quitAction);
  EXPECT_EQ(second.line(), "SIGTERM");
}

TEST_F(QuitOverTheBus, AnIdentifierThatIsNotABusNameLeavesTheSignal) {
  TestProgram copy({makeBundle("App.app", "no bus name") + program, "handler"});
  ASSERT_TRUE(copy.isReady());
  EXPECT_TRUE(workspace.runningApplications("no bus name").at(0)->terminate());
  EXPECT_EQ(copy.line(), "SIGTERM");
}

// The bus would start a service for a message to its name.
TEST_F(ApplicationTest, NoServiceIsStartedToBeAskedToQuit) {
  const tests::ScopedEnvironment display("DISPLAY", ":no-such-display");
  const tests::PrivateBus bus({{identifier, KELTO_BIN_DIR "/test_application bus " + std::string(identifier) + " quit"}});
  TestProgram copy({makeBundle("App.app") + program, "handler"});
  ASSERT_TRUE(copy.isReady());
  EXPECT_TRUE(askOnlyCopy());
  EXPECT_EQ(copy.line(), "SIGTERM");
  const auto connection = Bus::openUser();
  ASSERT_TRUE(connection);
  EXPECT_EQ(ownerOfName(connection->get(), identifier), std::nullopt);
}

}  // namespace
}  // namespace platform::Linux
