#include "protocol/Branding.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

namespace keys = protocol::brandingKey;

using protocol::Branding;
using protocol::brandingOf;
using protocol::BrandingValues;

const BrandingValues acme{{keys::productName, "Acme Editor"},
                          {keys::identifier, "com.acme.editor.installer"},
                          {keys::defaultsDomain, "com.acme.editor"},
                          {keys::artwork, "artwork"},
                          {keys::serverName, "Acme Library Server"},
                          {keys::serverLabel, "com.acme.editor.server"},
                          {keys::serverProgram, "Application Support/Acme Editor/AcmeServer"},
                          {keys::serverDefinition, "LaunchDaemons/com.acme.editor.server.plist"},
                          {keys::serverMarker, "/Users/Shared/Acme Editor/Shares.plist"}};

std::string refusalOf(const BrandingValues& values) {
  std::string cause;
  return brandingOf(values, cause) ? "" : cause;
}

std::string refusalWith(const std::string& key, const std::string& value) {
  auto values = acme;
  values.insert_or_assign(key, value);
  return refusalOf(values);
}

TEST(Branding, IsKeltosWhereNothingElseIsSaid) {
  const Branding kelto;
  EXPECT_EQ(kelto.identifier, "com.kelto.installer");
  EXPECT_EQ(kelto.defaultsDomain, "com.kelto.macController");
  ASSERT_TRUE(kelto.server);
  EXPECT_EQ(kelto.server->label, "com.kelto.KeltoLibraryServer");
}

TEST(Branding, IsReadFromItsValues) {
  std::string cause;
  const auto branding = brandingOf(acme, cause);
  ASSERT_TRUE(branding) << cause;
  EXPECT_EQ(branding->identifier, "com.acme.editor.installer");
  EXPECT_EQ(branding->defaultsDomain, "com.acme.editor");
  EXPECT_EQ(branding->server, (Branding::Server{.name = "Acme Library Server",
                                                .label = "com.acme.editor.server",
                                                .program = "Application Support/Acme Editor/AcmeServer",
                                                .definition = "LaunchDaemons/com.acme.editor.server.plist",
                                                .marker = "/Users/Shared/Acme Editor/Shares.plist"}));
}

TEST(Branding, MayDoWithoutServerAndArtwork) {
  std::string cause;
  const auto branding = brandingOf({{keys::productName, "編集"},
                                    {keys::identifier, "com.acme.editor.installer"},
                                    {keys::defaultsDomain, "com.acme.editor"}},
                                   cause);
  ASSERT_TRUE(branding) << cause;
  EXPECT_EQ(branding->server, std::nullopt);
}

TEST(Branding, IsRefusedWithoutAnyOfItsKeys) {
  for (const auto& [key, value] : acme) {
    auto values = acme;
    values.erase(key);
    EXPECT_EQ(refusalOf(values), key == keys::artwork ? "" : "the key " + key + " is missing");
  }
}

TEST(Branding, IsRefusedWithAKeyThatIsUnknown) {
  EXPECT_EQ(refusalWith("ProductNmae", "Acme Editor"), "the key ProductNmae is unknown");
}

TEST(Branding, TakesIdentifiersThatCanBeNamesOnTheBus) {
  for (const std::string key : {keys::identifier, keys::defaultsDomain, keys::serverLabel}) {
    for (const std::string good : {"a.b", "com.acme.Editor-2_x", "org.x1.y"}) EXPECT_EQ(refusalWith(key, good), "") << good;
    for (const std::string& bad : {std::string(), std::string("acme"), std::string("."), std::string("com."),
                                   std::string(".com"), std::string("com..acme"), std::string("com.1acme"),
                                   std::string("com.acme editor"), std::string("com.acme/editor"), std::string("com.äcme"),
                                   std::string("com.acme;rm"), "com." + std::string(200, 'a')})
      EXPECT_EQ(refusalWith(key, bad), "the value of " + key + " is not an identifier such as com.example.Editor") << bad;
  }
}

TEST(Branding, TakesNamesThatNeedNoEscape) {
  for (const std::string key : {keys::productName, keys::serverName}) {
    for (const std::string good : {"A", "Ünïcode’s “Editor” (2)", "編集 1.0"})
      EXPECT_EQ(refusalWith(key, good), "") << good;
    for (const std::string& bad :
         {std::string(), std::string(" A"), std::string("A "), std::string("A\nB"), std::string("A\"B"), std::string("A&B"),
          std::string("<A>"), std::string("A\\"), std::string("100%"), std::string("A\x7f"), std::string(201, 'a')})
      EXPECT_THAT(refusalWith(key, bad), testing::StartsWith("the value of " + key + " is not a name without")) << bad;
  }
}

// Root writes below /Library and nowhere else.
TEST(Branding, TakesPlainPathsOnly) {
  for (const std::string key : {keys::serverProgram, keys::serverDefinition, keys::artwork})
    for (const std::string& bad : {std::string(), std::string("/a"), std::string("a/"), std::string("a//b"),
                                   std::string("../a"), std::string("a/../b"), std::string("./a"), std::string("a/."),
                                   std::string("a\"b"), std::string("a\\b"), std::string("a%b"), std::string("a$b"),
                                   std::string("a\nb"), std::string("ä"), std::string(201, 'a'), std::string(1001, 'a')})
      EXPECT_EQ(refusalWith(key, bad), "the value of " + key + " is not a plain relative path") << bad;
  for (const std::string bad : {"", "/", "a", "//a", "/a/../b", "/a/"})
    EXPECT_EQ(refusalWith(keys::serverMarker, bad),
              std::string("the value of ") + keys::serverMarker + " is not a plain absolute path")
        << bad;
}

TEST(Branding, NamesThreeFilesForItsServer) {
  const std::string same = "the server's program, definition and unit have the same file name";
  EXPECT_EQ(refusalWith(keys::serverDefinition, "LaunchDaemons/AcmeServer"), same);
  EXPECT_EQ(refusalWith(keys::serverProgram, "Acme/com.acme.editor.server.service"), same);
  EXPECT_EQ(refusalWith(keys::serverDefinition, "Acme/com.acme.editor.server.service"), same);
}

}  // namespace
