#include "platform/linux/DistributedNotificationCenter.h"

#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/linux/BusCall.h"
#include "platform/linux/BusValues.h"
#include "protocol/Notifications.h"

namespace platform::Linux {

namespace {

constexpr const char* signalSignature = "ssa{sv}";
constexpr std::uint64_t callPatience = 5'000'000;  // microseconds
constexpr int messagesAtOnce = 256;                // then the run loop has its turn

// Empty when the notification cannot be written as a signal.
BusMessage signalOf(sd_bus* bus, const foundation::Notification& notification) {
  if (notification.name.find('\0') != std::string::npos || notification.object.find('\0') != std::string::npos) return {};
  sd_bus_message* message = nullptr;
  if (sd_bus_message_new_signal(bus, &message, protocol::notificationsPath, protocol::notificationsInterface,
                                protocol::notificationSignal) < 0)
    return {};
  BusMessage owned(message);
  int status = sd_bus_message_append(message, "ss", notification.name.c_str(), notification.object.c_str());
  if (status >= 0) status = appendDictionary(message, notification.userInfo);
  return status >= 0 ? std::move(owned) : BusMessage();
}

std::optional<foundation::Notification> notificationOf(sd_bus_message* message) {
  if (sd_bus_message_has_signature(message, signalSignature) <= 0) return std::nullopt;
  const char* name = nullptr;
  const char* object = nullptr;
  if (sd_bus_message_read(message, "ss", &name, &object) < 0) return std::nullopt;
  auto userInfo = readDictionary(message);
  if (!userInfo) return std::nullopt;
  return foundation::Notification{name, object, std::move(*userInfo)};
}

bool send(sd_bus* bus, const BusMessage& message) {
  return message && sd_bus_send(bus, message.get(), nullptr) >= 0 && sd_bus_flush(bus) >= 0;
}

}  // namespace

std::string nameOfProcess(const std::string& applicationIdentifier, pid_t process) {
  return applicationIdentifier + protocol::processNameInfix + std::to_string(process);
}

struct DistributedNotificationCenter::State : std::enable_shared_from_this<State> {
  State(std::string givenIdentifier, platform::SystemLog& givenLog, Deliver givenDeliver)
      : identifier(std::move(givenIdentifier)),
        log(givenLog),
        deliver(std::move(givenDeliver)),
        bus(Bus::openUser(&cause)) {
    if (bus) sd_bus_set_method_call_timeout(bus->get(), callPatience);
  }

  [[nodiscard]] sd_bus* connection() const { return bus && !isBroken ? bus->get() : nullptr; }
  [[nodiscard]] std::array<std::string, 2> names() const { return {identifier, nameOfProcess(identifier, ::getpid())}; }
  void observe();
  void processLater();
  void process();
  void receive(sd_bus_message* message);
  bool isNew(sd_bus_message* message);

