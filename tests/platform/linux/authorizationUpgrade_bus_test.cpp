// The broker whose program is replaced while it runs, as an upgrade does it.
#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "protocol/Broker.h"
#include "tests/platform/linux/AuthorizationClient.h"
#include "tests/support/Eventually.h"
#include "tests/support/PrivateBus.h"
#include "tests/support/TemporaryFolder.h"

namespace {

using tests::BrokerClient;
using tests::eventually;
using tests::isOwnedOnSessionBus;

class AuthorizationUpgrade : public testing::Test {
 protected:
  AuthorizationUpgrade() { std::filesystem::copy_file(KELTO_BIN_DIR "/authorizationd", program); }

  static bool isThere() { return isOwnedOnSessionBus(protocol::brokerBusName); }
  // As the package manager does: the old program keeps a second name until all files of the package are there.
  void upgrade() const {
    std::filesystem::copy_file(KELTO_BIN_DIR "/authorizationd", program.string() + ".new");
    std::filesystem::create_hard_link(program, program.string() + ".old");
    std::filesystem::rename(program.string() + ".new", program);
    std::filesystem::remove(program.string() + ".old");
  }

  tests::TemporaryFolder folder;
  std::filesystem::path program = folder.path("authorizationd");
  tests::PrivateBus bus{{{protocol::brokerBusName, program.string() + " --session --idle-seconds 600"}}};
};

TEST_F(AuthorizationUpgrade, AnIdleBrokerLeavesAtOnceAndTheBusStartsTheNewOne) {
  BrokerClient before;
  before.services.free(before.create(), platform::kAuthorizationFlagDefaults);
  ASSERT_TRUE(isThere());
  upgrade();
  EXPECT_TRUE(eventually([] { return !isThere(); }));
  BrokerClient after;
  after.services.free(after.create(), platform::kAuthorizationFlagDefaults);
  EXPECT_TRUE(isThere()) << "the new one is not outdated";
}

TEST_F(AuthorizationUpgrade, ABrokerWithAJobServesItToTheEndAndLeavesThen) {
  BrokerClient controller;
  const auto authorization = controller.create();
  upgrade();
  BrokerClient installer;
  EXPECT_EQ(installer.imports(controller.exported(authorization)), platform::errAuthorizationSuccess);
  EXPECT_EQ(controller.copyRight(authorization, 18), platform::errAuthorizationSuccess);
  EXPECT_TRUE(isThere());
  EXPECT_EQ(controller.services.free(authorization, platform::kAuthorizationFlagDestroyRights),
            platform::errAuthorizationSuccess);
  EXPECT_TRUE(eventually([] { return !isThere(); }));
}

TEST_F(AuthorizationUpgrade, ASecondNameOfTheProgramKeepsTheBroker) {
  BrokerClient client;
  client.services.free(client.create(), platform::kAuthorizationFlagDefaults);
  std::filesystem::create_hard_link(program, program.string() + ".copy");
  std::filesystem::remove(program.string() + ".copy");
  EXPECT_FALSE(eventually([] { return !isThere(); }, std::chrono::milliseconds(300)));
}

}  // namespace
