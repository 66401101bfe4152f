#include "platform/linux/authorizationd/Service.h"

#include <ctime>

#include <algorithm>
#include <cerrno>
#include <utility>

#include "platform/linux/authorizationd/Interface.h"
#include "platform/linux/authorizationd/Report.h"

namespace platform::Linux::authorizationd {

namespace {

Time now() {
  timespec time{};
  ::clock_gettime(CLOCK_BOOTTIME, &time);
  return std::chrono::duration_cast<Time>(std::chrono::seconds(time.tv_sec) + std::chrono::nanoseconds(time.tv_nsec));
}

const char* reasonOf(AuthorizationStatus status) {
  switch (status) {
    case errAuthorizationInvalidRef:
      return "no such handle of this connection";
    case errAuthorizationDenied:
      return "not authorized";
    case errAuthorizationCanceled:
      return "dismissed by the person asked";
    case errAuthorizationInteractionNotAllowed:
      return "an administrator would have to be asked, and nobody may or can be";
    default:
      return "failed, or beyond what one user may use";
  }
}

void reportRefusal(sd_bus_message* call, const Caller& caller, const std::string& reason) {
  report(std::string("refused ") + sd_bus_message_get_member(call) + " of user " + std::to_string(caller.uid) + " (" +
         caller.name + "): " + reason);
}

int refuse(sd_bus_message* call, const Caller& caller, AuthorizationStatus status, const std::string& reason) {
  reportRefusal(call, caller, reason);
  return sd_bus_reply_method_errorf(call, errorNameForStatus(status), "%s", reason.c_str());
}

// The answer of a method that answers with a status.
int replyStatus(sd_bus_message* call, const Caller& caller, AuthorizationStatus status, const std::string& reason) {
  if (status != errAuthorizationSuccess) reportRefusal(call, caller, reason);
  return sd_bus_reply_method_return(call, "u", static_cast<std::uint32_t>(status));
}

}  // namespace

std::optional<Caller> callerKnownToBus(sd_bus* bus, sd_bus_message* call) {
  const char* name = sd_bus_message_get_sender(call);
  sd_bus_creds* credentials = nullptr;
  uid_t uid = 0;
  if (name == nullptr || sd_bus_get_name_creds(bus, name, SD_BUS_CREDS_EUID, &credentials) < 0) return std::nullopt;
  const int status = sd_bus_creds_get_euid(credentials, &uid);
  sd_bus_creds_unref(credentials);
  if (status < 0) return std::nullopt;
  return Caller{name, uid};
}

const sd_bus_vtable Service::Methods[] = {
    SD_BUS_VTABLE_START(0),
    SD_BUS_METHOD("Create", "", "t", dispatch<&Service::create>, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_METHOD("MakeExternalForm", "t", "ay", dispatch<&Service::makeExternalForm>, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_METHOD("CreateFromExternalForm", "ay", "t", dispatch<&Service::createFromExternalForm>,
                  SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_METHOD("CopyRights", "tsu", "u", dispatch<&Service::copyRights>, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_METHOD("Free", "tu", "u", dispatch<&Service::free>, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_METHOD("ExecuteWithPrivileges", "thu", "h", dispatch<&Service::executeWithPrivileges>,
                  SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_VTABLE_END};

Service::Service(sd_bus* bus, sd_event* loop, Policy& policy, Lifetimes lifetimes, Identification identify)
    : _bus(bus), _policy(policy), _identify(std::move(identify)), _sessions(lifetimes), _tools(loop, [this] {
        onActivity();
      }) {}

Service::~Service() {
  sd_bus_slot_unref(_watch);
  sd_bus_slot_unref(_object);
  for (auto& [number, question] : _questions) close(question);
}

int Service::publish() {
  // Only connections that go are of interest: the new owner is empty then.
  const int status = sd_bus_add_match(_bus, &_watch,
                                      "type='signal',sender='org.freedesktop.DBus',interface='org.freedesktop.DBus',"
                                      "member='NameOwnerChanged',arg2=''",
                                      ownerChanged, this);
  return status < 0 ? status : sd_bus_add_object_vtable(_bus, &_object, ObjectPath, InterfaceName, Methods, this);
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
    return sd_bus_error_set(error, errorNameForStatus(errAuthorizationInternal), "the caller is unknown to the bus");
  if (!service->_policy.serves(caller->uid)) {
    return refuse(call, *caller, errAuthorizationDenied, "this user is not served here");
  }
  return (service->*method)(call, *caller);
}

// A connection has one user as long as it lives, and its name is never given to another.
std::optional<Caller> Service::callerOf(sd_bus_message* call) {
  const char* name = sd_bus_message_get_sender(call);
  const auto known = name != nullptr ? _users.find(name) : _users.end();
  if (known != _users.end()) return Caller{known->first, known->second};
  auto caller = _identify(_bus, call);
  if (caller) _users.emplace(caller->name, caller->uid);
  return caller;
}

int Service::create(sd_bus_message* call, const Caller& caller) {
  Handle handle = 0;
  const AuthorizationStatus status = _sessions.create(caller, handle);
  if (status != errAuthorizationSuccess) return refuse(call, caller, status, reasonOf(status));
  return sd_bus_reply_method_return(call, "t", handle);
}

int Service::makeExternalForm(sd_bus_message* call, const Caller& caller) {
  Handle handle = 0;
  if (const int status = sd_bus_message_read(call, "t", &handle); status < 0) return status;
  AuthorizationExternalForm form;
  const AuthorizationStatus status = _sessions.makeExternalForm(caller, handle, now(), form);
  if (status != errAuthorizationSuccess) return refuse(call, caller, status, reasonOf(status));

  sd_bus_message* reply = nullptr;
  int sent = sd_bus_message_new_method_return(call, &reply);
  if (sent >= 0) sent = sd_bus_message_append_array(reply, 'y', form.bytes.data(), form.bytes.size());
  if (sent >= 0) sent = sd_bus_send(_bus, reply, nullptr);
  sd_bus_message_unref(reply);
  return sent;
}

int Service::createFromExternalForm(sd_bus_message* call, const Caller& caller) {
  const void* bytes = nullptr;
  std::size_t length = 0;
  if (const int status = sd_bus_message_read_array(call, 'y', &bytes, &length); status < 0) return status;
  Handle handle = 0;
  const AuthorizationStatus status =
      _sessions.createFromExternalForm(caller, {static_cast<const std::byte*>(bytes), length}, now(), handle);
  if (status != errAuthorizationSuccess) return refuse(call, caller, status, reasonOf(status));
  return sd_bus_reply_method_return(call, "t", handle);
}

int Service::copyRights(sd_bus_message* call, const Caller& caller) {
  Handle handle = 0;
  const char* right = nullptr;
  AuthorizationFlags flags = 0;
  if (const int status = sd_bus_message_read(call, "tsu", &handle, &right, &flags); status < 0) return status;
  const AuthorizationStatus held = _sessions.holdsRight(caller, handle, now());
  if (held == errAuthorizationInvalidRef) return replyStatus(call, caller, held, reasonOf(held));
  if (std::string_view(right) != kAuthorizationRightExecute) {
    return replyStatus(call, caller, errAuthorizationDenied, "nobody can have the right " + quoted(right));
  }
  if (held == errAuthorizationSuccess) return replyStatus(call, caller, held, {});
  if ((flags & kAuthorizationFlagExtendRights) == 0) {
    return replyStatus(call, caller, held, "the session does not hold the right, and must not be given it");
  }
  return ask(call, caller, handle, (flags & kAuthorizationFlagInteractionAllowed) != 0);
}

int Service::ask(sd_bus_message* call, const Caller& caller, Handle handle, bool interaction) {
  const auto open = std::count_if(_questions.begin(), _questions.end(),
                                  [&](const auto& entry) { return entry.second.caller.uid == caller.uid; });
  if (static_cast<std::size_t>(open) >= MaximumQuestions) {
    return replyStatus(call, caller, errAuthorizationInternal, "too many questions of this user are open");
  }
  const unsigned number = ++_lastQuestion;
  _questions.emplace(number, OpenQuestion{sd_bus_message_ref(call), caller, handle, nullptr});
  auto question =
      _policy.ask(caller, interaction, [this, number](AuthorizationStatus status) { answered(number, status); });
  if (question) _questions.at(number).question = std::move(question);
  return 1;
}

void Service::answered(unsigned number, AuthorizationStatus status) {
  auto node = _questions.extract(number);
  OpenQuestion& question = node.mapped();
  if (status == errAuthorizationSuccess) status = _sessions.grantRight(question.caller, question.handle, now());
  if (status == errAuthorizationSuccess) report("granted user " + std::to_string(question.caller.uid) + " the right");
  replyStatus(question.call, question.caller, status, reasonOf(status));
  close(question);
  onActivity();
}

int Service::free(sd_bus_message* call, const Caller& caller) {
  Handle handle = 0;
  AuthorizationFlags flags = 0;
  if (const int status = sd_bus_message_read(call, "tu", &handle, &flags); status < 0) return status;
  const AuthorizationStatus status = _sessions.free(caller, handle, (flags & kAuthorizationFlagDestroyRights) != 0);
  return replyStatus(call, caller, status, reasonOf(status));
}

int Service::executeWithPrivileges(sd_bus_message* call, const Caller& caller) {
  Handle handle = 0;
  int tool = -1;
  AuthorizationFlags options = 0;
  if (const int status = sd_bus_message_read(call, "thu", &handle, &tool, &options); status < 0) return status;
  const AuthorizationStatus held = _sessions.holdsRight(caller, handle, now());
  if (held != errAuthorizationSuccess) return refuse(call, caller, held, reasonOf(held));
  if (options != kAuthorizationFlagDefaults)
    return refuse(call, caller, errAuthorizationInternal, "there are no such options");

  const std::shared_ptr<sd_bus_message> kept(sd_bus_message_ref(call), sd_bus_message_unref);
  _tools.run(caller, tool, [kept, caller](AuthorizationStatus status, const Descriptor& stream, const std::string& reason) {
    if (status != errAuthorizationSuccess) {
      refuse(kept.get(), caller, status, reason);
      return;
    }
    report("runs a tool for user " + std::to_string(caller.uid));
    sd_bus_reply_method_return(kept.get(), "h", stream.get());
  });
  return 1;
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
  _users.erase(name);
  bool dropped = _sessions.dropConnection(name);
  for (auto entry = _questions.begin(); entry != _questions.end();) {
    const auto current = entry++;
    if (current->second.caller.name != name) continue;
    close(current->second);
    _questions.erase(current);
    dropped = true;
  }
  // Other programs come and go on the bus all the time; that is no reason to stay.
  if (dropped) onActivity();
}

void Service::close(OpenQuestion& question) {
  question.question.reset();
  sd_bus_message_unref(question.call);
}

}  // namespace platform::Linux::authorizationd
