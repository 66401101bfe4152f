#pragma once
// The application's authorization session at the broker. One thread; answers come from the event loop.
#include <array>
#include <cstddef>
#include <functional>
#include <optional>
#include <string>

#include "protocol/Broker.h"
#include "sdk/BusCall.h"

namespace sdk {

struct Failure {
  int error;  // one of kelto_error
  std::string cause;
};

using Form = std::array<std::byte, protocol::externalFormLength>;

class BrokerSession {
 public:
  using RightAnswered = std::function<void(const std::optional<Failure>&)>;
  using FormAnswered = std::function<void(const std::optional<Failure>&, const Form&)>;

  explicit BrokerSession(sd_event* loop) : _loop(loop) {}

  // Finds a broker, on the system bus first, and asks for the right to have the assistant tool run; the user may be asked,
  // for up to ten minutes.
  void obtainRight(RightAnswered answered);
  [[nodiscard]] bool hasRight() const { return _hasRight; }

  // 32 bytes that stand for the session, good once, and only for the process that the pidfd names. Needs the right.
  void makeForm(int pidfd, const FormAnswered& answered);

  // Closes the connection, and with it the session, at the broker.
  void end();

 private:
  void startBroker(bool onSystemBus);
  void create();
  void copyRight();
  bool call(const protocol::BrokerMethod& method, std::uint64_t patience, const Write& write, Answered answered);
  void answer(const std::optional<Failure>& failure);

  sd_event* _loop;
  Bus _bus;
  std::uint64_t _handle = 0;
  bool _hasRight = false;
  RightAnswered _answered;
};

}  // namespace sdk
