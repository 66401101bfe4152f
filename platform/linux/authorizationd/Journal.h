#pragma once
// The broker's records: what it granted, refused or could not do, and why.
//
// A record goes to the journal's socket, else to the log daemon's, and as one line to the standard output. Nothing here
// ever waits: what the receiver has no room for is dropped and counted, and the count follows with the next record that
// fits. Each user has a bounded number of reported refusals a second; the others are counted too. One thread.
#include <sys/types.h>

#include <chrono>
#include <cstddef>
#include <functional>
#include <map>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "posix/Descriptor.h"
#include "protocol/LogRecord.h"

namespace platform::Linux::authorizationd {

using Fields = protocol::LogFields;
using Priority = protocol::LogPriority;
using protocol::printable;

class Journal {
 public:
  using Clock = std::function<std::chrono::microseconds()>;
  static constexpr unsigned maximumRefusalsASecond = 20;

  struct Sockets {
    std::string journal = "/run/systemd/journal/socket";
    std::string log = "/dev/log";
  };

  // `output` is the descriptor for the lines; it stays the caller's.
  Journal(Sockets sockets, int output, Clock clock);

  void record(const std::string& line, const Fields& fields = {}, Priority priority = Priority::notice);
  // Calls `write`, which makes the record, unless this user has had as many as a second may bring.
  void recordRefusal(uid_t user, const std::function<void()>& write);
  // Reports the refusals that were only counted; before the broker leaves.
  void reportCounted();

 private:
  struct Refusals {
    std::chrono::microseconds since{0};
    unsigned reported = 0;
    unsigned counted = 0;
  };

  void reportCountedUntil(std::chrono::microseconds end);
  void write(const std::string& line, const Fields& fields, Priority priority);
  [[nodiscard]] bool send(const std::string& line, const Fields& fields, Priority priority) const;
  bool print(const std::string& line) const;

  Sockets _sockets;
  Clock _clock;
  posix::Descriptor _socket;
  posix::Descriptor _output;  // a description of its own, so that not waiting is nobody else's affair; none for a socket
  int _outputSocket = -1;
  std::size_t _lost = 0;
  std::map<uid_t, Refusals> _refusals;
};

// The same as printable(), between quotation marks.
std::string quoted(std::string_view text);

}  // namespace platform::Linux::authorizationd
