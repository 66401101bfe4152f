#include "privileged/KMAuthorization.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <thread>

#include "platform/fake/FakePlatform.h"

using foundation::PropertyList::Data;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

Data dataOfLength(std::size_t length, unsigned char first = 1) {
  Data data;
  for (std::size_t i = 0; i < length; ++i) data.push_back(std::byte(first + i));
  return data;
}

class KMAuthorizationTest : public testing::Test {
 protected:
  static constexpr const char* toolPath = "/Apps/Installer.app/Contents/Resources/assistantTool";

  void addTool(const std::string& name, const std::string& path) {
    fake.bundles.main.resources[name] = path;
    fake.files.addFile(path, {}, true);
  }

  void SetUp() override {
    addTool("assistantTool", toolPath);
    platform::AuthorizationExternalForm form;
    const Data bytes = dataOfLength(form.bytes.size());
    std::copy(bytes.begin(), bytes.end(), form.bytes.begin());
    fake.authorization.addForeignForm(form);
  }

  std::vector<std::string>& calls() { return fake.authorization.calls; }

  platform::fake::FakePlatform fake;
};

}  // namespace

TEST_F(KMAuthorizationTest, SharedInstanceIsMadeOnceWithDefaultFlags) {
  KMAuthorization* first = KMAuthorization::sharedInstance();
  ASSERT_NE(first, nullptr);
  EXPECT_EQ(KMAuthorization::sharedInstance(), first);
  EXPECT_THAT(calls(), ElementsAre("create 0"));
}

TEST_F(KMAuthorizationTest, SharedInstanceIsTheSameFromManyThreads) {
  std::vector<KMAuthorization*> seen(8);
  std::vector<std::thread> threads;
  for (auto& place : seen) threads.emplace_back([&place] { place = KMAuthorization::sharedInstance(); });
  for (auto& thread : threads) thread.join();
  EXPECT_THAT(seen, testing::Each(KMAuthorization::sharedInstance()));
  EXPECT_THAT(calls(), ElementsAre("create 0"));
}

TEST_F(KMAuthorizationTest, AFailedCreationIsFinalForTheProcess) {
  fake.authorization.createStatus = platform::errAuthorizationInternal;
  EXPECT_EQ(KMAuthorization::sharedInstance(), nullptr);
  fake.authorization.createStatus = platform::errAuthorizationSuccess;
  EXPECT_EQ(KMAuthorization::sharedInstance(), nullptr);
  EXPECT_THAT(calls(), ElementsAre("create 0"));
}

TEST_F(KMAuthorizationTest, TheRightIsTheAdministratorRightWithTheToolPathAsValue) {
  const auto session = KMAuthorization::init(fake.platform);
  ASSERT_EQ(session->rights().count, 1U);
  const auto& item = session->rights().items[0];
  EXPECT_STREQ(item.name, platform::kAuthorizationRightExecute);
  EXPECT_EQ(item.flags, 0U);
  EXPECT_EQ(item.valueLength, std::string(toolPath).size());
  EXPECT_STREQ(static_cast<const char*>(item.value), toolPath);
  EXPECT_EQ(session->toolName(), "assistantTool");
}

TEST_F(KMAuthorizationTest, ASecondEqualToolNameKeepsTheBufferAndDoesNotResolveAgain) {
  const auto session = KMAuthorization::init(fake.platform);
  const void* buffer = session->rights().items[0].value;
  addTool("assistantTool", "/elsewhere/assistantTool");
  session->setToolName("assistantTool");
  EXPECT_EQ(session->rights().items[0].value, buffer);
  EXPECT_STREQ(static_cast<const char*>(buffer), toolPath);
}

TEST_F(KMAuthorizationTest, ANewToolNamePointsTheRightAtItsPath) {
  addTool("otherTool", "/Apps/otherTool");
  const auto session = KMAuthorization::init(fake.platform);
  session->setToolName("otherTool");
  EXPECT_STREQ(static_cast<const char*>(session->rights().items[0].value), "/Apps/otherTool");
  EXPECT_EQ(session->rights().items[0].valueLength, 15U);
}

