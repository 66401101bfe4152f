#include "platform/linux/authorizationd/Service.h"

#include <algorithm>
#include <string_view>
#include <utility>

#include "protocol/Broker.h"
#include "protocol/LogRecord.h"

namespace platform::Linux::authorizationd {

namespace brokerMethod = protocol::brokerMethod;

namespace {

std::optional<Right> rightNamed(std::string_view name) {
  if (name == protocol::adminRight) return Right::admin;
  return name == protocol::anyProgramRight ? std::optional(Right::anyProgram) : std::nullopt;
}

}  // namespace

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
    fields.emplace_back(protocol::recordField::verdict, "granted");
    const bool isAny = question.right == Right::anyProgram;
    _parts.journal.record(
        "granted user " + std::to_string(caller.uid) + (isAny ? " the right to run any program" : " the right"), fields);
  }
  question.decided(status);
  onActivity();
}

int Service::isAsking(sd_bus_message* call, const Caller& caller) {
  const bool isAsking =
      std::ranges::any_of(_questions, [&](const auto& entry) { return entry.second.call.caller.name == caller.name; });
  return sd_bus_reply_method_return(call, brokerMethod::isAsking.gives, static_cast<int>(isAsking));
}

int Service::free(sd_bus_message* call, const Caller& caller) {
  Handle handle = 0;
  AuthorizationFlags flags = 0;
  if (const int status = sd_bus_message_read(call, "tu", &handle, &flags); status < 0) return status;
  const AuthorizationStatus status = _sessions.free(caller, handle, (flags & kAuthorizationFlagDestroyRights) != 0);
  return replyStatus(call, caller, status, reasonOf(status));
}

}  // namespace platform::Linux::authorizationd
