#pragma once
// The broker's memory: who holds which session, which sessions hold the right, and which external forms stand for them.
//
// A session lives as long as a handle on it. A handle belongs to one connection of the bus and is of no use to another. The
// rights belong to the session, so that everyone who imported it shares them. Time is passed in. One thread.
#include <sys/types.h>

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "platform/Authorization.h"
#include "platform/linux/authorizationd/CallerProcess.h"
#include "protocol/Broker.h"

namespace platform::Linux::authorizationd {

// Since the machine was started, suspension included: a right must not outlast a closed lid.
using Time = std::chrono::microseconds;
using Handle = std::uint64_t;

// A connection of the bus, by its unique name, and its user as the bus knows it.
struct Caller {
  std::string name;
  uid_t uid;
  pid_t process = 0;  // that opened the connection; 0 when the bus does not know
};

enum class Right { admin, anyProgram };

struct Lifetimes {
  // From the export until it must have been imported: a hand-over takes seconds, a slow machine may take some more.
  Time form = std::chrono::seconds(60);
  // Long enough for the waits and the jobs of one update, too short for a desk that was left. Then the policy is asked
  // again.
  Time right = std::chrono::minutes(5);
};

class Sessions {
 public:
  explicit Sessions(Lifetimes lifetimes);

  // Each answers with a status; outputs are untouched on a status other than success.
  AuthorizationStatus create(const Caller& caller, Handle& handle);
  // A form for `recipient` only, or for any process of the user when that is nullptr. Beyond the user's limit the oldest
  // form ends.
  AuthorizationStatus makeExternalForm(const Caller& caller, Handle handle, Time now, AuthorizationExternalForm& form,
                                       std::shared_ptr<const NamedProcess> recipient = nullptr);
  // A form is good once. Denied, in the same way and time, whether it never was, has ended, was used, or is another user's
  // or another process's; `cause`, for the broker's own record, tells these apart as far as they can be.
  AuthorizationStatus createFromExternalForm(const Caller& caller, std::span<const std::byte> form, Time now,
                                             Handle& handle, const char** cause = nullptr);
  // Success while the session holds the right, otherwise denied.
  [[nodiscard]] AuthorizationStatus holdsRight(const Caller& caller, Handle handle, Time now,
                                               Right right = Right::admin) const;
  AuthorizationStatus grantRight(const Caller& caller, Handle handle, Time now, Right right = Right::admin);
  // Drops the handle; with `destroyRights` the session loses its rights for everyone.
  AuthorizationStatus free(const Caller& caller, Handle handle, bool destroyRights);
  // Drops every handle of a connection that is gone; true when there was one.
  bool dropConnection(const std::string& name);

  [[nodiscard]] bool empty() const { return _holders.empty(); }

 private:
  struct Session {
    std::array<Time, 2> rightEnds{};  // of each Right
  };
  struct Holder {
    Caller caller;
    std::shared_ptr<Session> session;
  };
  struct ExportedForm {
    AuthorizationExternalForm form;
    uid_t uid;
    Time ends;
    std::weak_ptr<Session> session;
    std::shared_ptr<const NamedProcess> recipient;
    bool isUsed = false;  // kept until its time is over, so that a second use can be told from a wrong form
  };

  [[nodiscard]] Session* sessionOf(const Caller& caller, Handle handle) const;
  AuthorizationStatus hold(const Caller& caller, std::shared_ptr<Session> session, Handle& handle);
  [[nodiscard]] bool mayHold(const Caller& caller) const;
  [[nodiscard]] const char* causeOf(std::size_t known) const;
  static bool isRecipientAlive(const ExportedForm& form);
  void dropEndedForms(Time now);
  void makeRoomForForm(uid_t uid);

  Lifetimes _lifetimes;
  Handle _next;
  std::map<Handle, Holder> _holders;
  std::vector<ExportedForm> _forms;
};

}  // namespace platform::Linux::authorizationd
