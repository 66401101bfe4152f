#include "privileged/tool/ServerUnit.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace tests::tool {
namespace {

using AssistantTool::BundleIdentity;
using AssistantTool::bundleNamedIn;
using AssistantTool::serverUnitFor;
using testing::HasSubstr;
using testing::Not;

const BundleIdentity bundle{.identifier = "com.example.App", .version = "2.0", .isSigned = true, .key = {}};

const std::string standardUnit =
    "[Unit]\nDescription=Kelto Library Server\nX-KeltoBundle=com.example.App\nX-KeltoVersion=2.0\nX-KeltoSigned=yes\n\n"
    "[Service]\nExecStart=\"/Library/Application Support/Kelto/KeltoLibraryServer\"\nType=simple\nRestart=on-failure\n"
    "RestartSec=2\n\n[Install]\nWantedBy=multi-user.target\n";

TEST(ServerUnitTest, IsTheTemplateForAnythingThatSaysNothing) {
  for (const std::string& offered : {std::string(), std::string("\0\xff\n[Service\n", 12), std::string(70'000, '['),
                                     std::string("[Unit]\nDescription=Mine\n")})
    EXPECT_EQ(serverUnitFor(offered, bundle), standardUnit);
}

TEST(ServerUnitTest, TakesOverThePermittedValues) {
  const auto unit = serverUnitFor(
      "[Unit]\nDefaultDependencies=no\n[Service]\nType=notify\nRestart=always\nRestartSec=10\nTimeoutStartSec=90\n"
      "TimeoutStopSec=5\nEnvironment=KELTO_STATE=%t/state.2\n",
      bundle);
  for (const char* line : {"\nDefaultDependencies=no\n", "\nType=notify\n", "\nRestart=always\n", "\nRestartSec=10\n",
                           "\nTimeoutStartSec=90\n", "\nTimeoutStopSec=5\n", "\nEnvironment=KELTO_STATE=%t/state.2\n"})
    EXPECT_THAT(unit, HasSubstr(line));
}

TEST(ServerUnitTest, TakesOverNothingElse) {
  for (const char* line : {"ExecStart=/bin/sh -c evil",
                           "ExecStartPre=+/bin/evil",
                           "ExecStopPost=/bin/evil",
                           "User=evil",
                           "Group=evil",
                           "Type=forking",
                           "Type=simple evil",
                           "RestartSec=1000",
                           "RestartSec=evil",
                           "TimeoutStopSec=",
                           "Restart=evil",
                           "Environment=LD_PRELOAD=/evil.so",
                           "Environment=KELTO_A=b LD_PRELOAD=/evil.so",
                           "Environment=KELTO_A LD_PRELOAD=/evil.so",
                           "Environment=KELTO_A=\"evil\"",
                           "Environment=KELTO_A=%h/evil",
                           "Environment=KELTO_A=b\\",
                           "EnvironmentFile=/evil",
                           "BindPaths=/evil:/etc",
                           "AmbientCapabilities=CAP_SYS_ADMIN",
                           "X-KeltoBundle=evil"})
    EXPECT_EQ(serverUnitFor(std::string("[Service]\n") + line + "\n", bundle), standardUnit) << line;
  EXPECT_EQ(serverUnitFor("[Unit]\nWants=evil.service\nX-KeltoVersion=9\n[Install]\nAlias=sshd.service\n", bundle),
            standardUnit);
  EXPECT_EQ(serverUnitFor("[Service]\nType=simple\\\nExecStart=/bin/evil\nType=exec\r\n", bundle), standardUnit);
}

TEST(ServerUnitTest, TakesOverNoVariableThatIsTooLong) {
  const std::string longest = "KELTO_A=" + std::string(247, 'x');
  EXPECT_THAT(serverUnitFor("[Service]\nEnvironment=" + longest + "\n", bundle), HasSubstr(longest));
  EXPECT_EQ(serverUnitFor("[Service]\nEnvironment=" + longest + "x\n", bundle), standardUnit);
}

TEST(ServerUnitTest, RunsTheServerOfTheBrand) {
  const auto unit = serverUnitFor("[Unit]\nDescription=Mine\n", bundle,
                                  {.name = "Acme Server", .label = "com.acme.server", .program = "Acme/Server"});
  EXPECT_THAT(unit, HasSubstr("[Unit]\nDescription=Acme Server\n"));
  EXPECT_THAT(unit, HasSubstr("\nExecStart=\"/Library/Acme/Server\"\n"));
}

TEST(ServerUnitTest, NamesItsBundle) {
  const auto found = bundleNamedIn(serverUnitFor("", bundle));
  ASSERT_TRUE(found);
  EXPECT_EQ(found->identifier, "com.example.App");
  EXPECT_EQ(found->version, "2.0");
  EXPECT_TRUE(found->isSigned);
  EXPECT_FALSE(bundleNamedIn(serverUnitFor("", {.identifier = "a.b", .version = "1", .key = {}}))->isSigned);
}

TEST(ServerUnitTest, OfOthersNamesNoBundle) {
  EXPECT_FALSE(bundleNamedIn("[Service]\nX-KeltoBundle=com.example.App\n"));
  EXPECT_FALSE(bundleNamedIn(""));
}

}  // namespace
}  // namespace tests::tool
