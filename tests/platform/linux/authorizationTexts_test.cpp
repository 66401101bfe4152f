// The questions that the policy service asks, in all languages of the installer.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <set>

#include "protocol/Broker.h"
#include "tests/support/TemporaryFolder.h"

namespace {

const std::string policy =
    tests::readFile(KELTO_SOURCE_DIR "/platform/linux/authorizationd/com.kelto.authorization.policy");

std::string textOfAction(const std::string& identifier) {
  const auto begin = policy.find("<action id=\"" + identifier + "\">");
  if (begin == std::string::npos) return "";
  return policy.substr(begin, policy.find("</action>", begin) - begin);
}

// The installer's languages, as the policy service spells them.
std::set<std::string> languages() {
  std::set<std::string> found;
  for (const auto& entry : std::filesystem::directory_iterator(KELTO_SOURCE_DIR "/resources")) {
    if (entry.path().extension() != ".lproj") continue;
    std::string name = entry.path().stem().string();
    if (name == "zh-Hans") name = "zh_CN";
    if (const auto dash = name.find('-'); dash != std::string::npos) name[dash] = '_';
    found.insert(name);
  }
  return found;
}

class AuthorizationTexts : public testing::TestWithParam<const char*> {};

TEST_P(AuthorizationTexts, AreThereInEveryLanguageAndNameTheProgramThatAsks) {
  const std::string action = textOfAction(GetParam());
  const std::string program = std::string("$(") + protocol::programDetail + ")";
  ASSERT_EQ(languages().size(), 13U);
  for (const auto& language : languages()) {
    const std::string mark = language == "en" ? ">" : " xml:lang=\"" + language + "\">";
    EXPECT_NE(action.find("<description" + mark), std::string::npos) << language;
    const auto message = action.find("<message" + mark);
    ASSERT_NE(message, std::string::npos) << language;
    EXPECT_THAT(action.substr(message, action.find('\n', message) - message), testing::HasSubstr(program)) << language;
  }
}

TEST_P(AuthorizationTexts, NeverKeepAnAnswer) { EXPECT_EQ(textOfAction(GetParam()).find("_keep"), std::string::npos); }

INSTANTIATE_TEST_SUITE_P(Actions, AuthorizationTexts, testing::Values(protocol::adminAction, protocol::anyProgramAction),
                         [](const auto& action) {
                           return std::string(action.param) == protocol::adminAction ? "Tools" : "AnyProgram";
                         });

}  // namespace
