#pragma once
// The broker's methods on the bus: reads each call, knows its caller from the bus itself, and answers.
//
// Service.cpp holds the object on the bus and its callers; the files Service+X.cpp hold the methods on sessions and their
// forms, rights, and tools, and the records.
//
// One thread: that of the event loop to which the bus is attached. No call waits for another one: the policy is asked
// meanwhile.
#include <systemd/sd-bus.h>

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>

#include "platform/linux/authorizationd/Journal.h"
#include "platform/linux/authorizationd/Policy.h"
#include "platform/linux/authorizationd/Sessions.h"
#include "platform/linux/authorizationd/ToolRunner.h"

namespace platform::Linux::authorizationd {

// The caller of a call, or nothing when that is not known.
using Identification = std::function<std::optional<Caller>(sd_bus* bus, sd_bus_message* call)>;
// The bus daemon is asked: it knows which process of which user opened a connection, whatever the message says.
std::optional<Caller> callerKnownToBus(sd_bus* bus, sd_bus_message* call);

// Why the program that the descriptor is open on is not a tool, or "".
using ToolCheck = std::function<std::string(int program)>;

// A call and its caller, for as long as the answer is owed.
struct Call {
  std::shared_ptr<sd_bus_message> message;
  Caller caller;
};

class Service {
 public:
  struct Parts {
    Policy& policy;
    Journal& journal;
    ToolCheck checkTool;
    Identification identify = callerKnownToBus;
  };

  // `bus` (attached to `loop`) and the parts outlive this object.
  Service(sd_bus* bus, sd_event* loop, Parts parts, Lifetimes lifetimes);
  ~Service();
  Service(const Service&) = delete;
  Service& operator=(const Service&) = delete;

  // Puts the object on the bus and listens for connections that go. A negative error number on failure.
  int publish();

  // Whether a handle is held, a question is open or a tool runs.
  [[nodiscard]] bool busy() const { return !_sessions.empty() || !_questions.empty() || !_tools.empty(); }
  // Called after everything that may end or prolong an idle time.
  std::function<void()> onActivity = [] {};

 private:
  using Decided = std::function<void(AuthorizationStatus status)>;
  struct OpenQuestion {
    Call call;
    Handle handle;
    Right right;
    Decided decided;
    std::unique_ptr<Question> question;
  };
  using Method = int (Service::*)(sd_bus_message*, const Caller&);

  template <Method method>
  static int dispatch(sd_bus_message* call, void* self, sd_bus_error* error);
  static int version(sd_bus* bus, const char* path, const char* interface, const char* property, sd_bus_message* reply,
                     void* self, sd_bus_error* error);
  static int ownerChanged(sd_bus_message* signal, void* self, sd_bus_error* error);

  int create(sd_bus_message* call, const Caller& caller);
  int makeExternalForm(sd_bus_message* call, const Caller& caller);
  int makeExternalFormFor(sd_bus_message* call, const Caller& caller);
  int createFromExternalForm(sd_bus_message* call, const Caller& caller);
  int refuseForm(sd_bus_message* call, const Caller& caller, AuthorizationStatus status, const char* cause);
  int copyRights(sd_bus_message* call, const Caller& caller);
  int free(sd_bus_message* call, const Caller& caller);
  int executeWithPrivileges(sd_bus_message* call, const Caller& caller);
  int isAsking(sd_bus_message* call, const Caller& caller);

  [[nodiscard]] std::optional<Caller> callerOf(sd_bus_message* call);
  int exportForm(sd_bus_message* call, const Caller& caller, Handle handle, std::shared_ptr<const NamedProcess> recipient);
  void ask(OpenQuestion question, bool interaction);
  void answered(unsigned question, AuthorizationStatus status);
  void runTool(const Call& call, Handle handle, int tool);
  void toolEnded(const Caller& caller, const ToolRunner::Job& job, const siginfo_t& end);
  void dropConnection(const std::string& name);

  // Since the machine was started, suspension included.
  static Time now();
  static const char* reasonOf(AuthorizationStatus status);
  static std::shared_ptr<sd_bus_message> kept(sd_bus_message* call);
  // Fields that every record of a call has.
  static Fields fieldsOf(const char* method, const Caller& caller);
  void reportRefusal(sd_bus_message* call, const Caller& caller, const std::string& reason, const Fields& more = {});
  int refuse(sd_bus_message* call, const Caller& caller, AuthorizationStatus status, const std::string& reason);
  int replyStatus(sd_bus_message* call, const Caller& caller, AuthorizationStatus status, const std::string& reason);

  static const sd_bus_vtable methods[];

  sd_bus* _bus;
  Parts _parts;
  std::map<std::string, Caller> _callers;  // of the connections that are there
  Sessions _sessions;
  ToolRunner _tools;
  unsigned _lastQuestion = 0;
  std::map<unsigned, OpenQuestion> _questions;
  sd_bus_slot* _object = nullptr;
  sd_bus_slot* _watch = nullptr;
};

}  // namespace platform::Linux::authorizationd
