#include "app/Branding.h"

#include "protocol/ToolProtocol.h"
#include "tests/app/InstallerFixture.h"

using namespace tests;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

namespace {

namespace keys = protocol::brandingKey;

constexpr const char* path = "/Apps/Installer.app/Contents/Resources/Branding.plist";

using foundation::PropertyList::Dictionary;

class BrandingTest : public KMInstallerAppDelegateTest {
 protected:
  BrandingTest() { fake.bundles.main.info.insert_or_assign("CFBundleIdentifier", "com.acme.editor.installer"); }

  void brand(const std::string& bytes) {
    fake.bundles.main.resources["Branding.plist"] = path;
    fake.files.addFile(path, bytes);
  }
  void brand(const Dictionary& values) { brand(foundation::PropertyList::serializeXML(values)); }

  static Dictionary acme() {
    return {{keys::productName, "Acme Editor"},
            {keys::identifier, "com.acme.editor.installer"},
            {keys::defaultsDomain, "com.acme.editor"},
            {keys::serverName, "Acme Server"},
            {keys::serverLabel, "com.acme.editor.server"},
            {keys::serverProgram, "Application Support/Acme/AcmeServer"},
            {keys::serverDefinition, "LaunchDaemons/com.acme.editor.server.plist"},
            {keys::serverMarker, "/Users/Shared/Acme/Shares.plist"}};
  }
  void installAcmesServer() {
    fake.files.addFile("/Users/Shared/Acme/Shares.plist");
    fake.files.addFile("/Library/LaunchDaemons/com.acme.editor.server.plist");
    fake.files.addFile("/Library/Application Support/Acme/AcmeServer");
    fake.services.jobs["com.acme.editor.server"] = {{"Label", "com.acme.editor.server"}, {"PID", 42}};
  }

  // The run ends at once, with this cause and the exit status for bad arguments, and nothing is shown.
  void expectRefusal(const std::string& bytes, const std::string& cause) {
    brand(bytes);
    platform::Failure failure;
    EXPECT_FALSE(brandingOf(fake.platform, failure)) << cause;
    EXPECT_EQ(failure.ending, platform::Ending::badArguments);
    EXPECT_EQ(failure.path, path);
    EXPECT_THAT(failure.cause, HasSubstr(cause));
  }
  void expectRefusal(const Dictionary& values, const std::string& cause) {
    expectRefusal(foundation::PropertyList::serializeXML(values), cause);
  }
};

}  // namespace

TEST_F(BrandingTest, IsKeltosWithoutTheFile) {
  platform::Failure failure;
  EXPECT_EQ(brandingOf(fake.platform, failure), protocol::Branding());
}

TEST_F(BrandingTest, NamesTheServerAndThePreferencesOfAnUpdate) {
  brand(acme());
  installAcmesServer();
  launchUpdate();
  authorize();
  EXPECT_THAT(tool.commands(), ElementsAre(protocol::replaceItemCommand, protocol::upgradeServerCommand));
  EXPECT_THAT(fake.shell.commandLines, ElementsAre("defaults write com.acme.editor LibraryServerVersion 2"));
}

TEST_F(BrandingTest, LeavesKeltosOwnServerAlone) {
  brand(acme());
  installLibraryServer();
  launchUpdate();
  authorize();
  EXPECT_THAT(tool.commands(), ElementsAre(protocol::replaceItemCommand));
}

TEST_F(BrandingTest, WithoutAServerUpgradesNone) {
  auto values = acme();
  std::erase_if(values, [](const auto& each) { return each.first.starts_with("Server"); });
  brand(values);
  installLibraryServer();
  installAcmesServer();
  launchUpdate();
  EXPECT_FALSE(delegate.libraryServerInstalled());
}

TEST_F(BrandingTest, ThatIsWrongEndsTheRunBeforeAnythingIsShown) {
  auto values = acme();
  values.erase(keys::productName);
  brand(values);
  launchUpdate();
  EXPECT_TRUE(fake.application.isTerminated);
  EXPECT_THAT(fake.application.alerts, IsEmpty());
  EXPECT_FALSE(fake.journal.contains("window"));
  EXPECT_EQ(fake.platform.report.ending(), platform::Ending::badArguments);
  EXPECT_THAT(fake.systemLog.lines,
              ElementsAre("Bad arguments (status 2): step \"read the brand\", path \"" + std::string(path) +
                          "\", cause: the key " + keys::productName + " is missing"));
}

TEST_F(BrandingTest, IsRefusedWithACauseThatNamesTheFault) {
  auto values = acme();
  values.insert_or_assign(keys::serverLabel, foundation::PropertyList::Array{});
  expectRefusal(values, std::string("the value of ") + keys::serverLabel + " is not a string");
  values = acme();
  values.insert_or_assign(keys::productName, 5);
  expectRefusal(values, std::string("the value of ") + keys::productName + " is not a string");
  values = acme();
  values.insert_or_assign(keys::identifier, "acme");
  expectRefusal(values, "the value of Identifier is not an identifier");
  values.insert_or_assign(keys::identifier, "com.acme.other");
  expectRefusal(values, "its Identifier is com.acme.other, but the bundle's is com.acme.editor.installer");
  expectRefusal("<plist><array/></plist>", "it is not a dictionary");
}

TEST_F(BrandingTest, IsRefusedWhenTheFileIsBroken) {
  const std::string whole = foundation::PropertyList::serializeXML(acme());
  platform::Failure failure;
  for (const auto& bytes :
       {std::string(), std::string("bplist00"), std::string("\xff\xfe\x00", 3), whole.substr(0, whole.size() / 2)}) {
    brand(bytes);
    EXPECT_FALSE(brandingOf(fake.platform, failure));
    EXPECT_FALSE(failure.cause.empty() || failure.cause == "it is not a dictionary") << failure.cause;
  }
  auto latin = whole;
  latin.replace(latin.find("Acme Editor"), 4,
                "\xc4"
                "cme");
  expectRefusal(latin, "UTF-8");
}

TEST_F(BrandingTest, IsRefusedWhenTheFileCannotBeRead) {
  fake.bundles.main.resources["Branding.plist"] = path;
  platform::Failure failure;
  EXPECT_FALSE(brandingOf(fake.platform, failure));
  EXPECT_EQ(failure.cause, "it cannot be read");
}
