#include "platform/linux/authorizationd/Service.h"

#include <systemd/sd-id128.h>
#include <unistd.h>
#include <csignal>

#include <array>
#include <utility>

#include "protocol/Broker.h"
#include "protocol/LogRecord.h"
#include "protocol/ToolProtocol.h"

namespace platform::Linux::authorizationd {

namespace brokerMethod = protocol::brokerMethod;

namespace {

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

}  // namespace

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
             [this, call, fields](AuthorizationStatus status, const posix::Descriptor& stream, const std::string& reason) {
               if (status != errAuthorizationSuccess) {
                 refuse(call.message.get(), call.caller, status, reason);
                 return;
               }
               Fields started = fields;
               started.emplace_back(protocol::recordField::verdict, "runs");
               _parts.journal.record("runs a tool for user " + std::to_string(call.caller.uid), started);
               sd_bus_reply_method_return(call.message.get(), "h", stream.get());
             });
}

void Service::toolEnded(const Caller& caller, const ToolRunner::Job& job, const siginfo_t& end) {
  const bool hasExited = end.si_code == CLD_EXITED;
  const std::string cause = (hasExited ? "exit status " : "signal ") + std::to_string(end.si_status);
  _parts.journal.record("a tool of user " + std::to_string(caller.uid) + " ended: " + cause,
                        {{protocol::jobVariable, job.number},
                         {protocol::recordField::user, std::to_string(caller.uid)},
                         {protocol::recordField::verdict, "ended"},
                         {protocol::recordField::cause, cause}});
  onActivity();
}

}  // namespace platform::Linux::authorizationd
