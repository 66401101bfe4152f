// A monitor on the session bus reads the hand-over from the controller to the installer, and uses the form itself: before
// the installer does, or after it.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <systemd/sd-bus.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cstring>
#include <new>
#include <string>

#include "protocol/Broker.h"
#include "protocol/Notifications.h"
#include "tests/support/Eventually.h"
#include "tests/support/OtherProcess.h"
#include "tests/support/PrivateBus.h"
#include "tests/support/TestedPrograms.h"

namespace {

constexpr const char* brokerName = protocol::brokerBusName;
constexpr const char* brokerPath = protocol::brokerObjectPath;
constexpr const char* adminRight = protocol::adminRight;
constexpr const char* notificationPath = protocol::notificationsPath;
constexpr const char* notificationInterface = protocol::notificationsInterface;
using Form = std::array<unsigned char, 32>;

enum class Use { NotYet, Refused, Gained };
void PrintTo(Use use, std::ostream* out) { *out << (use == Use::Gained ? "gained the right" : "gained nothing"); }

// Shared by controller, installer and thief.
struct Shared {
  std::array<char, 64> installersName{};
  std::atomic<bool> isInstallerReady = false;
  std::atomic<bool> isThiefReady = false;
  std::atomic<bool> mayInstallerUse = false;
  std::atomic<bool> mayThiefUse = false;
  std::atomic<bool> hasThiefRead = false;
  Form stolen{};
  std::atomic<Use> installer = Use::NotYet;
  std::atomic<Use> thief = Use::NotYet;
};

// One program's connection, and what it asks of the broker.
class Program {
 public:
  explicit Program(bool monitors = false) {
    sd_bus_new(&_bus);
    sd_bus_set_address(_bus, ::getenv("DBUS_SESSION_BUS_ADDRESS"));
    sd_bus_set_bus_client(_bus, 1);
    sd_bus_negotiate_fds(_bus, 1);
    if (monitors) sd_bus_set_monitor(_bus, 1);
    sd_bus_start(_bus);
  }
  ~Program() { sd_bus_flush_close_unref(_bus); }
  Program(const Program&) = delete;
  Program& operator=(const Program&) = delete;
  [[nodiscard]] sd_bus* bus() const { return _bus; }

  std::uint64_t authorized() {
    std::uint64_t handle = 0;
    sd_bus_message* reply = nullptr;
    if (sd_bus_call_method(_bus, brokerName, brokerPath, brokerName, protocol::brokerMethod::create.name, nullptr, &reply,
                           "") < 0)
      return 0;
    sd_bus_message_read(reply, "t", &handle);
    sd_bus_message_unref(reply);
    return copyRight(handle, 18) ? handle : 0;
  }
  bool copyRight(std::uint64_t handle, unsigned flags) {
    std::uint32_t status = 1;
    sd_bus_message* reply = nullptr;
    if (sd_bus_call_method(_bus, brokerName, brokerPath, brokerName, protocol::brokerMethod::copyRights.name, nullptr,
                           &reply, protocol::brokerMethod::copyRights.takes, handle, adminRight, flags) < 0)
      return false;
    sd_bus_message_read(reply, "u", &status);
    sd_bus_message_unref(reply);
    return status == 0;
  }
  // A form for that process only; for a broker that cannot do so, and without a process, one for any.
  bool exportFor(std::uint64_t handle, pid_t process, Form& form) {
    const int pidfd = process > 0 ? static_cast<int>(::syscall(SYS_pidfd_open, process, 0)) : -1;
    sd_bus_message* reply = nullptr;
    int status = -1;
    if (pidfd >= 0) {
      sd_bus_error error{};
      status = sd_bus_call_method(_bus, brokerName, brokerPath, brokerName,
                                  protocol::brokerMethod::makeExternalFormFor.name, &error, &reply, "th", handle, pidfd);
      ::close(pidfd);
      if (status < 0 && sd_bus_error_has_name(&error, SD_BUS_ERROR_UNKNOWN_METHOD) == 0) return false;
    }
    if (status < 0)
      status = sd_bus_call_method(_bus, brokerName, brokerPath, brokerName, protocol::brokerMethod::makeExternalForm.name,
                                  nullptr, &reply, "t", handle);
    const void* bytes = nullptr;
    std::size_t length = 0;
    if (status < 0 || sd_bus_message_read_array(reply, 'y', &bytes, &length) < 0 || length != form.size()) return false;
    std::memcpy(form.data(), bytes, length);
    return true;
  }
  // Gained when the form gives a session that holds the right.
  Use use(const Form& form) {
    sd_bus_message* call = nullptr;
    sd_bus_message* reply = nullptr;
    std::uint64_t handle = 0;
    sd_bus_message_new_method_call(_bus, &call, brokerName, brokerPath, brokerName,
                                   protocol::brokerMethod::createFromExternalForm.name);
    sd_bus_message_append_array(call, 'y', form.data(), form.size());
    const int status = sd_bus_call(_bus, call, 0, nullptr, &reply);
    sd_bus_message_unref(call);
    if (status < 0) return Use::Refused;
    sd_bus_message_read(reply, "t", &handle);
    return copyRight(handle, 0) ? Use::Gained : Use::Refused;
  }
  void handOver(const char* receiver, const Form& form) {
    sd_bus_message* signal = nullptr;
    sd_bus_message_new_signal(_bus, &signal, notificationPath, notificationInterface, protocol::notificationSignal);
    sd_bus_message_set_destination(signal, receiver);
    sd_bus_message_append(signal, "ss", "KeltoCredentials", "com.kelto.Kelto");
    sd_bus_message_open_container(signal, 'a', "{sv}");
    sd_bus_message_open_container(signal, 'e', "sv");
    sd_bus_message_append(signal, "s", "rights");
    sd_bus_message_open_container(signal, 'v', "ay");
    sd_bus_message_append_array(signal, 'y', form.data(), form.size());
    for (int i = 0; i < 3; ++i) sd_bus_message_close_container(signal);
    sd_bus_send(_bus, signal, nullptr);
    sd_bus_flush(_bus);
    sd_bus_message_unref(signal);
  }
  // Waits for a hand-over, and reads it.
  Form received() {
    for (;;) {
      sd_bus_message* message = nullptr;
      if (sd_bus_process(_bus, &message) == 0) sd_bus_wait(_bus, UINT64_MAX);
      Form form{};
      const bool found = message != nullptr &&
                         sd_bus_message_is_signal(message, notificationInterface, protocol::notificationSignal) > 0 &&
                         readForm(message, form);
      sd_bus_message_unref(message);
      if (found) return form;
    }
  }

