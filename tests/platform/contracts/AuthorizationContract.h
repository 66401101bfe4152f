#pragma once
// The contract of AuthorizationServices and ByteStream.
//
// A World has: `services()` and `other()`, of two programs of one user; `tool()`, the path of an executable that answers
// the line "print 6" with six letters x and then ends.
#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "platform/Authorization.h"

namespace tests::contracts {

using platform::AuthorizationRef;
using platform::AuthorizationStatus;

template <class World>
class AuthorizationContract : public testing::Test {
 protected:
  static constexpr auto silently = platform::kAuthorizationFlagExtendRights | platform::kAuthorizationFlagPreAuthorize;

  AuthorizationRef create() {
    AuthorizationRef authorization = 0;
    EXPECT_EQ(world.services().create(platform::kAuthorizationFlagDefaults, authorization),
              platform::errAuthorizationSuccess);
    return authorization;
  }
  static AuthorizationStatus copyRight(platform::AuthorizationServices& services, AuthorizationRef authorization,
                                       platform::AuthorizationFlags flags,
                                       const char* right = platform::kAuthorizationRightExecute) {
    platform::AuthorizationItem item{.name = right};
    return services.copyRights(authorization, {.count = 1, .items = &item}, flags);
  }
  AuthorizationRef authorized() {
    const AuthorizationRef authorization = create();
    EXPECT_EQ(copyRight(world.services(), authorization, silently), platform::errAuthorizationSuccess);
    return authorization;
  }
  // The session in the other program.
  AuthorizationRef handedOver(AuthorizationRef authorization) {
    platform::AuthorizationExternalForm form;
    EXPECT_EQ(world.services().makeExternalForm(authorization, form), platform::errAuthorizationSuccess);
    AuthorizationRef adopted = 0;
    EXPECT_EQ(world.other().createFromExternalForm(form, adopted), platform::errAuthorizationSuccess);
    return adopted;
  }
  AuthorizationStatus execute(AuthorizationRef authorization, std::unique_ptr<platform::ByteStream>& stream) {
    return world.services().executeWithPrivileges(authorization, world.tool(), platform::kAuthorizationFlagDefaults,
                                                  stream);
  }

