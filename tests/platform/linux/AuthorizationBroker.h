#pragma once
// For tests: a broker of a user's session on a bus of the test's own, and clients of it.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "platform/fake/FakePlatform.h"
#include "platform/linux/AuthorizationServices.h"
#include "protocol/Broker.h"
#include "protocol/ToolProtocol.h"
#include "tests/support/Eventually.h"
#include "tests/support/PrivateBus.h"
#include "tests/support/TemporaryFolder.h"

namespace tests::authorization {

using namespace platform;
using namespace std::chrono_literals;
using testing::Contains;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

inline const std::string brokerProgram = KELTO_BIN_DIR "/authorizationd";
inline constexpr const char* brokerName = protocol::brokerBusName;

// Counts the calls that may block.
class CountingCall final : public platform::Linux::BlockingCall {
 public:
  void run(const std::function<void()>& call) override {
    ++count;
    call();
  }
  int count = 0;
};

// A connection of its own, as each program has one.
struct Client {
  CountingCall blockingCall;
  fake::FakeSystemLog log;
  platform::Linux::AuthorizationServices services{blockingCall, log};

  AuthorizationRef create() {
    AuthorizationRef authorization = 0;
    EXPECT_EQ(services.create(kAuthorizationFlagDefaults, authorization), errAuthorizationSuccess);
    return authorization;
  }
  AuthorizationStatus copyRight(AuthorizationRef authorization, AuthorizationFlags flags,
                                const char* right = kAuthorizationRightExecute) {
    AuthorizationItem item{.name = right};
    return services.copyRights(authorization, {.count = 1, .items = &item}, flags);
  }
  AuthorizationExternalForm exported(AuthorizationRef authorization) {
    AuthorizationExternalForm form;
    EXPECT_EQ(services.makeExternalForm(authorization, form), errAuthorizationSuccess);
    return form;
  }
  AuthorizationStatus execute(AuthorizationRef authorization, const std::string& path,
                              std::unique_ptr<ByteStream>& stream) {
    return services.executeWithPrivileges(authorization, path, kAuthorizationFlagDefaults, stream);
  }
};

inline bool isOwned(const std::string& name) {
  const auto bus = platform::Linux::Bus::openUser();
  sd_bus_message* reply = nullptr;
  int owned = 0;
  if (!bus || sd_bus_call_method(bus->get(), "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus",
                                 "NameHasOwner", nullptr, &reply, "s", name.c_str()) < 0) {
    return false;
  }
  sd_bus_message_read(reply, "b", &owned);
  sd_bus_message_unref(reply);
  return owned != 0;
}

inline std::string readAll(ByteStream& stream) {
  std::string text;
  char chunk[512];
  while (const std::size_t got = stream.read(chunk, sizeof chunk)) text.append(chunk, got);
  return text;
}

inline void say(ByteStream& stream, const std::string& line) {
  EXPECT_EQ(stream.write((line + "\n").data(), line.size() + 1), line.size() + 1);
}

class AuthorizationBroker : public testing::Test {
 protected:
  // A copy of the probe in a folder of the test, so that its mode is known and may be changed.
  std::string probe(mode_t mode = 0755) {
    const std::filesystem::path path = tools.path("probe");
    std::filesystem::copy_file(KELTO_BIN_DIR "/authorization_probe", path);
    EXPECT_EQ(::chmod(path.c_str(), mode), 0);
    return path;
  }
  std::string folderAmongTools() {
    std::filesystem::create_directory(tools.path("folder"));
    return tools.path("folder");
  }
  AuthorizationRef authorized(Client& client) {
    const AuthorizationRef authorization = client.create();
    EXPECT_EQ(client.copyRight(authorization, 18), errAuthorizationSuccess);
    return authorization;
  }
  // The installer's share of the controller's session.
  AuthorizationRef adopted(AuthorizationRef authorization) {
    AuthorizationRef adopted = 0;
    EXPECT_EQ(installer.services.createFromExternalForm(controller.exported(authorization), adopted),
              errAuthorizationSuccess);
    return adopted;
  }
  std::unique_ptr<ByteStream> started(const std::string& path) {
    std::unique_ptr<ByteStream> stream;
    EXPECT_EQ(controller.execute(authorized(controller), path, stream), errAuthorizationSuccess);
    return stream;
  }
  void expectRefused(const std::string& path, const std::string& reason,
                     AuthorizationStatus status = errAuthorizationToolExecuteFailure) {
    std::unique_ptr<ByteStream> stream;
    EXPECT_EQ(controller.execute(authorized(controller), path, stream), status);
    EXPECT_EQ(stream, nullptr);
    EXPECT_THAT(controller.services.cause(), HasSubstr(reason));
  }

  // The broker is started with a descriptor too many, which no tool may inherit.
  tests::ScopedEnvironment dataFolder{"XDG_DATA_HOME", "/data of mine"};
  tests::TemporaryFolder tools;
  tests::PrivateBus bus{
      {{brokerName, "/bin/sh -c 'exec " + brokerProgram + " --session --tools " + tools.path() + " 7</dev/null'"}}};
  Client controller;
  Client installer;
};

}  // namespace tests::authorization
