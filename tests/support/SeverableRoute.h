#pragma once
// A port of this machine's loopback that leads to a local socket, and can be cut. It is a process of its own.
#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstring>
#include <list>
#include <optional>
#include <string>
#include <string_view>

#include "tests/support/OtherProcess.h"

namespace tests {

class SeverableRoute {
 public:
  explicit SeverableRoute(std::string socketPath) : _target(std::move(socketPath)) {
    listen();
    if (::pipe(_orders) == 0) _process.emplace([this] { serve(); });
    ::close(_listener);
    ::close(_orders[0]);
  }
  ~SeverableRoute() { ::close(_orders[1]); }
  SeverableRoute(const SeverableRoute&) = delete;
  SeverableRoute& operator=(const SeverableRoute&) = delete;

  [[nodiscard]] int port() const { return _port; }

  // All connections break now; new ones can be made.
  void cut() { order('c'); }
  // The next answer that holds these words is lost, and its connection breaks.
  void cutAtAnswer() { order('a'); }
  static constexpr std::string_view fatalAnswer = "COPY ";
  // Connections stay, and nothing passes until `resume`; new ones are like that, too.
  void silence() { order('s'); }
  void resume() { order('g'); }

 private:
  struct Link {
    int client;
    int server;
  };

  void listen() {
    _listener = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = ::htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof address;
    auto* place = reinterpret_cast<sockaddr*>(&address);
    if (::bind(_listener, place, length) == 0 && ::listen(_listener, 64) == 0 &&
        ::getsockname(_listener, place, &length) == 0)
      _port = ::ntohs(address.sin_port);
  }

  void order(char letter) const {
    if (::write(_orders[1], &letter, 1) != 1) std::abort();
  }

  // The other process.
  void serve() {
    ::signal(SIGPIPE, SIG_IGN);
    ::close(_orders[1]);
    while (obeyAndForward()) {
    }
  }

  bool obeyAndForward() {
    std::vector<pollfd> all{{_orders[0], POLLIN, 0}, {_isSilent ? -1 : _listener, POLLIN, 0}};
    for (const auto& link : _links)
      for (const int end : {link.client, link.server}) all.push_back({_isSilent ? -1 : end, POLLIN, 0});
    if (::poll(all.data(), all.size(), -1) < 0) return true;
    if (all[0].revents != 0) return obey();
    std::size_t place = 2;
    for (auto link = _links.begin(); link != _links.end(); place += 2) {
      const bool isWhole = (all[place].revents == 0 || pass(link->client, link->server, false)) &&
                           (all[place + 1].revents == 0 || pass(link->server, link->client, true));
      link = isWhole ? std::next(link) : broken(link);
    }
    if (all[1].revents != 0) accept();
    return true;
  }

  bool obey() {
    char letter = 0;
    if (::read(_orders[0], &letter, 1) != 1) return false;
    if (letter == 'c')
      while (!_links.empty()) broken(_links.begin());
    if (letter == 'a') _isCuttingAtAnswer = true;
    if (letter == 's') _isSilent = true;
    if (letter == 'g') _isSilent = false;
    return true;
  }

  void accept() {
    const int client = ::accept4(_listener, nullptr, nullptr, SOCK_CLOEXEC);
    const int server = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    _target.copy(address.sun_path, sizeof address.sun_path - 1);
    const bool isConnected = ::connect(server, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0;
    _links.push_back({client, server});
    if (!isConnected) broken(std::prev(_links.end()));
  }

  // Both sides see a reset.
  std::list<Link>::iterator broken(std::list<Link>::iterator link) {
    for (const int end : {link->client, link->server}) {
      const linger atOnce{1, 0};
      ::setsockopt(end, SOL_SOCKET, SO_LINGER, &atOnce, sizeof atOnce);
      ::close(end);
    }
    return _links.erase(link);
  }

  bool pass(int from, int to, bool isAnswer) {
    char bytes[65536];
    const ssize_t length = ::read(from, bytes, sizeof bytes);
    if (length <= 0) return false;
    const std::string_view piece(bytes, static_cast<std::size_t>(length));
    if (isAnswer && _isCuttingAtAnswer && piece.find(fatalAnswer) != std::string_view::npos) {
      _isCuttingAtAnswer = false;
      return false;
    }
    for (std::size_t sent = 0; sent < piece.size();) {
      const ssize_t count = ::write(to, piece.data() + sent, piece.size() - sent);
      if (count <= 0) return false;
      sent += static_cast<std::size_t>(count);
    }
    return true;
  }

  const std::string _target;
  int _listener = -1;
  int _port = 0;
  int _orders[2] = {-1, -1};
  std::list<Link> _links;
  bool _isSilent = false;
  bool _isCuttingAtAnswer = false;
  std::optional<OtherProcess> _process;
};

}  // namespace tests
