#include "platform/linux/authorizationd/Journal.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

namespace platform::Linux::authorizationd {

namespace {

constexpr std::chrono::seconds second{1};

// 0, or the error number.
int sendTo(int socket, const std::string& path, const std::string& datagram) {
  sockaddr_un address{.sun_family = AF_UNIX, .sun_path = {}};
  if (path.size() >= sizeof address.sun_path) return ENAMETOOLONG;
  path.copy(address.sun_path, sizeof address.sun_path - 1);
  const auto* name = reinterpret_cast<const sockaddr*>(&address);
  const ssize_t sent =
      ::sendto(socket, datagram.data(), datagram.size(), MSG_DONTWAIT | MSG_NOSIGNAL, name, sizeof address);
  return sent < 0 ? errno : 0;
}

bool isAbsent(int error) { return error == ENOENT || error == ECONNREFUSED || error == ENOTDIR; }

bool isSocket(int descriptor) {
  struct stat file {};
  return ::fstat(descriptor, &file) == 0 && S_ISSOCK(file.st_mode);
}

}  // namespace

Journal::Journal(Sockets sockets, int output, Clock clock)
    : _sockets(std::move(sockets)), _clock(std::move(clock)), _socket(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
  if (isSocket(output)) {
    _outputSocket = output;
  } else {
    const std::string name = "/proc/self/fd/" + std::to_string(output);
    _output = posix::Descriptor(::open(name.c_str(), O_WRONLY | O_APPEND | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
  }
}

void Journal::record(const std::string& line, const Fields& fields, Priority priority) {
  reportCountedUntil(_clock() - second);
  write(line, fields, priority);
}

void Journal::recordRefusal(uid_t user, const std::function<void()>& write) {
  const auto now = _clock();
  reportCountedUntil(now - second);
  Refusals& refusals = _refusals.try_emplace(user, Refusals{.since = now}).first->second;
  if (refusals.reported >= maximumRefusalsASecond) {
    ++refusals.counted;
    return;
  }
  ++refusals.reported;
  write();
}

void Journal::reportCounted() { reportCountedUntil(std::chrono::microseconds::max()); }

// Seconds that began before `end` are over: their counts are reported, and the users forgotten.
void Journal::reportCountedUntil(std::chrono::microseconds end) {
  for (auto entry = _refusals.begin(); entry != _refusals.end();) {
    const auto [user, refusals] = *entry;
    if (refusals.since > end) {
      ++entry;
      continue;
    }
    entry = _refusals.erase(entry);
    if (refusals.counted == 0) continue;
    write("refused user " + std::to_string(user) + " " + std::to_string(refusals.counted) + " more times within a second",
          {{protocol::recordField::user, std::to_string(user)}, {protocol::recordField::verdict, "refused"}},
          Priority::warning);
  }
}

void Journal::write(const std::string& line, const Fields& fields, Priority priority) {
  if (_lost > 0) {
    const std::string lost = std::to_string(_lost) + " records were lost: the log had no room for them";
    if (send(lost, {}, Priority::warning)) {
      print(lost);
      _lost = 0;
    }
  }
  if (!send(line, fields, priority)) ++_lost;
  print(line);
}

// A machine without any log daemon loses nothing.
bool Journal::send(const std::string& line, const Fields& fields, Priority priority) const {
  const protocol::LogRecord record{
      .program = "authorizationd", .process = ::getpid(), .priority = priority, .line = line, .fields = fields};
  int error = sendTo(_socket.get(), _sockets.journal, protocol::journalDatagram(record));
  if (isAbsent(error)) error = sendTo(_socket.get(), _sockets.log, protocol::logDatagram(record));
  return error == 0 || isAbsent(error);
}

bool Journal::print(const std::string& line) const {
  const std::string text = "authorizationd: " + line + "\n";
  const auto length = static_cast<ssize_t>(text.size());
  if (_outputSocket >= 0) return ::send(_outputSocket, text.data(), text.size(), MSG_DONTWAIT | MSG_NOSIGNAL) == length;
  return ::write(_output.get(), text.data(), text.size()) == length;
}

std::string quoted(std::string_view text) {
  std::string result = printable(text);
  std::replace(result.begin(), result.end(), '"', '?');
  return '"' + result + '"';
}

}  // namespace platform::Linux::authorizationd
