#include "platform/linux/ToolStream.h"

#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>

#include <cerrno>
#include <utility>

#include "protocol/ToolProtocol.h"

namespace platform::Linux {
namespace {

using std::chrono::steady_clock;

// Decides when the silence of a tool has become too long.
class Patience {
 public:
  Patience(const std::string& signs, std::chrono::milliseconds longestSilence)
      : _signs(signs), _longestSilence(longestSilence) {}

  [[nodiscard]] bool isOver() {
    if (hasSign()) _silentSince = steady_clock::now();
    return steady_clock::now() - _silentSince >= _longestSilence;
  }

 private:
  // A tool in a long call need not give any: when it dies there, the socket is closed.
  bool hasSign() {
    struct stat status {};
    if (_signs.empty() || ::stat(_signs.c_str(), &status) != 0) return false;
    const auto before = std::exchange(_last, status.st_atim);
    const bool isInLongCall = _last.tv_sec == protocol::longCallTime && _last.tv_nsec == 0;
    return isInLongCall || before.tv_sec != _last.tv_sec || before.tv_nsec != _last.tv_nsec;
  }

  const std::string& _signs;
  std::chrono::milliseconds _longestSilence;
  timespec _last{};
  steady_clock::time_point _silentSince = steady_clock::now();
};

}  // namespace

ToolStream::ToolStream(posix::Descriptor socket, BlockingCall& blockingCall, const std::function<void(bool)>& onToolRuns,
                       std::chrono::milliseconds longestSilence, std::string& cause)
    : _socket(std::move(socket)),
      _blockingCall(blockingCall),
      _onToolRuns(onToolRuns),
      _longestSilence(longestSilence),
      _cause(cause) {
  if (_onToolRuns) _onToolRuns(true);
}

ToolStream::~ToolStream() {
  if (_onToolRuns) _onToolRuns(false);
}

std::size_t ToolStream::write(const void* bytes, std::size_t length) {
  std::size_t written = 0;
  _blockingCall.run([&] { written = writeAll(static_cast<const char*>(bytes), length); });
  return written;
}

std::size_t ToolStream::read(void* buffer, std::size_t capacity) {
  ssize_t got = 0;
  _blockingCall.run([&] { got = readSome(buffer, capacity); });
  return got > 0 ? static_cast<std::size_t>(got) : 0;
}

bool ToolStream::wait(short event) {
  constexpr int looks = 20;  // in the time after which the tool is given up
  const auto pause = static_cast<int>(_longestSilence.count() / looks);
  Patience patience(_signs, _longestSilence);
  for (;;) {
    pollfd socket{.fd = _socket.get(), .events = event, .revents = 0};
    const int ready = ::poll(&socket, 1, pause);
    if (ready > 0) return true;
    if (ready < 0 && errno != EINTR) return false;
    if (!patience.isOver()) continue;
    const auto seconds = std::chrono::duration<double>(_longestSilence).count();
    _cause = "the tool was silent for " + std::to_string(static_cast<int>(seconds)) + " seconds, and is given up";
    return false;
  }
}

std::size_t ToolStream::writeAll(const char* bytes, std::size_t length) {
  std::size_t written = 0;
  while (written < length) {
    const ssize_t sent = ::send(_socket.get(), bytes + written, length - written, MSG_NOSIGNAL | MSG_DONTWAIT);
    if (sent >= 0) {
      written += static_cast<std::size_t>(sent);
    } else if (errno != EINTR && !(errno == EAGAIN && wait(POLLOUT))) {
      break;
    }
  }
  return written;
}

ssize_t ToolStream::readSome(void* buffer, std::size_t capacity) {
  while (wait(POLLIN)) {
    const ssize_t got = ::recv(_socket.get(), buffer, capacity, 0);
    if (got >= 0 || (errno != EINTR && errno != EAGAIN)) return got;
  }
  return -1;
}

}  // namespace platform::Linux
