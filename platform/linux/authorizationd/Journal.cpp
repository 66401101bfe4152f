#include "platform/linux/authorizationd/Journal.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <syslog.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <ctime>

namespace platform::Linux::authorizationd {

namespace {

constexpr std::chrono::seconds second{1};
constexpr int priority = LOG_NOTICE;

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

std::string journalDatagram(const std::string& line, const Fields& fields) {
  std::string datagram = "MESSAGE=" + line + "\nPRIORITY=" + std::to_string(priority) +
                         "\nSYSLOG_FACILITY=" + std::to_string(LOG_FAC(LOG_AUTHPRIV)) +
                         "\nSYSLOG_IDENTIFIER=authorizationd\n";
  for (const auto& [name, value] : fields) datagram += name + "=" + printable(value) + "\n";
  return datagram;
}

std::string logDatagram(const std::string& line) {
  const std::time_t now = std::time(nullptr);
  tm local{};
  char stamp[32] = {};
  if (::localtime_r(&now, &local) != nullptr) std::strftime(stamp, sizeof stamp, "%b %e %T ", &local);
  return "<" + std::to_string(LOG_AUTHPRIV | priority) + ">" + stamp + "authorizationd[" + std::to_string(::getpid()) +
         "]: " + line;
}

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
    _output = Descriptor(::open(name.c_str(), O_WRONLY | O_APPEND | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
  }
}

void Journal::record(const std::string& line, const Fields& fields) {
  reportCountedUntil(_clock() - second);
  write(line, fields);
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
          {{"KELTO_USER", std::to_string(user)}, {"KELTO_VERDICT", "refused"}});
  }
}

void Journal::write(const std::string& line, const Fields& fields) {
  if (_lost > 0) {
    const std::string lost = std::to_string(_lost) + " records were lost: the log had no room for them";
    if (send(lost, {})) {
      print(lost);
      _lost = 0;
    }
  }
  if (!send(line, fields)) ++_lost;
  print(line);
}

// A machine without any log daemon loses nothing.
bool Journal::send(const std::string& line, const Fields& fields) const {
  int error = sendTo(_socket.get(), _sockets.journal, journalDatagram(line, fields));
  if (isAbsent(error)) error = sendTo(_socket.get(), _sockets.log, logDatagram(line));
  return error == 0 || isAbsent(error);
}

bool Journal::print(const std::string& line) const {
  const std::string text = "authorizationd: " + line + "\n";
  const auto length = static_cast<ssize_t>(text.size());
  if (_outputSocket >= 0) return ::send(_outputSocket, text.data(), text.size(), MSG_DONTWAIT | MSG_NOSIGNAL) == length;
  return ::write(_output.get(), text.data(), text.size()) == length;
}

std::string printable(std::string_view text) {
  constexpr std::size_t longest = 200;
  std::string result(text.substr(0, longest));
  std::replace_if(
      result.begin(), result.end(), [](char character) { return character < ' ' || character > '~'; }, '?');
  return text.size() > longest ? result + "..." : result;
}

std::string quoted(std::string_view text) {
  std::string result = printable(text);
  std::replace(result.begin(), result.end(), '"', '?');
  return '"' + result + '"';
}

}  // namespace platform::Linux::authorizationd
