#include "cli/Change.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "platform/fake/FakePlatform.h"
#include "protocol/Branding.h"
#include "protocol/LaunchArguments.h"

using cli::Change;
using cli::Command;
using platform::Ending;
using testing::ElementsAre;

namespace {

constexpr const char* installed = "/Applications/App.app";
constexpr const char* source = "/new/App.app";

cli::Arguments arguments(Command command, const std::string& bundle, const std::string& place = {}) {
  cli::Arguments given;
  given.command = command;
  given.bundle = bundle;
  given.place = place;
  return given;
}

class ChangeTest : public testing::Test {
 protected:
  void add(const char* path, const char* identifier, const char* version) {
    auto bundle = std::make_shared<platform::fake::FakeBundle>();
    bundle->path = path;
    bundle->info = {{"CFBundleIdentifier", identifier}, {"CFBundleVersion", version}};
    fake.bundles.others[path] = bundle;
    fake.files.addFolder(path);
  }
  std::string causeOf(const Change& change) {
    const auto failure = cli::objectionTo(change, fake.platform);
    return failure ? failure->cause : "";
  }

  platform::fake::FakePlatform fake;
};

}  // namespace

TEST_F(ChangeTest, OfAnInstallationGoesIntoAFolderUnderTheBundlesName) {
  EXPECT_EQ(cli::changeOf(arguments(Command::install, source)).installed, installed);
  EXPECT_EQ(cli::changeOf(arguments(Command::install, source, "/opt")).installed, "/opt/App.app");
}

TEST_F(ChangeTest, OfAnUpdateReplacesTheBundleThatIsNamed) {
  EXPECT_EQ(cli::changeOf(arguments(Command::update, source)).installed, installed);
  EXPECT_EQ(cli::changeOf(arguments(Command::update, source, "/opt/Other.app")).installed, "/opt/Other.app");
}

TEST_F(ChangeTest, StartsTheInstallerAsAControllerWould) {
  const auto key = [](const char* name) { return std::string("-") + name; };
  EXPECT_THAT(cli::launchArguments({Command::update, source, installed}),
              ElementsAre(key(protocol::trashPathArgument), installed, key(protocol::sourcePathArgument), source,
                          key(protocol::isUpdateArgument), "YES"));
  EXPECT_THAT(cli::launchArguments({Command::install, source, installed}),
              ElementsAre(key(protocol::trashPathArgument), installed, key(protocol::sourcePathArgument), source));
  EXPECT_THAT(cli::launchArguments({Command::remove, "", installed}),
              ElementsAre(key(protocol::trashPathArgument), installed));
}

TEST_F(ChangeTest, IsRefusedWhenTheCommandDoesNotFitWhatIsInstalled) {
  add(source, "com.acme.app", "2");
  EXPECT_EQ(causeOf({Command::install, source, installed}), "");
  EXPECT_EQ(causeOf({Command::update, source, installed}), "nothing is installed there: use \"kelto install\"");
  EXPECT_EQ(causeOf({Command::remove, "", installed}), "nothing is installed there");
  add(installed, "com.acme.app", "1");
  EXPECT_EQ(causeOf({Command::install, source, installed}), "something is installed there: use \"kelto update\"");
  EXPECT_EQ(causeOf({Command::update, source, installed}), "");
  EXPECT_EQ(causeOf({Command::remove, "", installed}), "");
}

TEST_F(ChangeTest, IsRefusedWhenAnotherApplicationIsInstalled) {
  add(source, "com.acme.app", "2");
  add(installed, "com.other.app", "1");
  EXPECT_EQ(causeOf({Command::update, source, installed}), "com.other.app is installed there, and not com.acme.app");
}

TEST_F(ChangeTest, AsksAndTellsWithBothVersions) {
  add(source, "com.acme.app", "2");
  add(installed, "com.acme.app", "1");
  const auto update = cli::factsOf({Command::update, source, installed}, fake.bundles);
  EXPECT_EQ(cli::questionAbout(update), "Update /Applications/App.app from 1 to 2?");
  EXPECT_EQ(cli::reportOf(update), "Updated /Applications/App.app from 1 to 2.");
  const auto removal = cli::factsOf({Command::remove, "", installed}, fake.bundles);
  EXPECT_EQ(cli::questionAbout(removal), "Move /Applications/App.app, version 1, to the Trash?");
  EXPECT_EQ(cli::reportOf(removal), "Moved /Applications/App.app to the Trash.");
  const auto installation = cli::factsOf({Command::install, source, "/opt/App.app"}, fake.bundles);
  EXPECT_EQ(cli::questionAbout(installation), "Install /opt/App.app, version 2?");
  EXPECT_EQ(cli::reportOf(installation), "Installed /opt/App.app, version 2.");
}

