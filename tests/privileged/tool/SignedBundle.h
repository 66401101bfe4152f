#pragma once
// For tests: bundles as a publisher makes and signs them, with kelto-manifest and the real minisign.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include "posix/Descriptor.h"
#include "privileged/tool/Failure.h"
#include "privileged/tool/TrustedKeys.h"
#include "tests/support/TemporaryFolder.h"

namespace tests::tool {

namespace fs = std::filesystem;

inline std::string shellWord(const std::string& word) { return "'" + word + "'"; }

// Runs a program to its end; what it prints goes to `output`. Whether it succeeded.
inline bool runs(const std::string& command, const std::string& output = "/dev/null") {
  return ::system((command + " </dev/null >" + shellWord(output) + " 2>&1").c_str()) == 0;
}

// The reason of the Failure that `act` throws; empty when it throws none.
template <typename Act>
std::string refusalOf(const Act& act) {
  try {
    act();
  } catch (const AssistantTool::Failure& failure) {
    return failure.what();
  }
  return "";
}

// A publisher's pair of keys, without a password.
class KeyPair {
 public:
  KeyPair(const tests::TemporaryFolder& folder, const std::string& name)
      : _public(folder.path(name + ".pub")), _secret(folder.path(name + ".key")) {
    if (!runs("minisign -G -W -f -p " + shellWord(_public) + " -s " + shellWord(_secret)))
      ADD_FAILURE() << "minisign is missing";
  }

  [[nodiscard]] std::string file() const { return tests::readFile(_public); }
  [[nodiscard]] AssistantTool::Minisign::PublicKey key() const { return AssistantTool::Minisign::publicKeyOfFile(file()); }
  [[nodiscard]] AssistantTool::TrustedKey trusted(const std::vector<std::string>& identifiers = {}) const {
    return {.name = fs::path(_public).stem(), .key = key(), .identifiers = identifiers};
  }
  // Writes `path`.minisig. `options` for instance "-l" for the older form, or "-t comment".
  void sign(const std::string& path, const std::string& options = {}) const {
    EXPECT_TRUE(runs("minisign -S -W " + options + " -s " + shellWord(_secret) + " -m " + shellWord(path)));
  }

 private:
  std::string _public;
  std::string _secret;
};

inline std::string informationList(const std::string& identifier, const std::string& version) {
  return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist "
         "version=\"1.0\">\n<dict>\n<key>CFBundleIdentifier</key><string>" +
         identifier + "</string>\n<key>CFBundleVersion</key><string>" + version + "</string>\n</dict>\n</plist>\n";
}

inline void writeWithMode(const fs::path& path, const std::string& text, unsigned mode = 0644) {
  fs::create_directories(path.parent_path());
  tests::writeFile(path, text);
  fs::permissions(path, fs::perms(mode));
}

// A folder of the test's own, keys, and bundles in it, made the same whatever the umask is.
class SignedBundleTest : public ::testing::Test {
 protected:
  SignedBundleTest() : _umask(::umask(022)) {}
  ~SignedBundleTest() override { ::umask(_umask); }

  // A small bundle, not signed yet.
  fs::path makeBundle(const std::string& name = "App.app", const std::string& identifier = "com.example.App",
                      const std::string& version = "2.0") {
    const fs::path bundle = folder.path(name);
    writeWithMode(bundle / "Contents/Info.plist", informationList(identifier, version));
    writeWithMode(bundle / "Contents/Linux/Controller", "program " + version, 0755);
    writeWithMode(bundle / "Contents/Resources/a b%\n\xFF", "odd name");
    fs::create_symlink("../Info.plist", bundle / "Contents/Linux/Link");
    fs::create_symlink("Contents/Resources", bundle / "ToFolder");
    return bundle;
  }
  static std::string manifestOfBundle(const fs::path& bundle) { return bundle / "Contents/_Signature/manifest"; }

  bool writeManifest(const fs::path& bundle, const std::string& options = {}) {
    return runs(std::string(KELTO_BIN_DIR) + "/kelto-manifest " + shellWord(bundle) + " " + options, printed);
  }
  fs::path makeSignedBundle(const std::string& name = "App.app", const std::string& identifier = "com.example.App",
                            const std::string& version = "2.0") {
    const auto bundle = makeBundle(name, identifier, version);
    EXPECT_TRUE(writeManifest(bundle)) << tests::readFile(printed);
    publisher.sign(manifestOfBundle(bundle));
    return bundle;
  }
  static posix::Descriptor opened(const fs::path& path) {
    posix::Descriptor item(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
    EXPECT_TRUE(item) << path;
    return item;
  }

  tests::TemporaryFolder folder;
  KeyPair publisher{folder, "publisher"};
  const std::string printed = folder.path("printed");

 private:
  mode_t _umask;
};

}  // namespace tests::tool