TEST_F(KMAuthorizationTest, AToolNameWithoutExecutableEmptiesTheValueAndStillAsksForTheRight) {
  const auto session = KMAuthorization::init(fake.platform);
  const void* buffer = session->rights().items[0].value;
  session->setToolName("noSuchTool");
  EXPECT_EQ(session->rights().items[0].valueLength, 0U);
  EXPECT_EQ(session->rights().items[0].value, buffer);
  EXPECT_TRUE(session->authorizeForRootWithPrompt_preauthorize_allowInteraction("", true, false));
  EXPECT_EQ(calls().back(), platform::fake::copiedRights(1, 18));
  EXPECT_EQ(fake.authorization.rightValue, "");
}

TEST_F(KMAuthorizationTest, ExternalRightsAreThe32BytesOfTheExternalForm) {
  const Data form = dataOfLength(32);
  std::copy(form.begin(), form.end(), fake.authorization.externalForm.emplace().bytes.begin());
  EXPECT_EQ(KMAuthorization::init(fake.platform)->externalRights(), form);
}

TEST_F(KMAuthorizationTest, ExternalRightsAreNothingWhenTheyCannotBeMade) {
  fake.authorization.makeExternalFormStatus = platform::errAuthorizationInternal;
  EXPECT_EQ(KMAuthorization::init(fake.platform)->externalRights(), std::nullopt);
}

TEST_F(KMAuthorizationTest, AuthorizingComposesTheFlags) {
  const auto session = KMAuthorization::init(fake.platform);
  const auto flagsFor = [&](bool preauthorize, bool interaction) {
    session->authorizeForRootWithPrompt_preauthorize_allowInteraction("", preauthorize, interaction);
    return calls().back();
  };
  EXPECT_EQ(flagsFor(true, false), platform::fake::copiedRights(1, 18));
  EXPECT_EQ(flagsFor(true, true), platform::fake::copiedRights(1, 19));
  EXPECT_EQ(flagsFor(false, false), platform::fake::copiedRights(1, 2));
  EXPECT_EQ(flagsFor(false, true), platform::fake::copiedRights(1, 3));
}

TEST_F(KMAuthorizationTest, AuthorizingIgnoresItsPrompt) {
  const auto session = KMAuthorization::init(fake.platform);
  session->authorizeForRootWithPrompt_preauthorize_allowInteraction("", true, true);
  const auto without = calls().back();
  session->authorizeForRootWithPrompt_preauthorize_allowInteraction("Give me root", true, true);
  EXPECT_EQ(calls().back(), without);
}

TEST_F(KMAuthorizationTest, AuthorizingSucceedsOnlyOnStatusZero) {
  const auto session = KMAuthorization::init(fake.platform);
  for (const auto status : {platform::errAuthorizationDenied, platform::errAuthorizationCanceled, 1}) {
    fake.authorization.copyRightsStatus = status;
    EXPECT_FALSE(session->authorizeForRootWithPrompt_preauthorize_allowInteraction("", true, true));
  }
}

TEST_F(KMAuthorizationTest, ReleasingDestroysTheRightsByDefault) {
  const auto session = KMAuthorization::init(fake.platform);
  EXPECT_TRUE(session->releaseRights());
  EXPECT_EQ(calls().back(), "free 1 8");
}

TEST_F(KMAuthorizationTest, ReleasingWithDefaultFlagsOnlyDropsTheHandle) {
  const auto session = KMAuthorization::init(fake.platform);
  EXPECT_FALSE(session->useDefaultFlags());
  session->setUseDefaultFlags(true);
  EXPECT_TRUE(session->releaseRights());
  EXPECT_EQ(calls().back(), "free 1 0");
}

TEST_F(KMAuthorizationTest, ReleasingAgainReturnsTrueAndCallsNothing) {
  const auto session = KMAuthorization::init(fake.platform);
  session->releaseRights();
  calls().clear();
  EXPECT_TRUE(session->releaseRights());
  EXPECT_THAT(calls(), IsEmpty());
}

TEST_F(KMAuthorizationTest, AFailedFreeIsReportedAndDropsTheHandleAllTheSame) {
  const auto session = KMAuthorization::init(fake.platform);
  fake.authorization.freeStatus = platform::errAuthorizationInternal;
  EXPECT_FALSE(session->releaseRights());
  EXPECT_TRUE(session->releaseRights());
}

TEST_F(KMAuthorizationTest, AfterReleaseNothingIsExportedAndAuthorizingFails) {
  const auto session = KMAuthorization::init(fake.platform);
  session->releaseRights();
  EXPECT_EQ(session->externalRights(), std::nullopt);
  EXPECT_FALSE(session->authorizeForRootWithPrompt_preauthorize_allowInteraction("", true, true));
}