  std::string identifier;
  platform::SystemLog& log;
  Deliver deliver;
  std::string cause;
  std::optional<Bus> bus;
  bool isObserving = false;
  bool isBroken = false;
  std::string lastSender;
  std::uint64_t lastNumber = 0;
  std::vector<std::pair<std::string, std::shared_ptr<const foundation::NotificationHandler>>> observers;
};

// One match for every name: the signals are few, and sorting them here needs no quoting of names in a match rule.
void DistributedNotificationCenter::State::observe() {
  isObserving = true;
  if (connection() == nullptr) {
    log.log("Notifications from other programs cannot be received: " + cause);
    return;
  }
  const auto onSignal = [](sd_bus_message* message, void* state, sd_bus_error* /*error*/) {
    static_cast<State*>(state)->receive(message);
    return 0;
  };
  int status = sd_bus_match_signal(connection(), nullptr, nullptr, protocol::notificationsPath,
                                   protocol::notificationsInterface, protocol::notificationSignal, onSignal, this);
  if (status < 0) log.log("Notifications from other programs cannot be received: " + std::string(std::strerror(-status)));
  for (const auto& name : names()) {
    status = sd_bus_request_name(connection(), name.c_str(), 0);
    if (status >= 0 || status == -EEXIST) continue;
    return log.log("The bus name " + name + " was not given: " + std::strerror(-status));
  }
}

// A call that waits for its answer may have read signals too, and what has been read no longer makes the descriptor
// readable.
void DistributedNotificationCenter::State::processLater() {
  deliver([weak = weak_from_this()] {
    if (const auto state = weak.lock()) state->process();
  });
}

void DistributedNotificationCenter::State::process() {
  for (int count = 0; connection() != nullptr && count < messagesAtOnce; ++count) {
    const int progress = sd_bus_process(connection(), nullptr);
    if (progress == 0) return;
    if (progress > 0) continue;
    isBroken = true;
    cause = std::strerror(-progress);
    log.log("The connection for notifications from other programs broke: " + cause);
  }
  if (connection() != nullptr) processLater();
}

// A sender numbers its messages, so one that comes twice has the number of the one before. Rights that are handed over can
// be taken once: the second notification of them would undo the first.
bool DistributedNotificationCenter::State::isNew(sd_bus_message* message) {
  const char* sender = sd_bus_message_get_sender(message);
  std::uint64_t number = 0;
  if (sender == nullptr || sd_bus_message_get_cookie(message, &number) < 0) return true;
  if (lastSender == sender && lastNumber == number) return false;
  lastSender = sender;
  lastNumber = number;
  return true;
}

void DistributedNotificationCenter::State::receive(sd_bus_message* message) {
  if (!isNew(message)) return;
  auto read = notificationOf(message);
  if (!read) {
    log.log("A notification from another program was refused: malformed or too large");
    return;
  }
  const auto notification = std::make_shared<const foundation::Notification>(std::move(*read));
  for (const auto& [name, handler] : observers) {
    if (name != notification->name) continue;
    deliver([weak = weak_from_this(), handler = handler, notification] {
      if (!weak.expired()) (*handler)(*notification);
    });
  }
}

DistributedNotificationCenter::DistributedNotificationCenter(std::string applicationIdentifier, platform::SystemLog& log,
                                                             Deliver deliver)
    : _state(std::make_shared<State>(std::move(applicationIdentifier), log, std::move(deliver))) {}

void DistributedNotificationCenter::addObserver(std::string_view name, foundation::NotificationHandler handler) {
  _state->observers.emplace_back(name, std::make_shared<const foundation::NotificationHandler>(std::move(handler)));
  if (_state->isObserving) return;
  _state->observe();
  _state->processLater();
}

// The answers are not waited for: who gives a name up needs none.
void DistributedNotificationCenter::giveUpNames() {
  sd_bus* bus = _state->connection();
  if (bus == nullptr || !_state->isObserving) return;
  for (const auto& name : _state->names()) sd_bus_release_name_async(bus, nullptr, name.c_str(), nullptr, nullptr);
  sd_bus_flush(bus);
}

bool DistributedNotificationCenter::post(const foundation::Notification& notification) {
  sd_bus* bus = _state->connection();
  return bus != nullptr && send(bus, signalOf(bus, notification));
}

bool DistributedNotificationCenter::postTo(const foundation::Notification& notification, const std::string& busName) {
  sd_bus* bus = _state->connection();
  if (bus == nullptr) return false;
  const auto owner = ownerOfName(bus, busName);
  _state->processLater();
  if (!owner) return false;
  const BusMessage message = signalOf(bus, notification);
  return message && sd_bus_message_set_destination(message.get(), owner->c_str()) >= 0 && send(bus, message);
}

int DistributedNotificationCenter::fileDescriptor() const {
  sd_bus* bus = _state->connection();
  return bus != nullptr ? sd_bus_get_fd(bus) : -1;
}

void DistributedNotificationCenter::process() { _state->process(); }

}  // namespace platform::Linux
