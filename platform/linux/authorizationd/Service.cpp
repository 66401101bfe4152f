#include "platform/linux/authorizationd/Service.h"

#include <ctime>

#include <array>
#include <string_view>
#include <utility>

#include "protocol/Broker.h"

namespace platform::Linux::authorizationd {

namespace brokerMethod = protocol::brokerMethod;

namespace {

// The names of a method's values, each with its terminating zero, as the bus library wants them.
template <const protocol::BrokerMethod& method>
constexpr auto argumentNames() {
  constexpr std::string_view takes = method.takeNames;
  constexpr std::string_view gives = method.giveNames;
  std::array<char, takes.size() + gives.size() + 3> names{};
  std::size_t at = 0;
  for (const auto part : {takes, gives}) {
    for (const char character : part) names[at++] = character == ' ' ? '\0' : character;
    if (!part.empty()) ++at;
  }
  return names;
}

template <const protocol::BrokerMethod& method>
inline constexpr auto namesOf = argumentNames<method>();

template <const protocol::BrokerMethod& method>
constexpr sd_bus_vtable entryFor(sd_bus_message_handler_t handler) {
  return SD_BUS_METHOD_WITH_NAMES(method.name, method.takes, namesOf<method>.data(), method.gives, , handler,
                                  SD_BUS_VTABLE_UNPRIVILEGED);
}

}  // namespace

std::optional<Caller> callerKnownToBus(sd_bus* bus, sd_bus_message* call) {
  const char* name = sd_bus_message_get_sender(call);
  sd_bus_creds* credentials = nullptr;
  uid_t uid = 0;
  pid_t process = 0;
  constexpr std::uint64_t wanted = SD_BUS_CREDS_EUID | SD_BUS_CREDS_PID;
  if (name == nullptr || sd_bus_get_name_creds(bus, name, wanted, &credentials) < 0) return std::nullopt;
  const int status = sd_bus_creds_get_euid(credentials, &uid);
  if (sd_bus_creds_get_pid(credentials, &process) < 0) process = 0;
  sd_bus_creds_unref(credentials);
  if (status < 0) return std::nullopt;
  return Caller{name, uid, process};
}

const sd_bus_vtable Service::methods[] = {
    SD_BUS_VTABLE_START(0),
    entryFor<brokerMethod::create>(dispatch<&Service::create>),
    entryFor<brokerMethod::makeExternalForm>(dispatch<&Service::makeExternalForm>),
    entryFor<brokerMethod::makeExternalFormFor>(dispatch<&Service::makeExternalFormFor>),
    entryFor<brokerMethod::createFromExternalForm>(dispatch<&Service::createFromExternalForm>),
    entryFor<brokerMethod::copyRights>(dispatch<&Service::copyRights>),
    entryFor<brokerMethod::free>(dispatch<&Service::free>),
    entryFor<brokerMethod::executeWithPrivileges>(dispatch<&Service::executeWithPrivileges>),
    entryFor<brokerMethod::isAsking>(dispatch<&Service::isAsking>),
    SD_BUS_PROPERTY(protocol::brokerVersionProperty, "u", version, 0, SD_BUS_VTABLE_PROPERTY_CONST),
    SD_BUS_VTABLE_END};

Service::Service(sd_bus* bus, sd_event* loop, Parts parts, Lifetimes lifetimes)
    : _bus(bus),
      _parts(std::move(parts)),
      _sessions(lifetimes),
      _tools(loop, [this](const Caller& caller, const ToolRunner::Job& job, const siginfo_t& end) {
        toolEnded(caller, job, end);
      }) {}

Service::~Service() {
  sd_bus_slot_unref(_watch);
  sd_bus_slot_unref(_object);
}

int Service::publish() {
  // Only connections that go are of interest: the new owner is empty then.
  const int status = sd_bus_add_match(_bus, &_watch,
                                      "type='signal',sender='org.freedesktop.DBus',interface='org.freedesktop.DBus',"
                                      "member='NameOwnerChanged',arg2=''",
                                      ownerChanged, this);
  return status < 0 ? status
                    : sd_bus_add_object_vtable(_bus, &_object, protocol::brokerObjectPath, protocol::brokerInterface,
                                               methods, this);
}

template <Service::Method method>
int Service::dispatch(sd_bus_message* call, void* self, sd_bus_error* error) {
  // The bus bounds how many answers a connection may owe; calls that want none come without end, and must cost next to
  // nothing. No method is of use without its answer.
  if (sd_bus_message_get_expect_reply(call) == 0) return 1;
  auto* service = static_cast<Service*>(self);
  service->onActivity();
  const auto caller = service->callerOf(call);
  if (!caller)
    return sd_bus_error_set(error, protocol::brokerErrorForStatus(errAuthorizationInternal),
                            "the caller is unknown to the bus");
  if (!service->_parts.policy.serves(caller->uid)) {
    return service->refuse(call, *caller, errAuthorizationDenied, "this user is not served here");
  }
  return (service->*method)(call, *caller);
}

// A connection has one user as long as it lives, and its name is never given to another.
std::optional<Caller> Service::callerOf(sd_bus_message* call) {
  const char* name = sd_bus_message_get_sender(call);
  const auto known = name != nullptr ? _callers.find(name) : _callers.end();
  if (known != _callers.end()) return known->second;
  auto caller = _parts.identify(_bus, call);
  if (caller) _callers.emplace(caller->name, *caller);
  return caller;
}

Time Service::now() {
  timespec time{};
  ::clock_gettime(CLOCK_BOOTTIME, &time);
  return std::chrono::duration_cast<Time>(std::chrono::seconds(time.tv_sec) + std::chrono::nanoseconds(time.tv_nsec));
}

std::shared_ptr<sd_bus_message> Service::kept(sd_bus_message* call) {
  return {sd_bus_message_ref(call), sd_bus_message_unref};
}

int Service::version(sd_bus* /*bus*/, const char* /*path*/, const char* /*interface*/, const char* /*property*/,
                     sd_bus_message* reply, void* /*self*/, sd_bus_error* /*error*/) {
  return sd_bus_message_append(reply, "u", protocol::brokerVersion);
}

int Service::ownerChanged(sd_bus_message* signal, void* self, sd_bus_error* /*error*/) {
  const char* name = nullptr;
  const char* before = nullptr;
  const char* after = nullptr;
  if (sd_bus_message_read(signal, "sss", &name, &before, &after) < 0) return 0;
  if (*after == '\0') static_cast<Service*>(self)->dropConnection(name);
  return 0;
}

void Service::dropConnection(const std::string& name) {
  _callers.erase(name);
  bool dropped = _sessions.dropConnection(name);
  for (auto entry = _questions.begin(); entry != _questions.end();) {
    const auto current = entry++;
    if (current->second.call.caller.name != name) continue;
    _questions.erase(current);
    dropped = true;
  }
  // Other programs come and go on the bus all the time; the broker does not stay for that.
  if (dropped) onActivity();
}

}  // namespace platform::Linux::authorizationd