  World world;
};

TYPED_TEST_SUITE_P(AuthorizationContract);

TYPED_TEST_P(AuthorizationContract, EverySessionHasAHandleOfItsOwn) {
  const AuthorizationRef first = this->create();
  const AuthorizationRef second = this->create();
  EXPECT_NE(first, 0U);
  EXPECT_NE(second, 0U);
  EXPECT_NE(first, second);
}

TYPED_TEST_P(AuthorizationContract, AnUnknownHandleIsRefusedByEveryCall) {
  platform::AuthorizationExternalForm form;
  std::unique_ptr<platform::ByteStream> stream;
  auto& services = this->world.services();
  EXPECT_EQ(services.makeExternalForm(0, form), platform::errAuthorizationInvalidRef);
  EXPECT_EQ(this->copyRight(services, 0, this->silently), platform::errAuthorizationInvalidRef);
  EXPECT_EQ(services.free(0, platform::kAuthorizationFlagDefaults), platform::errAuthorizationInvalidRef);
  EXPECT_EQ(this->execute(0, stream), platform::errAuthorizationInvalidRef);
  EXPECT_EQ(stream, nullptr);
}

TYPED_TEST_P(AuthorizationContract, TheRightIsGrantedWhenItMayBeExtendedAndHeldFromThenOn) {
  const AuthorizationRef authorization = this->create();
  auto& services = this->world.services();
  EXPECT_EQ(this->copyRight(services, authorization, 0), platform::errAuthorizationDenied);
  EXPECT_EQ(this->copyRight(services, authorization, this->silently), platform::errAuthorizationSuccess);
  EXPECT_EQ(this->copyRight(services, authorization, 0), platform::errAuthorizationSuccess);
}

TYPED_TEST_P(AuthorizationContract, NoOtherRightIsGranted) {
  const AuthorizationRef authorization = this->create();
  auto& services = this->world.services();
  EXPECT_EQ(this->copyRight(services, authorization, this->silently, "system.privilege.taskport"),
            platform::errAuthorizationDenied);
  EXPECT_EQ(this->copyRight(services, authorization, this->silently, ""), platform::errAuthorizationDenied);
  EXPECT_EQ(this->copyRight(services, authorization, this->silently, nullptr), platform::errAuthorizationDenied);
}

TYPED_TEST_P(AuthorizationContract, ASessionIsHandedOverWithItsRight) {
  const AuthorizationRef adopted = this->handedOver(this->authorized());
  EXPECT_NE(adopted, 0U);
  EXPECT_EQ(this->copyRight(this->world.other(), adopted, 0), platform::errAuthorizationSuccess);
}

TYPED_TEST_P(AuthorizationContract, AFormThatNobodyMadeIsRefusedAndLeavesTheOutputAlone) {
  AuthorizationRef adopted = 7;
  EXPECT_EQ(this->world.services().createFromExternalForm({}, adopted), platform::errAuthorizationDenied);
  EXPECT_EQ(adopted, 7U);
}

TYPED_TEST_P(AuthorizationContract, FreeingEndsTheHandle) {
  const AuthorizationRef authorization = this->authorized();
  auto& services = this->world.services();
  EXPECT_EQ(services.free(authorization, platform::kAuthorizationFlagDefaults), platform::errAuthorizationSuccess);
  EXPECT_EQ(this->copyRight(services, authorization, 0), platform::errAuthorizationInvalidRef);
  EXPECT_EQ(services.free(authorization, platform::kAuthorizationFlagDefaults), platform::errAuthorizationInvalidRef);
}

TYPED_TEST_P(AuthorizationContract, FreeingWithDestructionEndsTheRightForAllWhoShareTheSession) {
  const AuthorizationRef authorization = this->authorized();
  const AuthorizationRef adopted = this->handedOver(authorization);
  EXPECT_EQ(this->world.other().free(adopted, platform::kAuthorizationFlagDestroyRights),
            platform::errAuthorizationSuccess);
  EXPECT_EQ(this->copyRight(this->world.services(), authorization, 0), platform::errAuthorizationDenied);
}

TYPED_TEST_P(AuthorizationContract, FreeingWithDefaultsLeavesTheRightToTheOthers) {
  const AuthorizationRef authorization = this->authorized();
  const AuthorizationRef adopted = this->handedOver(authorization);
  EXPECT_EQ(this->world.other().free(adopted, platform::kAuthorizationFlagDefaults), platform::errAuthorizationSuccess);
  EXPECT_EQ(this->copyRight(this->world.services(), authorization, 0), platform::errAuthorizationSuccess);
}

TYPED_TEST_P(AuthorizationContract, AToolIsNotRunWithoutTheRight) {
  std::unique_ptr<platform::ByteStream> stream;
  EXPECT_EQ(this->execute(this->create(), stream), platform::errAuthorizationDenied);
  EXPECT_EQ(stream, nullptr);
}

TYPED_TEST_P(AuthorizationContract, AToolTakesWhatIsWrittenAndItsAnswerEnds) {
  std::unique_ptr<platform::ByteStream> stream;
  ASSERT_EQ(this->execute(this->authorized(), stream), platform::errAuthorizationSuccess);
  ASSERT_NE(stream, nullptr);
  EXPECT_EQ(stream->write("print 6\n", 8), 8U);
  std::string answer;
  char buffer[3];
  while (const std::size_t got = stream->read(buffer, sizeof buffer)) {
    EXPECT_LE(got, sizeof buffer);
    answer.append(buffer, got);
  }
  EXPECT_EQ(answer, "xxxxxx");
  EXPECT_EQ(stream->read(buffer, sizeof buffer), 0U);
}

REGISTER_TYPED_TEST_SUITE_P(AuthorizationContract, EverySessionHasAHandleOfItsOwn, AnUnknownHandleIsRefusedByEveryCall,
                            TheRightIsGrantedWhenItMayBeExtendedAndHeldFromThenOn, NoOtherRightIsGranted,
                            ASessionIsHandedOverWithItsRight, AFormThatNobodyMadeIsRefusedAndLeavesTheOutputAlone,
                            FreeingEndsTheHandle, FreeingWithDestructionEndsTheRightForAllWhoShareTheSession,
                            FreeingWithDefaultsLeavesTheRightToTheOthers, AToolIsNotRunWithoutTheRight,
                            AToolTakesWhatIsWrittenAndItsAnswerEnds);

}  // namespace tests::contracts
