#include "privileged/tool/Log.h"

#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>

#include <cerrno>
#include <ctime>
#include <string_view>

namespace AssistantTool {
namespace {

constexpr const char* journalSocketPath = "/run/systemd/journal/socket";
constexpr const char* logSocketPath = "/dev/log";

bool sendTo(int socket, std::string_view path, const std::string& datagram) {
  sockaddr_un address{.sun_family = AF_UNIX, .sun_path = {}};
  path.copy(address.sun_path, sizeof address.sun_path - 1);
  const auto* name = reinterpret_cast<const sockaddr*>(&address);
  return ::sendto(socket, datagram.data(), datagram.size(), MSG_NOSIGNAL, name, sizeof address) >= 0;
}

}  // namespace

Log::Log() : _socket(::geteuid() == 0 ? ::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0) : -1) {
  if (!_socket) return;
  constexpr timeval longest{.tv_sec = 1, .tv_usec = 0};
  ::setsockopt(_socket.get(), SOL_SOCKET, SO_SNDTIMEO, &longest, sizeof longest);
  ::tzset();  // reads a file that the job may have no way to
}

bool Log::isKept() const {
  return _socket && (::access(journalSocketPath, F_OK) == 0 || ::access(logSocketPath, F_OK) == 0);
}

void Log::write(protocol::LogPriority priority, const std::string& line, const protocol::LogFields& fields) const {
  if (!_socket) return;
  const protocol::LogRecord record{
      .program = "assistantTool", .process = ::getpid(), .priority = priority, .line = line, .fields = fields};
  if (sendTo(_socket.get(), journalSocketPath, protocol::journalDatagram(record)) || errno == EAGAIN) return;
  sendTo(_socket.get(), logSocketPath, protocol::logDatagram(record));
}

}  // namespace AssistantTool
