#pragma once
// A session bus of the test's own, for the life of this object.
//
// While it lives, DBUS_SESSION_BUS_ADDRESS names it and the machine's system bus is out of reach, so that no test talks to
// a service of the machine. The daemon and what it started die with the test, even when that is killed. One at a time;
// make it before threads are started.
#include <signal.h>
#include <stdlib.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace tests {

// Sets an environment variable and puts the old value back.
class ScopedEnvironment {
 public:
  ScopedEnvironment(std::string name, const std::string& value) : _name(std::move(name)) {
    if (const char* old = ::getenv(_name.c_str())) _old = old;
    ::setenv(_name.c_str(), value.c_str(), 1);
  }
  ~ScopedEnvironment() {
    if (_old) {
      ::setenv(_name.c_str(), _old->c_str(), 1);
    } else {
      ::unsetenv(_name.c_str());
    }
  }
  ScopedEnvironment(const ScopedEnvironment&) = delete;
  ScopedEnvironment& operator=(const ScopedEnvironment&) = delete;

 private:
  std::string _name;
  std::optional<std::string> _old;
};

class PrivateBus {
 public:
  // A bus name and the command line that the bus starts on demand to own it.
  struct Service {
    std::string name;
    std::string command;
  };

  explicit PrivateBus(const std::vector<Service>& services = {})
      : _folder(makeFolder()), _systemBus("DBUS_SYSTEM_BUS_ADDRESS", "unix:path=" + (_folder / "no-system-bus").string()) {
    for (const auto& service : services) writeService(service);
    writeConfiguration();
    start();
    _sessionBus.emplace("DBUS_SESSION_BUS_ADDRESS", _address);
  }
  ~PrivateBus() {
    stop();
    std::error_code ignored;
    std::filesystem::remove_all(_folder, ignored);
  }
  PrivateBus(const PrivateBus&) = delete;
  PrivateBus& operator=(const PrivateBus&) = delete;

  [[nodiscard]] const std::string& address() const { return _address; }
  // The test's own folder; removed at the end.
  [[nodiscard]] const std::filesystem::path& folder() const { return _folder; }

  // Ends the bus before its time, as when the desktop session breaks down.
  void stop() {
    if (_daemon <= 0) return;
    ::kill(_daemon, SIGTERM);
    ::waitpid(_daemon, nullptr, 0);
    _daemon = -1;
  }

 private:
  static std::filesystem::path makeFolder() {
    std::string pattern = (std::filesystem::temp_directory_path() / "kelto-bus-XXXXXX").string();
    if (::mkdtemp(pattern.data()) == nullptr) throw std::runtime_error("no temporary folder");
    std::filesystem::create_directory(pattern + "/services");
    return pattern;
  }

  void writeService(const Service& service) const {
    std::ofstream(_folder / "services" / (service.name + ".service"))
        << "[D-BUS Service]\nName=" << service.name << "\nExec=" << service.command << "\n";
  }

  void writeConfiguration() const {
    std::ofstream(_folder / "bus.conf") << "<busconfig><type>session</type><keep_umask/>"
                                        << "<listen>unix:path=" << (_folder / "bus").string() << "</listen>"
                                        << "<auth>EXTERNAL</auth>"
                                        << "<servicedir>" << (_folder / "services").string() << "</servicedir>"
                                        << "<policy context='default'><allow send_destination='*' eavesdrop='true'/>"
                                        << "<allow eavesdrop='true'/><allow own='*'/></policy></busconfig>";
  }

  void start() {
    int address[2];
    if (::pipe(address) != 0) throw std::runtime_error("no pipe");
    const std::string configuration = "--config-file=" + (_folder / "bus.conf").string();
    const std::string print = "--print-address=" + std::to_string(address[1]);
    const pid_t test = ::getpid();
    _daemon = ::fork();
    if (_daemon == 0) {
      ::prctl(PR_SET_PDEATHSIG, SIGKILL);
      ::close(address[0]);
      if (::getppid() == test)
        ::execlp("dbus-daemon", "dbus-daemon", configuration.c_str(), "--nofork", print.c_str(), nullptr);
      ::_exit(127);
    }
    ::close(address[1]);
    for (char byte = 0; ::read(address[0], &byte, 1) == 1 && byte != '\n';) _address += byte;
    ::close(address[0]);
    if (_address.empty()) throw std::runtime_error("dbus-daemon did not start");
  }

  std::filesystem::path _folder;
  ScopedEnvironment _systemBus;
  std::optional<ScopedEnvironment> _sessionBus;
  std::string _address;
  pid_t _daemon = -1;
};

}  // namespace tests