TEST_F(ChangeTest, TellsOfTheBundleUnderTheNewOnesName) {
  add("/new/App 2.app", "com.acme.app", "2");
  add(installed, "com.acme.app", "1");
  const auto facts = cli::factsOf({Command::update, "/new/App 2.app", installed}, fake.bundles);
  EXPECT_EQ(facts.at("bundle"), foundation::PropertyList::Value("/Applications/App 2.app"));
}

TEST_F(ChangeTest, ToAKeptVersionTakesTheNewestOrTheOneThatIsNamed) {
  add("/kept/2/App.app", "com.acme.app", "2");
  add("/kept/1/App.app", "com.acme.app", "1");
  const std::vector<std::string> kept{"/kept/3/Unreadable.app", "/kept/2/App.app", "/kept/1/App.app"};
  EXPECT_EQ(cli::chosenBundle(kept, std::nullopt, fake.bundles), "/kept/2/App.app");
  EXPECT_EQ(cli::chosenBundle(kept, "1", fake.bundles), "/kept/1/App.app");
  EXPECT_EQ(cli::chosenBundle(kept, "7", fake.bundles), "");
  add(installed, "com.acme.app", "3");
  EXPECT_EQ(causeOf({Command::rollback, "", installed}), "no such version of it is kept");
  EXPECT_EQ(causeOf({Command::rollback, "/kept/2/App.app", installed}), "");
  const auto facts = cli::factsOf({Command::rollback, "/kept/2/App.app", installed}, fake.bundles);
  EXPECT_EQ(cli::questionAbout(facts), "Return /Applications/App.app from 3 to 2?");
  EXPECT_EQ(cli::reportOf(facts), "Returned /Applications/App.app from 3 to 2.");
}

TEST_F(ChangeTest, ShowsNoControlCharactersOfABundle) {
  add(installed, "com.acme.app", "1\033[2J");
  EXPECT_EQ(cli::questionAbout(cli::factsOf({Command::remove, "", installed}, fake.bundles)),
            "Move /Applications/App.app, version 1\\x1b[2J, to the Trash?");
}

TEST_F(ChangeTest, EndsWithItsStatusAndTheCauseOfAFailure) {
  auto facts = cli::factsOf({Command::remove, "", installed}, fake.bundles);
  cli::addEnding(facts, fake.platform.report);
  EXPECT_EQ(facts.at("status"), foundation::PropertyList::Value(0));
  EXPECT_FALSE(facts.contains("cause"));
  fake.platform.report.fail({Ending::refused, "step", "/path", "cause"});
  cli::addEnding(facts, fake.platform.report);
  EXPECT_EQ(facts.at("status"), foundation::PropertyList::Value(4));
  EXPECT_EQ(facts.at("step"), foundation::PropertyList::Value("step"));
  EXPECT_EQ(facts.at("path"), foundation::PropertyList::Value("/path"));
  EXPECT_EQ(facts.at("cause"), foundation::PropertyList::Value("cause"));
}

TEST_F(ChangeTest, IsRefusedByAnInstallerWithABrandThatIsWrong) {
  constexpr const char* brand = "/Apps/Installer.app/Contents/Resources/Branding.plist";
  add(installed, "com.example.App", "1");
  fake.bundles.main.resources["Branding.plist"] = brand;
  fake.files.addFile(brand, "<plist><dict></dict></plist>");
  const auto failure = cli::objectionTo({Command::remove, "", installed}, fake.platform);
  ASSERT_TRUE(failure);
  EXPECT_EQ(failure->ending, Ending::badArguments);
  EXPECT_EQ(failure->cause, std::string("the key ") + protocol::brandingKey::productName + " is missing");
}
