#include "posix/Descriptor.h"
#include "tests/platform/linux/AuthorizationBroker.h"

namespace tests::authorization {
namespace {

TEST_F(AuthorizationBroker, IsStartedByTheBusOnDemand) {
  EXPECT_FALSE(isOwned(brokerName));
  EXPECT_NE(controller.create(), 0U);
  EXPECT_TRUE(isOwned(brokerName));
}

TEST_F(AuthorizationBroker, GrantsTheUsersOwnRightsWithoutInteraction) {
  EXPECT_EQ(controller.copyRight(controller.create(), 18), errAuthorizationSuccess);
}

TEST_F(AuthorizationBroker, GrantsNothingWithoutTheFlagThatExtendsRights) {
  const AuthorizationRef authorization = controller.create();
  EXPECT_EQ(controller.copyRight(authorization, 0), errAuthorizationDenied);
  EXPECT_EQ(controller.copyRight(authorization, 2), errAuthorizationSuccess);
  EXPECT_EQ(controller.copyRight(authorization, 0), errAuthorizationSuccess);
}

TEST_F(AuthorizationBroker, DeniesEveryOtherRight) {
  const AuthorizationRef authorization = authorized(controller);
  EXPECT_EQ(controller.copyRight(authorization, 19, "system.privilege.taskport"), errAuthorizationDenied);
  EXPECT_EQ(controller.copyRight(authorization, 19, ""), errAuthorizationDenied);
  EXPECT_EQ(controller.copyRight(authorization, 19, nullptr), errAuthorizationDenied);
}

TEST_F(AuthorizationBroker, HandsASessionFromOneConnectionToAnother) {
  EXPECT_EQ(installer.copyRight(adopted(authorized(controller)), 0), errAuthorizationSuccess);
}

TEST_F(AuthorizationBroker, RefusesARandomFormAndLeavesTheOutputUntouched) {
  authorized(controller);
  AuthorizationRef adopted = 7;
  EXPECT_EQ(installer.services.createFromExternalForm({}, adopted), errAuthorizationDenied);
  EXPECT_EQ(adopted, 7U);
}

TEST_F(AuthorizationBroker, AHandleIsOfNoUseToAnotherConnection) {
  const AuthorizationRef authorization = authorized(controller);
  installer.create();
  EXPECT_EQ(installer.copyRight(authorization, 18), errAuthorizationInvalidRef);
  AuthorizationExternalForm form;
  EXPECT_EQ(installer.services.makeExternalForm(authorization, form), errAuthorizationInvalidRef);
  EXPECT_EQ(installer.services.free(authorization, 8), errAuthorizationInvalidRef);
}

TEST_F(AuthorizationBroker, AHandleDiesWithItsConnection) {
  auto gone = std::make_unique<Client>();
  const auto form = gone->exported(authorized(*gone));
  gone.reset();
  AuthorizationRef adopted = 0;
  EXPECT_TRUE(tests::eventually(
      [&] { return installer.services.createFromExternalForm(form, adopted) == errAuthorizationDenied; }));
}

TEST_F(AuthorizationBroker, FreeThatDestroysEndsTheRightForTheOtherHolder) {
  const AuthorizationRef authorization = authorized(controller);
  EXPECT_EQ(installer.services.free(adopted(authorization), kAuthorizationFlagDestroyRights), errAuthorizationSuccess);
  EXPECT_EQ(controller.copyRight(authorization, 0), errAuthorizationDenied);
}

TEST_F(AuthorizationBroker, FreeWithDefaultsLeavesTheRightToTheOtherHolder) {
  const AuthorizationRef authorization = authorized(controller);
  EXPECT_EQ(installer.services.free(adopted(authorization), kAuthorizationFlagDefaults), errAuthorizationSuccess);
  EXPECT_EQ(controller.copyRight(authorization, 0), errAuthorizationSuccess);
}

TEST_F(AuthorizationBroker, NoReferenceIsInvalidWithoutACall) {
  AuthorizationExternalForm form;
  std::unique_ptr<ByteStream> stream;
  EXPECT_EQ(controller.services.makeExternalForm(0, form), errAuthorizationInvalidRef);
  EXPECT_EQ(controller.copyRight(0, 18), errAuthorizationInvalidRef);
  EXPECT_EQ(controller.services.free(0, 8), errAuthorizationInvalidRef);
  EXPECT_EQ(controller.execute(0, probe(), stream), errAuthorizationInvalidRef);
  EXPECT_EQ(controller.blockingCall.count, 0);
}

TEST_F(AuthorizationBroker, AFormForAProcessIsGoodForThatProcessOnce) {
  const AuthorizationRef authorization = authorized(controller);
  const posix::Descriptor self(static_cast<int>(::syscall(SYS_pidfd_open, ::getpid(), 0)));
  AuthorizationExternalForm form;
  ASSERT_EQ(controller.services.makeExternalFormFor(authorization, self.get(), form), errAuthorizationSuccess);
  AuthorizationRef adopted = 0;
  EXPECT_EQ(installer.services.createFromExternalForm(form, adopted), errAuthorizationSuccess);
  EXPECT_EQ(installer.services.createFromExternalForm(form, adopted), errAuthorizationDenied);
}

TEST_F(AuthorizationBroker, AFormForAnotherProcessIsRefusedLikeAWrongOne) {
  const AuthorizationRef authorization = authorized(controller);
  const posix::Descriptor parent(static_cast<int>(::syscall(SYS_pidfd_open, ::getppid(), 0)));
  AuthorizationExternalForm form;
  ASSERT_EQ(controller.services.makeExternalFormFor(authorization, parent.get(), form), errAuthorizationSuccess);
  AuthorizationRef adopted = 0;
  EXPECT_EQ(installer.services.createFromExternalForm(form, adopted), errAuthorizationDenied);
  const std::string cause = installer.services.cause();
  EXPECT_EQ(installer.services.createFromExternalForm({}, adopted), errAuthorizationDenied);
  EXPECT_EQ(installer.services.cause(), cause);
}

TEST_F(AuthorizationBroker, RefusesToMakeAFormForADescriptorThatNamesNoProcess) {
  const posix::Descriptor folder(::open("/", O_PATH | O_CLOEXEC));
  AuthorizationExternalForm form;
  EXPECT_EQ(controller.services.makeExternalFormFor(authorized(controller), folder.get(), form), errAuthorizationDenied);
}

}  // namespace
}  // namespace tests::authorization
