#pragma once
// The broker's memory: who holds which session, which sessions hold the right, and which external forms stand for them.
//
// A session lives as long as a handle on it. A handle belongs to one connection of the bus and is of no use to another. The
// right belongs to the session, so that everyone who imported it shares it. Time is passed in. One thread.
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

namespace platform::Linux::authorizationd {

// Since the machine was started, suspension included: a right must not outlast a closed lid.
using Time = std::chrono::microseconds;
using Handle = std::uint64_t;

// A connection of the bus, by its unique name, and its user as the bus knows it.
struct Caller {
  std::string name;
  uid_t uid;
};

struct Lifetimes {
  // From the export until it must have been imported: a hand-over takes seconds, a slow machine may take some more.
  Time form = std::chrono::seconds(60);
  // Long enough for the waits and the jobs of one update, too short for a desk that was left. Then the policy is asked
  // again.
  Time right = std::chrono::minutes(5);
};

class Sessions {
 public:
  // Of one user, and of one connection; what is beyond fails, so that nobody can exhaust the memory that all users share,
  // and no program what the programs of its user share.
  static constexpr std::size_t MaximumHandles = 64;
  static constexpr std::size_t MaximumHandlesOfConnection = 16;
  static constexpr std::size_t MaximumForms = 16;

  explicit Sessions(Lifetimes lifetimes);

  // Each answers with a status; outputs are untouched on a status other than success.
  AuthorizationStatus create(const Caller& caller, Handle& handle);
  // Beyond MaximumForms the user's oldest form ends.
  AuthorizationStatus makeExternalForm(const Caller& caller, Handle handle, Time now, AuthorizationExternalForm& form);
  // Denied, in the same way and time, whether the form never was, has ended, or is another user's.
  AuthorizationStatus createFromExternalForm(const Caller& caller, std::span<const std::byte> form, Time now,
                                             Handle& handle);
  // Success while the session holds the right, otherwise denied.
  [[nodiscard]] AuthorizationStatus holdsRight(const Caller& caller, Handle handle, Time now) const;
  AuthorizationStatus grantRight(const Caller& caller, Handle handle, Time now);
  // Drops the handle; with `destroyRights` the session loses its right for everyone.
  AuthorizationStatus free(const Caller& caller, Handle handle, bool destroyRights);
  // Drops every handle of a connection that is gone; true when there was one.
  bool dropConnection(const std::string& name);

  [[nodiscard]] bool empty() const { return _holders.empty(); }

 private:
  struct Session {
    Time rightEnds{0};
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
  };

  [[nodiscard]] Session* sessionOf(const Caller& caller, Handle handle) const;
  AuthorizationStatus hold(const Caller& caller, std::shared_ptr<Session> session, Handle& handle);
  [[nodiscard]] bool mayHold(const Caller& caller) const;
  void dropEndedForms(Time now);
  void makeRoomForForm(uid_t uid);

  Lifetimes _lifetimes;
  Handle _next;
  std::map<Handle, Holder> _holders;
  std::vector<ExportedForm> _forms;
};

}  // namespace platform::Linux::authorizationd
