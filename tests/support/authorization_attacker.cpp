// A client of the broker that does what it should not, for tests of attacks. Whether it may is for others to say: it tells
// what it was answered, on standard output.
//
//   authorization_attacker --system|--session COMMAND
//
//   run PROGRAM [FILE]      gets the right, hands PROGRAM over and tells what it printed; its input is FILE, or "report"
//   run-memory PROGRAM [FILE]   the same with a copy of PROGRAM in memory that has no name anywhere
//   flood                   asks for handles with wrong forms as fast as it is refused, until SIGTERM; then tells how often
//   call N                  behaves: makes and frees N sessions, and tells how long a call took and how many were lost
#include <fcntl.h>
#include <poll.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <systemd/sd-bus.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <string>
#include <string_view>
#include <vector>

#include "protocol/Broker.h"

namespace {

constexpr const char* brokerName = protocol::brokerBusName;
constexpr const char* brokerPath = protocol::brokerObjectPath;
constexpr const char* adminRight = protocol::adminRight;
constexpr unsigned extendAndPreAuthorize = 18;

sd_bus* connected(const std::string& which) {
  sd_bus* bus = nullptr;
  const int status = which == "--system" ? sd_bus_open_system(&bus) : sd_bus_open_user(&bus);
  if (status >= 0) return bus;
  std::printf("no bus: %s\n", std::strerror(-status));
  std::exit(2);
}

std::string contentsOf(const char* path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

int inMemory(const char* program) {
  const int copy = ::memfd_create("tool", MFD_CLOEXEC);
  const std::string bytes = contentsOf(program);
  if (::write(copy, bytes.data(), bytes.size()) != static_cast<ssize_t>(bytes.size()) || ::fchmod(copy, 0755) != 0)
    return -1;
  // The kernel runs nothing that is open for writing.
  const int readable = ::open(("/proc/self/fd/" + std::to_string(copy)).c_str(), O_RDONLY | O_CLOEXEC);
  ::close(copy);
  return readable;
}

// Ends the program when a call fails.
sd_bus_message* answerTo(sd_bus* bus, const char* method, const char* types, const auto&... values) {
  sd_bus_error error{};
  sd_bus_message* reply = nullptr;
  if (sd_bus_call_method(bus, brokerName, brokerPath, brokerName, method, &error, &reply, types, values...) >= 0)
    return reply;
  std::printf("%s refused: %s: %s\n", method, error.name, error.message);
  std::exit(1);
}

// A handle, with the right if that was given.
std::uint64_t authorized(sd_bus* bus) {
  std::uint64_t handle = 0;
  std::uint32_t status = 0;
  sd_bus_message_read(answerTo(bus, protocol::brokerMethod::create.name, ""), "t", &handle);
  sd_bus_message_read(answerTo(bus, protocol::brokerMethod::copyRights.name, protocol::brokerMethod::copyRights.takes,
                               handle, adminRight, extendAndPreAuthorize),
                      "u", &status);
  std::printf("right: %d\n", static_cast<int>(status));
  return handle;
}

int run(sd_bus* bus, int program, const std::string& input) {
  const auto handle = authorized(bus);
  int stream = -1;
  sd_bus_message_read(answerTo(bus, protocol::brokerMethod::executeWithPrivileges.name,
                               protocol::brokerMethod::executeWithPrivileges.takes, handle, program, 0U),
                      "h", &stream);
  std::printf("runs\n");
  if (::send(stream, input.data(), input.size(), MSG_NOSIGNAL) != static_cast<ssize_t>(input.size())) return 1;
  std::array<char, 4096> chunk{};
  for (ssize_t got = 0; (got = ::read(stream, chunk.data(), chunk.size())) > 0;)
    std::fwrite(chunk.data(), 1, static_cast<std::size_t>(got), stdout);
  std::printf("ended\n");
  return 0;
}

volatile std::sig_atomic_t isOver = 0;

// A call that the broker refuses, byte by byte: to have the bus library make each would take most of the attacker's time.
class RefusedCall {
 public:
  RefusedCall() {
    _bytes = std::string("l\1\0\1", 4);
    number(sizeof(std::uint32_t) + formBytes);
    number(0);  // the serial
    number(0);  // the length of the fields
    field(1, 'o', brokerPath);
    field(2, 's', brokerName);
    field(3, 's', protocol::brokerMethod::createFromExternalForm.name);
    field(6, 's', brokerName);
    field(8, 'g', "ay");
    const auto fields = static_cast<std::uint32_t>(_bytes.size() - fieldsAt);
    std::memcpy(_bytes.data() + lengthAt, &fields, sizeof fields);
    align(8);
    number(formBytes);
    _bytes.append(formBytes, '\0');
  }
  const std::string& with(std::uint32_t serial) {
    std::memcpy(_bytes.data() + serialAt, &serial, sizeof serial);
    return _bytes;
  }

 private:
  static constexpr std::uint32_t formBytes = 32;
  static constexpr std::size_t serialAt = 8;
  static constexpr std::size_t lengthAt = 12;
  static constexpr std::size_t fieldsAt = 16;

  void align(std::size_t to) { _bytes.resize((_bytes.size() + to - 1) / to * to); }
  void number(std::uint32_t value) {
    align(sizeof value);
    _bytes.append(reinterpret_cast<const char*>(&value), sizeof value);
  }
  void field(char code, char type, const std::string& value) {
    align(8);
    _bytes += {code, '\1', type, '\0'};
    type == 'g' ? void(_bytes += static_cast<char>(value.size())) : number(static_cast<std::uint32_t>(value.size()));
    _bytes += value + '\0';
  }

  std::string _bytes;
};

// Connections that keep the broker at work: each has as many calls open as the bus allows.
class Flood {
 public:
  explicit Flood(const std::string& which) {
    for (auto& each : _connections) {
      // The library lets this connection in, and has no part in it afterwards.
      sd_bus* bus = connected(which);
      const char* name = nullptr;
      if (sd_bus_get_unique_name(bus, &name) < 0) std::exit(2);
      each.socket = sd_bus_get_fd(bus);
    }
  }
  void goOn() {
    const auto start = std::chrono::steady_clock::now();
    while (isOver == 0) {
      for (auto& each : _connections) ask(each);
      waitForAny();
      for (auto& each : _connections) readAnswers(each);
    }
    const std::chrono::duration<double> time = std::chrono::steady_clock::now() - start;
    std::printf("sent %ld refused %ld seconds %.2f rate %.0f\n", _sent, _refused, time.count(),
                static_cast<double>(_refused) / time.count());
  }

 private:
  static constexpr int mostOpen = 100;
  static constexpr std::size_t connectionCount = 2;
  static constexpr std::size_t headBytes = 16;
  struct Connection {
    int socket = -1;
    int open = 0;  // calls without an answer
    std::uint32_t serial = 1000;
    std::string unsent;
    std::string unread;
  };

  void ask(Connection& from) {
    for (; from.open < mostOpen; ++from.open, ++_sent) from.unsent += _call.with(++from.serial);
    const auto length = ::send(from.socket, from.unsent.data(), from.unsent.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
    if (length > 0) from.unsent.erase(0, static_cast<std::size_t>(length));
  }
  void readAnswers(Connection& from) {
    std::array<char, 65536> chunk;
    for (ssize_t got = 0; (got = ::recv(from.socket, chunk.data(), chunk.size(), MSG_DONTWAIT)) > 0;)
      from.unread.append(chunk.data(), static_cast<std::size_t>(got));
    std::size_t at = 0;
    while (const auto length = lengthOfMessage(from.unread, at)) {
      count(from, std::string_view(from.unread).substr(at, length));
      at += length;
    }
    from.unread.erase(0, at);
  }
  // 0 when it is not all there.
  static std::size_t lengthOfMessage(const std::string& bytes, std::size_t at) {
    if (bytes.size() - at < headBytes) return 0;
    std::uint32_t body = 0;
    std::uint32_t fields = 0;
    std::memcpy(&body, bytes.data() + at + 4, sizeof body);
    std::memcpy(&fields, bytes.data() + at + 12, sizeof fields);
    const std::size_t length = (headBytes + std::size_t{fields} + 7) / 8 * 8 + body;
    return bytes.size() - at < length ? 0 : length;
  }
  void count(Connection& from, std::string_view message) {
    constexpr char error = 3;
    constexpr char answer = 2;
    if (message[1] != error && message[1] != answer) return;
    --from.open;
    if (message.find(protocol::brokerErrorForStatus(protocol::brokerStatusDenied)) == std::string_view::npos) return;
    if (++_refused > 1) return;
    std::printf("started\n");
    std::fflush(stdout);
  }
  void waitForAny() {
    std::array<pollfd, connectionCount> all{};
    for (std::size_t i = 0; i < all.size(); ++i) {
      const short wanted = _connections[i].unsent.empty() ? POLLIN : POLLIN | POLLOUT;
      all[i] = {.fd = _connections[i].socket, .events = wanted, .revents = 0};
    }
    ::poll(all.data(), all.size(), 100);
  }

  RefusedCall _call;
  std::array<Connection, connectionCount> _connections{};
  long _sent = 0;
  long _refused = 0;
};

int call(sd_bus* bus, int rounds) {
  using Clock = std::chrono::steady_clock;
  constexpr std::uint64_t patience = 5'000'000;
  constexpr int enough = 3;
  sd_bus_set_method_call_timeout(bus, patience);
  std::vector<long> times;
  int lost = 0;
  std::uint64_t handle = 0;
  const auto timed = [&](const char* method, const char* types, const auto&... values) {
    sd_bus_message* reply = nullptr;
    const auto start = Clock::now();
    const int status =
        sd_bus_call_method(bus, brokerName, brokerPath, brokerName, method, nullptr, &reply, types, values...);
    times.push_back(std::chrono::duration_cast<std::chrono::microseconds>(Clock::now() - start).count());
    if (status < 0) ++lost;
    if (status >= 0 && std::strcmp(method, protocol::brokerMethod::create.name) == 0)
      sd_bus_message_read(reply, "t", &handle);
    sd_bus_message_unref(reply);
  };
  for (int i = 0; i < rounds && lost < enough; ++i) {
    timed(protocol::brokerMethod::create.name, "");
    timed(protocol::brokerMethod::makeExternalForm.name, "t", handle);
    timed(protocol::brokerMethod::free.name, "tu", handle, 8U);
  }
  std::sort(times.begin(), times.end());
  std::printf("calls %zu lost %d median %ld longest %ld\n", times.size(), lost, times[times.size() / 2], times.back());
  return 0;
}

}  // namespace

int main(int count, char** arguments) {
  if (count < 3) return 2;
  const std::string which = arguments[1];
  const std::string command = arguments[2];
  if (command == "flood") {
    std::signal(SIGTERM, [](int) { isOver = 1; });
    Flood(which).goOn();
    return 0;
  }
  if (count < 4) return 2;
  sd_bus* bus = connected(which);
  if (command == "call") return call(bus, std::atoi(arguments[3]));
  const int program = command == "run-memory" ? inMemory(arguments[3]) : ::open(arguments[3], O_PATH | O_CLOEXEC);
  if (program < 0) return 2;
  return run(bus, program, count > 4 ? contentsOf(arguments[4]) : "report\n");
}
