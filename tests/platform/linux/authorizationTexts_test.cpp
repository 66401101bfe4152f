// The questions that the policy service asks, in all languages of the installer.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <set>
#include <string>

#include "protocol/Broker.h"
#include "tests/support/ShippedLanguages.h"
#include "tests/support/TemporaryFolder.h"

namespace {

const std::string policy =
    tests::readFile(KELTO_SOURCE_DIR "/platform/linux/authorizationd/com.kelto.authorization.policy");

std::string textOfAction(const std::string& identifier) {
  const auto begin = policy.find("<action id=\"" + identifier + "\">");
  if (begin == std::string::npos) return "";
  return policy.substr(begin, policy.find("</action>", begin) - begin);
}

// The installer's languages, as the policy service spells them. It knows no scripts, so that every country of traditional
// Chinese has its texts.
std::set<std::string> languages() {
  std::set<std::string> found{"zh_HK"};
  for (std::string name : tests::shippedLanguages) {
    if (name == "zh-Hans") name = "zh_CN";
    if (name == "zh-Hant") name = "zh_TW";
    if (name == "sr-Latn") name = "sr@latin";
    if (const auto dash = name.find('-'); dash != std::string::npos) name[dash] = '_';
    found.insert(name);
  }
  return found;
}

// The content of the one element of that name and language; nothing if there is not exactly one.
std::string contentOf(const std::string& action, const std::string& element, const std::string& language) {
  const std::string begin = "<" + element + (language == "en" ? ">" : " xml:lang=\"" + language + "\">");
  const auto place = action.find(begin);
  if (place == std::string::npos || action.find(begin, place + 1) != std::string::npos) return "";
  const auto content = place + begin.size();
  return action.substr(content, action.find("</" + element + ">", content) - content);
}

class AuthorizationTexts : public testing::TestWithParam<const char*> {};

TEST_P(AuthorizationTexts, AreThereInEveryLanguageAndNameTheProgramThatAsks) {
  const std::string action = textOfAction(GetParam());
  const std::string program = std::string("$(") + protocol::programDetail + ")";
  for (const auto& language : languages()) {
    const std::string description = contentOf(action, "description", language);
    EXPECT_THAT(description, testing::Not(testing::HasSubstr("$"))) << language;
    EXPECT_FALSE(description.empty()) << language;
    const std::string message = contentOf(action, "message", language);
    EXPECT_THAT(message, testing::HasSubstr(program)) << language;
    EXPECT_EQ(std::ranges::count(message, '$'), 1) << language;
  }
}

TEST_P(AuthorizationTexts, AreTranslated) {
  const std::string action = textOfAction(GetParam());
  for (const char* element : {"description", "message"})
    for (const auto& language : languages()) {
      if (language.starts_with("en")) continue;
      EXPECT_NE(contentOf(action, element, language), contentOf(action, element, "en")) << language;
    }
}

TEST_P(AuthorizationTexts, AreInNoOtherLanguage) {
  const std::string action = textOfAction(GetParam());
  const std::string mark = "xml:lang=\"";
  for (auto place = action.find(mark); place != std::string::npos; place = action.find(mark, place + 1)) {
    const auto begin = place + mark.size();
    EXPECT_TRUE(languages().contains(action.substr(begin, action.find('"', begin) - begin))) << action.substr(begin, 20);
  }
}

TEST_P(AuthorizationTexts, NeverKeepAnAnswer) { EXPECT_EQ(textOfAction(GetParam()).find("_keep"), std::string::npos); }

INSTANTIATE_TEST_SUITE_P(Actions, AuthorizationTexts, testing::Values(protocol::adminAction, protocol::anyProgramAction),
                         [](const auto& action) {
                           return std::string(action.param) == protocol::adminAction ? "Tools" : "AnyProgram";
                         });

}  // namespace