TEST_F(KMAuthorizationTest, AdoptingDestroysTheRightsHeldBeforeAndThenImports) {
  const auto session = KMAuthorization::init(fake.platform);
  session->setExternalRights(dataOfLength(32));
  EXPECT_THAT(calls(), ElementsAre("create 0", "free 1 8", "createFromExternalForm"));
  session->authorizeForRootWithPrompt_preauthorize_allowInteraction("", true, false);
  EXPECT_EQ(calls().back(), platform::fake::copiedRights(2, 18));
}

TEST_F(KMAuthorizationTest, AdoptingTakesTheFirst32Bytes) {
  const auto session = KMAuthorization::init(fake.platform);
  const Data data = dataOfLength(40);
  session->setExternalRights(data);
  EXPECT_TRUE(
      std::equal(fake.authorization.adoptedForm.bytes.begin(), fake.authorization.adoptedForm.bytes.end(), data.begin()));
}

TEST_F(KMAuthorizationTest, ShorterDataIsRefusedAndLeavesNoSession) {
  for (const std::size_t length : {0, 1, 31}) {
    const auto session = KMAuthorization::init(fake.platform);
    calls().clear();
    // On the heap at its exact size, so that a sanitizer sees a read past its end.
    session->setExternalRights(dataOfLength(length));
    EXPECT_THAT(calls(), testing::Not(testing::Contains("createFromExternalForm")));
    EXPECT_FALSE(session->authorizeForRootWithPrompt_preauthorize_allowInteraction("", true, false));
  }
}

TEST_F(KMAuthorizationTest, AFormIsNotAdoptedWhenTheFormerSessionCouldNotBeFreed) {
  const auto session = KMAuthorization::init(fake.platform);
  fake.authorization.freeStatus = platform::errAuthorizationInternal;
  session->setExternalRights(dataOfLength(32));
  EXPECT_THAT(calls(), ElementsAre("create 0", "free 1 8"));
  EXPECT_FALSE(session->authorizeForRootWithPrompt_preauthorize_allowInteraction("", true, false));
}

TEST_F(KMAuthorizationTest, AFormThatIsNotGoodLeavesNoSession) {
  const auto session = KMAuthorization::init(fake.platform);
  fake.authorization.createFromExternalFormStatus = platform::errAuthorizationDenied;
  session->setExternalRights(dataOfLength(32));
  EXPECT_FALSE(session->authorizeForRootWithPrompt_preauthorize_allowInteraction("", true, false));
  EXPECT_EQ(calls().back(), platform::fake::copiedRights(0, 18));
}

TEST_F(KMAuthorizationTest, AnObjectKeepsToThePlatformItWasMadeWith) {
  const auto session = KMAuthorization::init(fake.platform);
  platform::fake::FakePlatform other;
  EXPECT_TRUE(session->authorizeForRootWithPrompt_preauthorize_allowInteraction("", true, false));
  EXPECT_TRUE(session->externalRights());
  session->setToolName("otherTool");
  EXPECT_TRUE(session->releaseRights());
  EXPECT_THAT(other.authorization.calls, IsEmpty());
  EXPECT_EQ(calls().size(), 4U);
}

TEST_F(KMAuthorizationTest, TheRightsAreReleasedWhenTheApplicationTerminates) {
  ASSERT_NE(KMAuthorization::sharedInstance(), nullptr);
  fake.notificationCenter.post({std::string(foundation::applicationWillTerminateNotification), "", {}});
  EXPECT_EQ(calls().back(), "free 1 8");
}

TEST_F(KMAuthorizationTest, RightsThatAreNotGoodAreReportedWithTheBrokersReason) {
  fake.authorization.createFromExternalFormStatus = platform::errAuthorizationDenied;
  fake.authorization.failureCause = "the form has been used";
  const auto session = KMAuthorization::init(fake.platform);
  session->setExternalRights(foundation::PropertyList::Data(32, std::byte{1}));
  EXPECT_FALSE(session->authorizeForRootWithPrompt_preauthorize_allowInteraction("", true, false));
  EXPECT_EQ(
      fake.systemLog.lines,
      std::vector<std::string>{"Refused (status 4): step \"take over the rights\", cause: the right is denied: the form "
                               "has been used"});
}
