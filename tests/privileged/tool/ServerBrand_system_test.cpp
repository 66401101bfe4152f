#include <optional>

#include "protocol/Branding.h"
#include "tests/privileged/tool/Brand.h"
#include "tests/privileged/tool/Injector.h"
#include "tests/privileged/tool/Namespace.h"
#include "tests/privileged/tool/ServerRoot.h"
#include "tests/privileged/tool/SignedBundle.h"
#include "tests/privileged/tool/UpgradedServer.h"

namespace tests::tool {
namespace {

// An application of another brand, whose server runs beside Kelto's.
class BrandedUpgrade : public UpgradeServer {
 protected:
  void SetUp() override {
    UpgradeServer::SetUp();
    if (IsSkipped()) return;
    serverLabel = "com.acme.editor.server";
    program = folder / acmesProgram.substr(1);
    definition = folder / "Library/LaunchDaemons" / (serverLabel + ".plist");
    unit = folder / "units" / (serverLabel + ".service");
    Server one{.version = "1"};
    one.path = acmesProgram;
    install(program, one, definition, unit);
    fs::remove_all(offered);
    offer({.version = "2"});
    writeWithMode(app / "Contents/Info.plist", informationList("com.acme.editor", "2"));
  }
  // With the brand where root keeps brands, and after `before`.
  std::optional<Upgrade> upgradeBranded(const std::string& before = "") {
    write(folder / "brand", brand);
    return upgrade("true", "mkdir -p " + brands + "\nchmod 755 /etc/kelto " + brands + "\ninstall -m 644 brand " + brands +
                               "/com.acme.editor.plist\n" + before);
  }
  void expectKeltosServerUntouched() const {
    EXPECT_THAT(read(folder / keltosProgram.substr(1)), ::testing::HasSubstr("version 1"));
    EXPECT_EQ(read(folder / "units/com.kelto.KeltoLibraryServer.service"), Server{.version = "1"}.unit());
  }

  const std::string brand = brandOf("com.acme.editor");
  const std::string brands = protocol::brandFolderPath;
  const std::string acmesProgram = "/Library/Application Support/Acme/AcmeServer";
};

TEST_F(BrandedUpgrade, RunsTheNewServerOfThatBrand) {
  const auto done = upgradeBranded();
  if (!done) GTEST_SKIP() << "no service manager can be run here";
  expectSuccess(done->answer);
  EXPECT_TRUE(done->isRunning);
  EXPECT_EQ(done->ran, "1\n2\n");
  expectInstalled("2");
  EXPECT_THAT(read(unit), ::testing::HasSubstr("Description=Acme Server\n"));
  EXPECT_THAT(read(unit), ::testing::HasSubstr("ExecStart=\"" + acmesProgram + "\"\n"));
  expectKeltosServerUntouched();
}

// A user could have written it.
TEST_F(BrandedUpgrade, BelievesNoBrandInTheBundle) {
  write(app / "Contents/Resources/Branding.plist", brand);
  expectUntouched(upgrade(), "cannot open");
  expectKeltosServerUntouched();
}

TEST_F(BrandedUpgrade, BelievesNoBrandThatOthersCanWrite) {
  for (const auto& opened : {brands + "/com.acme.editor.plist", brands, std::string("/etc/kelto")}) {
    for (const char* left : {"box", "status"}) fs::remove_all(folder / left);
    fs::create_directory(folder / "box");
    expectUntouched(upgradeBranded("chmod 777 " + opened + "\n"), "others can write");
  }
}

// A bundle that tells which server is meant, and then tells something else.
class ChangedBundle : public NamespaceTest {
 protected:
  void SetUp() override {
    NamespaceTest::SetUp();
    if (!IsSkipped() && !isTracingPossible()) GTEST_SKIP() << "calls cannot be traced here";
  }
};

TEST_F(ChangedBundle, IsRefusedWhenItsIdentifierChangesAfterItsServerWasChosen) {
  const ServerRoot root(folder / "root", folder / "Library", folder / "units", folder / "state", {folder, KELTO_BIN_DIR});
  const auto app = folder / "App.app";
  const Server server{.version = "2"};
  for (const auto& [name, text] : {std::pair<std::string, std::string>{"KeltoLibraryServer", server.program()},
                                   {"com.kelto.KeltoLibraryServer.plist", server.definition()},
                                   {"com.kelto.KeltoLibraryServer.service", server.unit()}})
    writeWithMode(app / "Contents/Resources/LibraryServer" / name, text, 0755);
  for (const char* place : {"Application Support/Kelto", "LaunchDaemons"})
    fs::create_directories(folder / "Library" / place);
  writeWithMode(app / "Contents/Info.plist", informationList("com.acme.editor", "2"));
  const auto bytes = bytesOf({{protocol::commandKey, protocol::upgradeServerCommand}, {protocol::filePathKey, app}});
  const std::vector<std::string> command{"/usr/sbin/chroot", folder / "root", toolProgram};
  const Meddler meddler{.meddle = [&] { write(app / "Contents/Info.plist", informationList("com.acme.other", "2")); },
                        .opening = protocol::brandFolderPath};
  const auto answer = runWithFault(command, bytes, environment, {}, &meddler).answer;
  EXPECT_THAT(answer.text, ::testing::HasSubstr("the identifier of " + app.string() + " has changed"));
  EXPECT_NE(answer.status, 0);
  EXPECT_FALSE(isThere(folder / keltosProgram.substr(1)));
}

}  // namespace
}  // namespace tests::tool
