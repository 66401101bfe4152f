#pragma once
// For tests of the broker: a program that behaves, the time in which it is served, and one that may do anything.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <systemd/sd-bus.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <iostream>
#include <memory>
#include <string>
#include <vector>

#include "platform/fake/FakePlatform.h"
#include "platform/linux/AuthorizationServices.h"
#include "posix/Descriptor.h"
#include "protocol/Broker.h"

namespace tests {

// A connection of its own, as each program has one.
class BrokerClient {
 public:
  platform::AuthorizationRef create() {
    platform::AuthorizationRef authorization = 0;
    EXPECT_EQ(services.create(platform::kAuthorizationFlagDefaults, authorization), platform::errAuthorizationSuccess);
    return authorization;
  }
  platform::AuthorizationStatus copyRight(platform::AuthorizationRef authorization, platform::AuthorizationFlags flags) {
    platform::AuthorizationItem item{.name = platform::kAuthorizationRightExecute};
    return services.copyRights(authorization, {.count = 1, .items = &item}, flags);
  }
  platform::AuthorizationExternalForm exported(platform::AuthorizationRef authorization) {
    platform::AuthorizationExternalForm form;
    EXPECT_EQ(services.makeExternalForm(authorization, form), platform::errAuthorizationSuccess);
    return form;
  }
  platform::AuthorizationStatus imports(const platform::AuthorizationExternalForm& form) {
    platform::AuthorizationRef adopted = 0;
    const auto status = services.createFromExternalForm(form, adopted);
    if (status == platform::errAuthorizationSuccess) services.free(adopted, platform::kAuthorizationFlagDefaults);
    return status;
  }

  platform::Linux::DirectCall blockingCall;
  platform::fake::FakeSystemLog log;
  platform::Linux::AuthorizationServices services{blockingCall, log};
};

// How long the slower half of all calls may take while somebody misbehaves. The time of a single call depends on who
// else uses the machine; the middle of many does not.
inline constexpr std::chrono::milliseconds fairTime{50};
// The longest time for any call, so that nobody is kept waiting even once.
inline constexpr std::chrono::seconds longestTime{2};

// A program makes a session, hands it over to itself and gives all back, again and again; the middle of the times of its
// calls.
inline std::chrono::microseconds medianTimeOfACall() {
  using Clock = std::chrono::steady_clock;
  constexpr int rounds = 25;
  BrokerClient client;
  std::vector<std::chrono::microseconds> times;
  const auto timed = [&times](const auto& call) {
    const auto start = Clock::now();
    call();
    times.push_back(std::chrono::duration_cast<std::chrono::microseconds>(Clock::now() - start));
  };
  timed([&] { client.services.free(client.create(), platform::kAuthorizationFlagDefaults); });  // it is connected now
  for (int i = 0; i < rounds; ++i) {
    platform::AuthorizationRef authorization = 0;
    platform::AuthorizationExternalForm form;
    timed([&] { authorization = client.create(); });
    timed([&] { form = client.exported(authorization); });
    timed([&] { EXPECT_EQ(client.services.free(authorization, 8), platform::errAuthorizationSuccess); });
  }
  std::sort(times.begin(), times.end());
  const auto median = times[times.size() / 2];
  EXPECT_LT(times.back(), longestTime);
  std::cout << "served in " << median.count() << " us (median), " << times.back().count() << " us (longest)\n";
  ::testing::Test::RecordProperty("median_us", std::to_string(median.count()));
  return median;
}

// A connection on which calls are sent without waiting for their answers.
class RawCaller {
 public:
  RawCaller() { EXPECT_GE(sd_bus_open_user(&_bus), 0); }
  ~RawCaller() { close(); }
  RawCaller(const RawCaller&) = delete;
  RawCaller& operator=(const RawCaller&) = delete;

