#pragma once
// The broker's methods on the bus: reads each call, knows its caller from the bus itself, and answers.
//
// One thread: that of the event loop to which the bus is attached. No call waits for another one: the policy is asked
// meanwhile.
#include <systemd/sd-bus.h>

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>

#include "platform/linux/authorizationd/Policy.h"
#include "platform/linux/authorizationd/Sessions.h"
#include "platform/linux/authorizationd/ToolRunner.h"

namespace platform::Linux::authorizationd {

// Who sent a call, or nothing when that is not known.
using Identification = std::function<std::optional<Caller>(sd_bus* bus, sd_bus_message* call)>;
// The bus daemon is asked: it knows which user opened a connection, whatever the message says.
std::optional<Caller> callerKnownToBus(sd_bus* bus, sd_bus_message* call);

class Service {
 public:
  // Of one user; what is beyond is refused.
  static constexpr std::size_t MaximumQuestions = 8;

  // `bus` (attached to `loop`) and `policy` outlive this object.
  Service(sd_bus* bus, sd_event* loop, Policy& policy, Lifetimes lifetimes, Identification identify = callerKnownToBus);
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
  struct OpenQuestion {
    sd_bus_message* call;
    Caller caller;
    Handle handle;
    std::unique_ptr<Question> question;
  };
  using Method = int (Service::*)(sd_bus_message*, const Caller&);

  template <Method method>
  static int dispatch(sd_bus_message* call, void* self, sd_bus_error* error);
  static int ownerChanged(sd_bus_message* signal, void* self, sd_bus_error* error);

  int create(sd_bus_message* call, const Caller& caller);
  int makeExternalForm(sd_bus_message* call, const Caller& caller);
  int createFromExternalForm(sd_bus_message* call, const Caller& caller);
  int copyRights(sd_bus_message* call, const Caller& caller);
  int free(sd_bus_message* call, const Caller& caller);
  int executeWithPrivileges(sd_bus_message* call, const Caller& caller);

  [[nodiscard]] std::optional<Caller> callerOf(sd_bus_message* call);
  int ask(sd_bus_message* call, const Caller& caller, Handle handle, bool interaction);
  void answered(unsigned question, AuthorizationStatus status);
  void dropConnection(const std::string& name);
  static void close(OpenQuestion& question);

  static const sd_bus_vtable Methods[];

  sd_bus* _bus;
  Policy& _policy;
  Identification _identify;
  std::map<std::string, uid_t> _users;  // of the connections that are there
  Sessions _sessions;
  ToolRunner _tools;
  unsigned _lastQuestion = 0;
  std::map<unsigned, OpenQuestion> _questions;
  sd_bus_slot* _object = nullptr;
  sd_bus_slot* _watch = nullptr;
};

}  // namespace platform::Linux::authorizationd