 private:
  static bool readForm(sd_bus_message* message, Form& form) {
    const void* bytes = nullptr;
    std::size_t length = 0;
    sd_bus_message_skip(message, "ss");
    sd_bus_message_enter_container(message, 'a', "{sv}");
    sd_bus_message_enter_container(message, 'e', "sv");
    sd_bus_message_skip(message, "s");
    sd_bus_message_enter_container(message, 'v', "ay");
    if (sd_bus_message_read_array(message, 'y', &bytes, &length) < 0 || length != form.size()) return false;
    std::memcpy(form.data(), bytes, length);
    return true;
  }
  sd_bus* _bus = nullptr;
};

class StolenForm : public testing::Test {
 protected:
  StolenForm() : shared(*new (memory()) Shared) {}
  ~StolenForm() override { ::munmap(&shared, sizeof(Shared)); }
  void SetUp() override {
    ASSERT_TRUE(tests::eventually([&] { return shared.isInstallerReady && shared.isThiefReady; }));
    handle = controller.authorized();
    ASSERT_NE(handle, 0U);
  }
  // The thief has read the form by the end.
  void handOver(pid_t receiver) {
    Form form{};
    ASSERT_TRUE(controller.exportFor(handle, receiver, form));
    controller.handOver(shared.installersName.data(), form);
    ASSERT_TRUE(tests::eventually([&] { return shared.hasThiefRead.load(); })) << "no attack took place";
    ASSERT_EQ(shared.stolen, form);
  }
  void letInstallerUse() {
    shared.mayInstallerUse = true;
    ASSERT_TRUE(tests::eventually([&] { return shared.installer != Use::NotYet; }));
  }
  void letThiefUse() {
    shared.mayThiefUse = true;
    ASSERT_TRUE(tests::eventually([&] { return shared.thief != Use::NotYet; }));
  }

  Shared& shared;
  tests::PrivateBus bus{{{brokerName, (tests::testedPrograms() / "authorizationd").string() + " --session"}}};
  tests::OtherProcess installer{[this] { install(); }};
  tests::OtherProcess thief{[this] { steal(); }};
  Program controller;
  std::uint64_t handle = 0;

 private:
  static void* memory() {
    return ::mmap(nullptr, sizeof(Shared), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  }
  static void waitFor(const std::atomic<bool>& condition) {
    tests::eventually([&] { return condition.load(); }, std::chrono::minutes(1));
  }
  void install() {
    Program own;
    const char* name = nullptr;
    sd_bus_get_unique_name(own.bus(), &name);
    std::strncpy(shared.installersName.data(), name, shared.installersName.size() - 1);
    shared.isInstallerReady = true;
    const Form form = own.received();
    waitFor(shared.mayInstallerUse);
    shared.installer = own.use(form);
    ::pause();
  }
  void steal() {
    Program own;
    Program monitor(true);
    sd_bus_message* call = nullptr;
    sd_bus_message_new_method_call(monitor.bus(), &call, "org.freedesktop.DBus", "/org/freedesktop/DBus",
                                   "org.freedesktop.DBus.Monitoring", "BecomeMonitor");
    sd_bus_message_append(call, "asu", 0, 0U);
    if (sd_bus_call(monitor.bus(), call, 0, nullptr, nullptr) >= 0) shared.isThiefReady = true;
    shared.stolen = monitor.received();
    shared.hasThiefRead = true;
    waitFor(shared.mayThiefUse);
    shared.thief = own.use(shared.stolen);
    ::pause();
  }
};

TEST_F(StolenForm, IsOfNoUseToAThiefWhoIsFirst) {
  handOver(installer.number());
  letThiefUse();
  letInstallerUse();
  EXPECT_EQ(shared.thief, Use::Refused);
  EXPECT_EQ(shared.installer, Use::Gained);
}

TEST_F(StolenForm, IsOfNoUseToAThiefAfterTheInstaller) {
  handOver(installer.number());
  letInstallerUse();
  letThiefUse();
  EXPECT_EQ(shared.installer, Use::Gained);
  EXPECT_EQ(shared.thief, Use::Refused);
}

TEST_F(StolenForm, OfAnOlderControllerIsOfNoUseToAThiefAfterTheInstaller) {
  handOver(0);
  letInstallerUse();
  letThiefUse();
  EXPECT_EQ(shared.installer, Use::Gained);
  EXPECT_EQ(shared.thief, Use::Refused);
}

}  // namespace
