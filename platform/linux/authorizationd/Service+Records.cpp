#include "platform/linux/authorizationd/Service.h"

#include "platform/linux/authorizationd/CallerProcess.h"
#include "protocol/Broker.h"
#include "protocol/LogRecord.h"

namespace platform::Linux::authorizationd {

const char* Service::reasonOf(AuthorizationStatus status) {
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

Fields Service::fieldsOf(const char* method, const Caller& caller) {
  return {{protocol::recordField::user, std::to_string(caller.uid)},
          {"KELTO_PROCESS", std::to_string(caller.process)},
          {"KELTO_EXECUTABLE", executableOf(caller.process, caller.uid)},
          {"KELTO_METHOD", method}};
}

void Service::reportRefusal(sd_bus_message* call, const Caller& caller, const std::string& reason, const Fields& more) {
  _parts.journal.recordRefusal(caller.uid, [&] {
    const char* method = sd_bus_message_get_member(call);
    Fields fields = fieldsOf(method, caller);
    fields.insert(fields.end(), more.begin(), more.end());
    fields.emplace_back(protocol::recordField::verdict, "refused");
    fields.emplace_back(protocol::recordField::cause, reason);
    _parts.journal.record(
        std::string("refused ") + method + " of user " + std::to_string(caller.uid) + " (" + caller.name + "): " + reason,
        fields, Priority::warning);
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

}  // namespace platform::Linux::authorizationd
