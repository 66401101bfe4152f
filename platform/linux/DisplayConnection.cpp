// A client's socket has no name: the display's name is at its other end. The kernel's socket diagnosis tells which socket
// is connected to which, and the names of those that have one. It knows the sockets of this network namespace only; a
// process elsewhere, and every process when there is no such diagnosis, is judged by the environment that it was started
// with.
#include "platform/linux/DisplayConnection.h"

#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <linux/sock_diag.h>
#include <linux/unix_diag.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <climits>
#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "platform/linux/ProcessFacts.h"
#include "posix/Descriptor.h"

namespace platform::Linux {

namespace {

using Inode = std::uint32_t;

struct Sockets {
  std::map<Inode, std::string> names;
  std::map<Inode, Inode> peers;
};

void addSocket(const nlmsghdr* header, Sockets& sockets) {
  const auto* const found = static_cast<const unix_diag_msg*>(NLMSG_DATA(header));
  auto left = static_cast<int>(header->nlmsg_len - NLMSG_LENGTH(sizeof *found));
  for (const auto* attribute = reinterpret_cast<const rtattr*>(found + 1); RTA_OK(attribute, left);
       attribute = RTA_NEXT(attribute, left)) {
    const auto* const data = static_cast<const char*>(RTA_DATA(attribute));
    const auto length = static_cast<std::size_t>(RTA_PAYLOAD(attribute));
    if (attribute->rta_type == UNIX_DIAG_NAME) sockets.names[found->udiag_ino] = std::string(data, length);
    if (attribute->rta_type == UNIX_DIAG_PEER && length == sizeof(Inode))
      sockets.peers[found->udiag_ino] = *reinterpret_cast<const Inode*>(data);
  }
}

bool askForSockets(int connection) {
  struct {
    nlmsghdr header;
    unix_diag_req question;
  } request{};
  request.header.nlmsg_len = sizeof request;
  request.header.nlmsg_type = SOCK_DIAG_BY_FAMILY;
  request.header.nlmsg_flags = NLM_F_REQUEST | NLM_F_DUMP;
  request.question.sdiag_family = AF_UNIX;
  request.question.udiag_states = ~0U;
  request.question.udiag_show = UDIAG_SHOW_NAME | UDIAG_SHOW_PEER;
  return ::send(connection, &request, sizeof request, 0) == sizeof request;
}

// Nothing when the kernel does not answer.
std::optional<Sockets> localSockets() {
  const posix::Descriptor connection(::socket(AF_NETLINK, SOCK_DGRAM | SOCK_CLOEXEC, NETLINK_SOCK_DIAG));
  if (!connection || !askForSockets(connection.get())) return std::nullopt;
  Sockets sockets;
  alignas(nlmsghdr) char buffer[32768];
  for (;;) {
    auto left = static_cast<int>(::recv(connection.get(), buffer, sizeof buffer, 0));
    if (left <= 0) return std::nullopt;
    for (const auto* header = reinterpret_cast<const nlmsghdr*>(buffer); NLMSG_OK(header, static_cast<unsigned>(left));
         header = NLMSG_NEXT(header, left)) {
      if (header->nlmsg_type == NLMSG_DONE) return sockets;
      if (header->nlmsg_type == NLMSG_ERROR) return std::nullopt;
      addSocket(header, sockets);
    }
  }
}

std::string lastComponent(const std::string& path) { return path.substr(path.rfind('/') + 1); }

// The name of a listening socket, which may be that of a file or, after a zero byte, no file's.
bool isDisplay(const std::string& name, const std::string& waylandDisplay) {
  if (name.find("/.X11-unix/X") != std::string::npos) return true;
  const std::string socket = std::string(lastComponent(name).c_str());
  if (socket.empty()) return false;
  return socket.starts_with("wayland-") || socket == lastComponent(waylandDisplay);
}

bool isScreen(const std::string& file) { return file.starts_with("/dev/dri/card") || file.starts_with("/dev/fb"); }

std::optional<Inode> inodeOfSocket(const std::string& target) {
  constexpr std::string_view start = "socket:[";
  if (!target.starts_with(start)) return std::nullopt;
  return static_cast<Inode>(std::stoull(target.substr(start.size())));
}

std::string networkOf(const std::string& process) {
  char name[64];
  const ssize_t length = ::readlink(("/proc/" + process + "/ns/net").c_str(), name, sizeof name);
  return {name, static_cast<std::size_t>(std::max<ssize_t>(length, 0))};
}

bool isNamedDisplay(const std::optional<std::string>& value) { return value && !value->empty(); }

// A display on another machine, and one inherited as a descriptor, has no name at the other end of a local socket.
bool environmentHidesDisplay(pid_t process) {
  const auto display = environmentValueOf(process, "DISPLAY");
  const bool isElsewhere =
      isNamedDisplay(display) && (*display)[0] != ':' && (*display)[0] != '/' && !display->starts_with("unix");
  return isElsewhere || isNamedDisplay(environmentValueOf(process, "WAYLAND_SOCKET"));
}

bool environmentNamesDisplay(pid_t process) {
  return isNamedDisplay(environmentValueOf(process, "DISPLAY")) ||
         isNamedDisplay(environmentValueOf(process, "WAYLAND_DISPLAY"));
}

// A connection that nobody has accepted yet, which may be one to a busy display, has an end without a number.
bool leadsToDisplay(Inode socket, const Sockets& sockets, const std::string& waylandDisplay) {
  const auto peer = sockets.peers.find(socket);
  if (peer == sockets.peers.end()) return false;
  const auto name = sockets.names.find(peer->second);
  return peer->second == 0 || (name != sockets.names.end() && isDisplay(name->second, waylandDisplay));
}

bool isConnected(const std::vector<std::string>& descriptors, const Sockets& sockets, const std::string& waylandDisplay) {
  return std::any_of(descriptors.begin(), descriptors.end(), [&](const std::string& target) {
    const auto socket = inodeOfSocket(target);
    return isScreen(target) || (socket && leadsToDisplay(*socket, sockets, waylandDisplay));
  });
}

bool showsWindows(pid_t process, const std::optional<Sockets>& sockets) {
  const auto descriptors = descriptorsOf(process);
  if (!descriptors || environmentHidesDisplay(process)) return true;
  if (!sockets || networkOf(std::to_string(process)) != networkOf("self")) return environmentNamesDisplay(process);
  return isConnected(*descriptors, *sockets, environmentValueOf(process, "WAYLAND_DISPLAY").value_or(""));
}

// The process and all that descend from it.
std::set<pid_t> familyOf(pid_t process) {
  std::multimap<pid_t, pid_t> children;
  for (const pid_t number : allProcesses()) children.emplace(parentOf(number), number);
  std::set<pid_t> family;
  std::vector<pid_t> added{process};
  while (!added.empty()) {
    const pid_t parent = added.back();
    added.pop_back();
    if (!family.insert(parent).second) continue;
    for (auto [child, end] = children.equal_range(parent); child != end; ++child) added.push_back(child->second);
  }
  return family;
}

}  // namespace

bool mayShowWindows(pid_t process) {
  const auto sockets = localSockets();
  const auto family = familyOf(process);
  return std::any_of(family.begin(), family.end(), [&](pid_t number) { return showsWindows(number, sockets); });
}

}  // namespace platform::Linux