  void close() { _bus = sd_bus_close_unref(_bus); }
  // A call that is written to the bus, but not waited for. The bus bounds how many answers one connection may owe; a call
  // that wants none is not bounded.
  enum class Answer { Wanted, NotWanted };
  void sendCreate(Answer answer) {
    std::uint64_t cookie = 0;
    sd_bus_message* call = newCall(protocol::brokerMethod::create.name);
    EXPECT_GE(sd_bus_send(_bus, call, answer == Answer::Wanted ? &cookie : nullptr), 0);
    sd_bus_message_unref(call);
  }
  // A call that is written to the bus, but not waited for.
  template <class... Values>
  void send(const char* method, const char* types, Values... values) {
    sd_bus_message* call = newCall(method);
    ASSERT_GE(sd_bus_message_append(call, types, values...), 0);
    std::uint64_t cookie = 0;
    EXPECT_GE(sd_bus_send(_bus, call, &cookie), 0);
    sd_bus_message_unref(call);
    EXPECT_GE(sd_bus_flush(_bus), 0);
  }
  void sendForm(const std::string& bytes) {
    sd_bus_message* call = newCall(protocol::brokerMethod::createFromExternalForm.name);
    std::uint64_t cookie = 0;
    sd_bus_message_append_array(call, 'y', bytes.data(), bytes.size());
    EXPECT_GE(sd_bus_send(_bus, call, &cookie), 0);
    sd_bus_message_unref(call);
    EXPECT_GE(sd_bus_flush(_bus), 0);
  }
  // The name of the error with which a form is refused, or nothing.
  std::string refusalOf(const std::string& form) {
    sd_bus_message* call = newCall(protocol::brokerMethod::createFromExternalForm.name);
    sd_bus_error error{};
    sd_bus_message_append_array(call, 'y', form.data(), form.size());
    sd_bus_call(_bus, call, 0, &error, nullptr);
    std::string name = error.name != nullptr ? error.name : "";
    sd_bus_error_free(&error);
    sd_bus_message_unref(call);
    return name;
  }
  std::uint64_t create() {
    std::uint64_t handle = 0;
    sd_bus_message* reply = nullptr;
    EXPECT_GE(sd_bus_call_method(_bus, busName, objectPath, interfaceName, protocol::brokerMethod::create.name, nullptr,
                                 &reply, ""),
              0);
    EXPECT_GE(sd_bus_message_read(reply, "t", &handle), 0);
    sd_bus_message_unref(reply);
    return handle;
  }
  // A handle with the right, where nobody has to be asked.
  std::uint64_t authorized() {
    const auto handle = create();
    EXPECT_GE(sd_bus_call_method(_bus, busName, objectPath, interfaceName, protocol::brokerMethod::copyRights.name, nullptr,
                                 nullptr, protocol::brokerMethod::copyRights.takes, handle,
                                 platform::kAuthorizationRightExecute, 18U),
              0);
    return handle;
  }
  // Whether the broker says that somebody is asked about a call of this connection.
  bool isAsked() {
    int isAsking = -1;
    sd_bus_message* reply = nullptr;
    EXPECT_GE(sd_bus_call_method(_bus, busName, objectPath, interfaceName, protocol::brokerMethod::isAsking.name, nullptr,
                                 &reply, ""),
              0);
    EXPECT_GE(sd_bus_message_read(reply, "b", &isAsking), 0);
    sd_bus_message_unref(reply);
    return isAsking == 1;
  }
  // The stream of a tool that runs; none when it was refused.
  posix::Descriptor run(std::uint64_t handle, int tool) {
    sd_bus_message* reply = nullptr;
    int borrowed = -1;
    if (sd_bus_call_method(_bus, busName, objectPath, interfaceName, protocol::brokerMethod::executeWithPrivileges.name,
                           nullptr, &reply, protocol::brokerMethod::executeWithPrivileges.takes, handle, tool, 0U) < 0) {
      return posix::Descriptor();
    }
    EXPECT_GE(sd_bus_message_read(reply, "h", &borrowed), 0);
    posix::Descriptor stream(::fcntl(borrowed, F_DUPFD_CLOEXEC, 3));
    sd_bus_message_unref(reply);
    return stream;
  }
  [[nodiscard]] sd_bus* bus() const { return _bus; }

 private:
  static constexpr const char* busName = protocol::brokerBusName;
  static constexpr const char* objectPath = protocol::brokerObjectPath;
  static constexpr const char* interfaceName = protocol::brokerInterface;

  sd_bus_message* newCall(const char* method) {
    sd_bus_message* call = nullptr;
    EXPECT_GE(sd_bus_message_new_method_call(_bus, &call, busName, objectPath, interfaceName, method), 0);
    return call;
  }
  sd_bus* _bus = nullptr;
};

inline bool isOwnedOnSessionBus(const std::string& name) {
  RawCaller caller;
  sd_bus_message* reply = nullptr;
  int owned = 0;
  if (sd_bus_call_method(caller.bus(), "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus",
                         "NameHasOwner", nullptr, &reply, "s", name.c_str()) >= 0) {
    sd_bus_message_read(reply, "b", &owned);
  }
  sd_bus_message_unref(reply);
  return owned != 0;
}

}  // namespace tests
