#include "platform/linux/authorizationd/Service.h"

#include <utility>

#include "protocol/Broker.h"

namespace platform::Linux::authorizationd {

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

}  // namespace platform::Linux::authorizationd
