#include "platform/linux/authorizationd/Service.h"

#include <systemd/sd-id128.h>
#include <unistd.h>
#include <csignal>
#include <ctime>

#include <algorithm>
#include <array>
#include <cerrno>
#include <string_view>
#include <utility>

#include "platform/linux/authorizationd/CallerProcess.h"
#include "protocol/Broker.h"
#include "protocol/ToolProtocol.h"

namespace platform::Linux::authorizationd {

namespace brokerMethod = protocol::brokerMethod;

namespace {

std::optional<Right> rightNamed(std::string_view name) {
  if (name == protocol::adminRight) return Right::admin;
  return name == protocol::anyProgramRight ? std::optional(Right::anyProgram) : std::nullopt;
}

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

std::shared_ptr<sd_bus_message> kept(sd_bus_message* call) { return {sd_bus_message_ref(call), sd_bus_message_unref}; }

// Unlike a counter's, the numbers of two brokers differ.
std::string newJobNumber() {
  sd_id128_t number{};
  sd_id128_randomize(&number);
  std::array<char, SD_ID128_STRING_MAX> text{};
  return sd_id128_to_string(number, text.data());
}

// The path under which the kernel knows the open file.
std::string pathOf(int descriptor) {
  std::array<char, 4096> path{};
  const ssize_t length = ::readlink(("/proc/self/fd/" + std::to_string(descriptor)).c_str(), path.data(), path.size());
  return {path.data(), length > 0 ? static_cast<std::size_t>(length) : 0};
}

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

Fields Service::fieldsOf(const char* method, const Caller& caller) {
  return {{"KELTO_USER", std::to_string(caller.uid)},
          {"KELTO_PROCESS", std::to_string(caller.process)},
          {"KELTO_EXECUTABLE", executableOf(caller.process, caller.uid)},
          {"KELTO_METHOD", method}};
}

void Service::reportRefusal(sd_bus_message* call, const Caller& caller, const std::string& reason, const Fields& more) {
  _parts.journal.recordRefusal(caller.uid, [&] {
    const char* method = sd_bus_message_get_member(call);
    Fields fields = fieldsOf(method, caller);
    fields.insert(fields.end(), more.begin(), more.end());
    fields.emplace_back("KELTO_VERDICT", "refused");
    fields.emplace_back("KELTO_CAUSE", reason);
    _parts.journal.record(
        std::string("refused ") + method + " of user " + std::to_string(caller.uid) + " (" + caller.name + "): " + reason,
        fields);
  });
}

int Service::refuse(sd_bus_message* call, const Caller& caller, AuthorizationStatus status, const std::string& reason) {
  reportRefusal(call, caller, reason);
  return sd_bus_reply_method_errorf(call, protocol::brokerErrorForStatus(status), "%s", reason.c_str());
}

// The answer of a method that answers with a status.
int Service::replyStatus(sd_bus_message* call, const Caller& caller, AuthorizationStatus status,
                         const std::string& reason) {
  if (status != errAuthorizationSuccess) reportRefusal(call, caller, reason);
  return sd_bus_reply_method_return(call, "u", static_cast<std::uint32_t>(status));
}

int Service::version(sd_bus* /*bus*/, const char* /*path*/, const char* /*interface*/, const char* /*property*/,
                     sd_bus_message* reply, void* /*self*/, sd_bus_error* /*error*/) {
  return sd_bus_message_append(reply, "u", protocol::brokerVersion);
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
  return exportForm(call, caller, handle, nullptr);
}

int Service::makeExternalFormFor(sd_bus_message* call, const Caller& caller) {
  Handle handle = 0;
  int pidfd = -1;
  if (const int status = sd_bus_message_read(call, "th", &handle, &pidfd); status < 0) return status;
  auto recipient = NamedProcess::of(pidfd);
  if (!recipient) {
    return refuse(call, caller, errAuthorizationDenied, "the descriptor names no process, or one that has ended");
  }
  return exportForm(call, caller, handle, std::move(recipient));
}

int Service::exportForm(sd_bus_message* call, const Caller& caller, Handle handle,
                        std::shared_ptr<const NamedProcess> recipient) {
  AuthorizationExternalForm form;
  const AuthorizationStatus status = _sessions.makeExternalForm(caller, handle, now(), form, std::move(recipient));
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
  const char* cause = "";
  const AuthorizationStatus status =
      _sessions.createFromExternalForm(caller, {static_cast<const std::byte*>(bytes), length}, now(), handle, &cause);
  if (status != errAuthorizationSuccess) return refuseForm(call, caller, status, cause);
  return sd_bus_reply_method_return(call, "t", handle);
}

// The answer tells nothing about the form; the record does.
int Service::refuseForm(sd_bus_message* call, const Caller& caller, AuthorizationStatus status, const char* cause) {
  reportRefusal(call, caller, status == errAuthorizationDenied ? cause : reasonOf(status));
  return sd_bus_reply_method_errorf(call, protocol::brokerErrorForStatus(status), "%s", reasonOf(status));
}

int Service::copyRights(sd_bus_message* call, const Caller& caller) {
  Handle handle = 0;
  const char* name = nullptr;
  AuthorizationFlags flags = 0;
  if (const int status = sd_bus_message_read(call, brokerMethod::copyRights.takes, &handle, &name, &flags); status < 0)
    return status;
  const auto right = rightNamed(name);
  const AuthorizationStatus held = _sessions.holdsRight(caller, handle, now(), right.value_or(Right::admin));
  if (held == errAuthorizationInvalidRef) return replyStatus(call, caller, held, reasonOf(held));
  if (!right) return replyStatus(call, caller, errAuthorizationDenied, "nobody can have the right " + quoted(name));
  if (held == errAuthorizationSuccess) return replyStatus(call, caller, held, {});
  if ((flags & kAuthorizationFlagExtendRights) == 0) {
    return replyStatus(call, caller, held, "the session does not hold the right, and must not be given it");
  }
  const Call owed{kept(call), caller};
  ask({.call = owed,
       .handle = handle,
       .right = *right,
       .decided =
           [this, owed](AuthorizationStatus status) {
             replyStatus(owed.message.get(), owed.caller, status, reasonOf(status));
           },
       .question = nullptr},
      (flags & kAuthorizationFlagInteractionAllowed) != 0);
  return 1;
}

void Service::ask(OpenQuestion question, bool interaction) {
  const Caller caller = question.call.caller;
  const auto open = std::count_if(_questions.begin(), _questions.end(),
                                  [&](const auto& entry) { return entry.second.call.caller.uid == caller.uid; });
  if (static_cast<std::size_t>(open) >= protocol::maximumQuestionsOfUser) return question.decided(errAuthorizationInternal);
  const unsigned number = ++_lastQuestion;
  const Right right = question.right;
  _questions.emplace(number, std::move(question));
  auto asked = _parts.policy.ask(caller, right, interaction,
                                 [this, number](AuthorizationStatus status) { answered(number, status); });
  if (asked) _questions.at(number).question = std::move(asked);
}

void Service::answered(unsigned number, AuthorizationStatus status) {
  auto node = _questions.extract(number);
  const OpenQuestion& question = node.mapped();
  const Caller& caller = question.call.caller;
  if (status == errAuthorizationSuccess) status = _sessions.grantRight(caller, question.handle, now(), question.right);
  if (status == errAuthorizationSuccess) {
    auto fields = fieldsOf(sd_bus_message_get_member(question.call.message.get()), caller);
    fields.emplace_back("KELTO_VERDICT", "granted");
    const bool isAny = question.right == Right::anyProgram;
    _parts.journal.record(
        "granted user " + std::to_string(caller.uid) + (isAny ? " the right to run any program" : " the right"), fields);
  }
  question.decided(status);
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
  if (const int status = sd_bus_message_read(call, brokerMethod::executeWithPrivileges.takes, &handle, &tool, &options);
      status < 0)
    return status;
  const AuthorizationStatus held = _sessions.holdsRight(caller, handle, now());
  if (held != errAuthorizationSuccess) return refuse(call, caller, held, reasonOf(held));
  if (options != kAuthorizationFlagDefaults)
    return refuse(call, caller, errAuthorizationInternal, "there are no such options");

  const Call owed{kept(call), caller};
  std::string objection = _parts.checkTool(tool);
  if (objection.empty() || _sessions.holdsRight(caller, handle, now(), Right::anyProgram) == errAuthorizationSuccess) {
    runTool(owed, handle, tool);
    return 1;
  }
  // The program is not a tool, so an administrator has to be asked, for this right, whether it may run.
  ask({.call = owed,
       .handle = handle,
       .right = Right::anyProgram,
       .decided =
           [this, owed, handle, tool, objection = std::move(objection)](AuthorizationStatus status) {
             if (status == errAuthorizationSuccess) return runTool(owed, handle, tool);
             const auto answer = status == errAuthorizationInternal ? status : errAuthorizationDenied;
             refuse(owed.message.get(), owed.caller, answer,
                    objection + " (" + printable(pathOf(tool)) + "), and " + reasonOf(status));
           },
       .question = nullptr},
      true);
  return 1;
}

// The message keeps `tool` open.
void Service::runTool(const Call& call, Handle handle, int tool) {
  if (const auto held = _sessions.holdsRight(call.caller, handle, now()); held != errAuthorizationSuccess) {
    refuse(call.message.get(), call.caller, held, reasonOf(held));
    return;
  }
  const ToolRunner::Job job{
      .number = newJobNumber(),
      .hasAnyProgramRight = _sessions.holdsRight(call.caller, handle, now(), Right::anyProgram) == errAuthorizationSuccess};
  Fields fields = fieldsOf(sd_bus_message_get_member(call.message.get()), call.caller);
  fields.emplace_back(protocol::jobVariable, job.number);
  fields.emplace_back("KELTO_TOOL", pathOf(tool));
  _tools.run(call.caller, job, tool,
             [this, call, fields](AuthorizationStatus status, const Descriptor& stream, const std::string& reason) {
               if (status != errAuthorizationSuccess) {
                 refuse(call.message.get(), call.caller, status, reason);
                 return;
               }
               Fields started = fields;
               started.emplace_back("KELTO_VERDICT", "runs");
               _parts.journal.record("runs a tool for user " + std::to_string(call.caller.uid), started);
               sd_bus_reply_method_return(call.message.get(), "h", stream.get());
             });
}

void Service::toolEnded(const Caller& caller, const ToolRunner::Job& job, const siginfo_t& end) {
  const bool hasExited = end.si_code == CLD_EXITED;
  const std::string cause = (hasExited ? "exit status " : "signal ") + std::to_string(end.si_status);
  _parts.journal.record("a tool of user " + std::to_string(caller.uid) + " ended: " + cause,
                        {{protocol::jobVariable, job.number},
                         {"KELTO_USER", std::to_string(caller.uid)},
                         {"KELTO_VERDICT", "ended"},
                         {"KELTO_CAUSE", cause}});
  onActivity();
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
