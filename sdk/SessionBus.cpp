#include "sdk/SessionBus.h"

#include <algorithm>
#include <cerrno>
#include <string_view>
#include <utility>

#include <kelto/controller.h>
#include "protocol/Credentials.h"
#include "protocol/Notifications.h"

namespace sdk {
namespace {

constexpr std::uint64_t patienceForBus = 25 * second;
// Of the bus's method RequestName: no flags, and the answer that somebody else has the name.
constexpr std::uint32_t waitInQueue = 0;
constexpr std::uint32_t isInQueue = 2;

// The path at which an application with this identifier offers its actions.
std::string objectPathOf(std::string identifier) {
  std::replace(identifier.begin(), identifier.end(), '.', '/');
  std::replace(identifier.begin(), identifier.end(), '-', '_');
  return "/" + identifier;
}

int answerWithNothing(sd_bus_message* request, void* /*data*/, sd_bus_error* /*error*/) {
  return sd_bus_reply_method_return(request, "");
}

// The notification's user info: one value, the form as data.
int appendForm(sd_bus_message* message, const Form& form) {
  int status = sd_bus_message_append(message, "ss", protocol::credentialsNotification, "");
  if (status >= 0) status = sd_bus_message_open_container(message, 'a', "{sv}");
  if (status >= 0) status = sd_bus_message_open_container(message, 'e', "sv");
  if (status >= 0) status = sd_bus_message_append(message, "s", protocol::credentialsKey);
  if (status >= 0) status = sd_bus_message_open_container(message, 'v', "ay");
  if (status >= 0) status = sd_bus_message_append_array(message, 'y', form.data(), form.size());
  for (int container = 0; container < 3 && status >= 0; ++container) status = sd_bus_message_close_container(message);
  return status;
}

}  // namespace

const sd_bus_vtable SessionBus::applicationMethods[] = {
    SD_BUS_VTABLE_START(0),
    SD_BUS_METHOD("Activate", "a{sv}", "", answerWithNothing, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_METHOD("Open", "asa{sv}", "", answerWithNothing, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_METHOD(
        "ActivateAction", "sava{sv}", "",
        [](sd_bus_message* request, void* data, sd_bus_error*) {
          const char* action = nullptr;
          if (const int status = sd_bus_message_read(request, "s", &action); status < 0) return status;
          // The answer goes out first: the installer does not wait while the application asks its user.
          const int status = sd_bus_reply_method_return(request, "");
          if (std::string_view(action) == "quit") static_cast<SessionBus*>(data)->_quitRequested();
          return status;
        },
        SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_VTABLE_END,
};

SessionBus::SessionBus(sd_event* loop, std::function<void()> quitRequested)
    : _quitRequested(std::move(quitRequested)), _bus(openBus(sd_bus_open_user, loop)) {}

void SessionBus::offerQuit(const std::string& identifier, const Refused& refused) {
  if (sd_bus_service_name_is_valid(identifier.c_str()) <= 0) return refused(EINVAL, "not a bus name: " + identifier);
  if (!_bus) return;
  // The object first: with the name, requests may come.
  sd_bus_slot* slot = nullptr;
  if (sd_bus_add_object_vtable(_bus.get(), &slot, objectPathOf(identifier).c_str(), "org.freedesktop.Application",
                               applicationMethods, this) < 0)
    return;
  _application.reset(slot);
  const auto write = [&](sd_bus_message* request) {
    return sd_bus_message_append(request, "su", identifier.c_str(), waitInQueue);
  };
  callLater(_bus.get(), busMethod("RequestName"), patienceForBus, write, [identifier, refused](sd_bus_message* reply) {
    if (hasFailed(reply))
      return refused(sd_bus_message_get_errno(reply),
                     "the session bus refuses the name " + identifier + ": " + causeOf(reply));
    std::uint32_t answer = 0;
    if (sd_bus_message_read(reply, "u", &answer) >= 0 && answer == isInQueue)
      refused(EBUSY, "another process has the bus name " + identifier);
  });
}

void SessionBus::whenOwned(const std::string& name, pid_t process, Found found) {
  _name = name;
  _process = process;
  _found = std::move(found);
  const auto onChange = [](sd_bus_message* /*message*/, void* data, sd_bus_error* /*error*/) {
    static_cast<SessionBus*>(data)->lookForOwner();
    return 0;
  };
  const std::string rule =
      "type='signal',sender='org.freedesktop.DBus',interface='org.freedesktop.DBus',member='NameOwnerChanged',"
      "arg0namespace='" +
      name + "'";
  sd_bus_slot* slot = nullptr;
  if (sd_bus_add_match_async(_bus.get(), &slot, rule.c_str(), onChange, nullptr, this) >= 0) _ownerChanges.reset(slot);
  // It may have been quicker than the rule.
  lookForOwner();
}

// Another installer may have the common name, while it still shows an alert.
void SessionBus::lookForOwner() {
  lookForOwnerOf(_name + protocol::processNameInfix + std::to_string(_process));
  lookForOwnerOf(_name);
}

void SessionBus::stopWaiting() {
  _ownerChanges.reset();
  _found = nullptr;
}

void SessionBus::lookForOwnerOf(const std::string& name) {
  const auto write = [&](sd_bus_message* request) { return sd_bus_message_append(request, "s", name.c_str()); };
  callLater(_bus.get(), busMethod("GetNameOwner"), patienceForBus, write, [this](sd_bus_message* reply) {
    const char* owner = nullptr;
    if (!hasFailed(reply) && sd_bus_message_read(reply, "s", &owner) >= 0) compareProcess(owner);
  });
}

void SessionBus::compareProcess(const std::string& owner) {
  const auto write = [&](sd_bus_message* request) { return sd_bus_message_append(request, "s", owner.c_str()); };
  callLater(
      _bus.get(), busMethod("GetConnectionUnixProcessID"), patienceForBus, write, [this, owner](sd_bus_message* reply) {
        std::uint32_t number = 0;
        if (hasFailed(reply) || sd_bus_message_read(reply, "u", &number) < 0 || static_cast<pid_t>(number) != _process)
          return;
        const auto found = std::exchange(_found, nullptr);
        stopWaiting();
        if (found) found(owner);
      });
}

void SessionBus::sendForm(const Form& form, const std::string& connection, const Done& done) {
  const Failure unsent{KELTO_ERROR_BROKER, "the rights cannot be sent"};
  sd_bus_message* signal = nullptr;
  if (sd_bus_message_new_signal(_bus.get(), &signal, protocol::notificationsPath, protocol::notificationsInterface,
                                protocol::notificationSignal) < 0)
    return done(unsent);
  const std::unique_ptr<sd_bus_message, decltype(&sd_bus_message_unref)> owned(signal, &sd_bus_message_unref);
  if (appendForm(signal, form) < 0 || sd_bus_message_set_destination(signal, connection.c_str()) < 0 ||
      sd_bus_send(_bus.get(), signal, nullptr) < 0)
    return done(unsent);
  // The bus reads a connection's messages in order: when it answers this call it has the signal.
  const auto answered = [done, unsent](sd_bus_message* reply) {
    done(hasFailed(reply) ? std::optional(unsent) : std::nullopt);
  };
  if (!callLater(_bus.get(), busMethod("GetId"), patienceForBus, {}, answered)) done(unsent);
}

}  // namespace sdk
