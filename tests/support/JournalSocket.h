#pragma once
// For tests: takes the records that programs send to the journal, at a socket of the test's own.
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <map>
#include <sstream>
#include <string>

#include "posix/Descriptor.h"

namespace tests {

class JournalSocket {
 public:
  explicit JournalSocket(const std::filesystem::path& path) : _socket(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
    std::filesystem::create_directories(path.parent_path());
    sockaddr_un address{.sun_family = AF_UNIX, .sun_path = {}};
    path.string().copy(address.sun_path, sizeof address.sun_path - 1);
    EXPECT_EQ(::bind(_socket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address), 0)
        << std::strerror(errno);
  }
  // The fields of the next record; several values of one field stand one below the other. None without a record.
  [[nodiscard]] std::map<std::string, std::string> next() const {
    std::string datagram(65536, '\0');
    const auto got = ::recv(_socket.get(), datagram.data(), datagram.size(), MSG_DONTWAIT);
    datagram.resize(static_cast<std::size_t>(std::max<ssize_t>(got, 0)));
    std::map<std::string, std::string> fields;
    std::istringstream lines(datagram);
    for (std::string line; std::getline(lines, line);) {
      auto& value = fields[line.substr(0, line.find('='))];
      value += (value.empty() ? "" : "\n") + line.substr(line.find('=') + 1);
    }
    return fields;
  }

 private:
  posix::Descriptor _socket;
};

}  // namespace tests
