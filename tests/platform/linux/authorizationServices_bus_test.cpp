#include "tests/platform/linux/AuthorizationBroker.h"

namespace tests::authorization {
namespace {

TEST(AuthorizationServices, WithoutABrokerCreatingFailsAndTheCauseSaysWhatToDo) {
  tests::PrivateBus bus;
  Client client;
  AuthorizationRef authorization = 7;
  EXPECT_EQ(client.services.create(0, authorization), errAuthorizationInternal);
  EXPECT_EQ(client.services.createFromExternalForm({}, authorization), errAuthorizationInternal);
  EXPECT_EQ(authorization, 7U);
  EXPECT_THAT(client.services.cause(), HasSubstr(std::string("install ") + protocol::brokerBusName));
}

TEST(AuthorizationServices, WithoutAnyBusCreatingFails) {
  tests::PrivateBus bus;
  bus.stop();
  Client client;
  AuthorizationRef authorization = 0;
  EXPECT_EQ(client.services.create(0, authorization), errAuthorizationInternal);
  EXPECT_NE(client.services.cause(), "");
}

TEST(AuthorizationLifetimes, AFormIsRefusedAfterItsTime) {
  tests::PrivateBus bus{{{brokerName, brokerProgram + " --session --form-seconds 1"}}};
  Client controller;
  Client installer;
  const AuthorizationRef authorization = controller.create();
  std::vector<AuthorizationExternalForm> forms(16);
  for (auto& form : forms) form = controller.exported(authorization);
  AuthorizationRef adopted = 0;
  EXPECT_EQ(installer.services.createFromExternalForm(forms.back(), adopted), errAuthorizationSuccess);
  // Each of the others is good once, until its time is over.
  const auto start = std::chrono::steady_clock::now();
  ASSERT_TRUE(tests::eventually([&] { return std::chrono::steady_clock::now() - start > 1s; }));
  EXPECT_EQ(installer.services.createFromExternalForm(forms.front(), adopted), errAuthorizationDenied);
}

TEST(AuthorizationLifetimes, TheRightEndsAfterItsTimeAndIsAskedForAgain) {
  tests::PrivateBus bus{{{brokerName, brokerProgram + " --session --right-seconds 1"}}};
  Client controller;
  const AuthorizationRef authorization = controller.create();
  EXPECT_EQ(controller.copyRight(authorization, 18), errAuthorizationSuccess);
  EXPECT_TRUE(tests::eventually([&] { return controller.copyRight(authorization, 0) == errAuthorizationDenied; }));
  EXPECT_EQ(controller.copyRight(authorization, 18), errAuthorizationSuccess);
}

TEST(AuthorizationLifetimes, TheBrokerLeavesWhenIdleAndStaysWhileAHandleIsHeld) {
  tests::PrivateBus bus{{{brokerName, brokerProgram + " --session --idle-seconds 1"}}};
  auto held = std::make_unique<Client>();
  held->create();
  const auto start = std::chrono::steady_clock::now();
  ASSERT_TRUE(tests::eventually([&] { return !isOwned(brokerName) || std::chrono::steady_clock::now() - start > 1500ms; }));
  EXPECT_TRUE(isOwned(brokerName));
  held.reset();
  EXPECT_TRUE(tests::eventually([] { return !isOwned(brokerName); }));
  Client next;
  EXPECT_NE(next.create(), 0U);
}

}  // namespace
}  // namespace tests::authorization
