#include "platform/linux/authorizationd/Sessions.h"

#include <sys/random.h>

#include <algorithm>
#include <cstdlib>
#include <iterator>
#include <utility>

namespace platform::Linux::authorizationd {

namespace {

// Without random numbers there are no secrets, and then no broker.
void fillRandomly(void* bytes, std::size_t length) {
  if (::getrandom(bytes, length, 0) != static_cast<ssize_t>(length)) std::abort();
}

// All bits set when it holds, else none.
std::size_t maskOf(bool holds) { return std::size_t{0} - static_cast<std::size_t>(holds); }

// All bits set when the two are equal, else none; takes the same time wherever they differ.
std::size_t maskOfEqual(const AuthorizationExternalForm& left, const AuthorizationExternalForm& right) {
  unsigned difference = 0;
  for (std::size_t i = 0; i < left.bytes.size(); ++i)
    difference |= std::to_integer<unsigned>(left.bytes[i] ^ right.bytes[i]);
  return std::size_t{0} - static_cast<std::size_t>((difference - 1U) >> 31U);
}

}  // namespace

// Handles start anywhere, so that one from before a restart of the broker names nothing afterwards.
Sessions::Sessions(Lifetimes lifetimes) : _lifetimes(lifetimes), _next(0) {
  std::uint32_t start = 0;
  fillRandomly(&start, sizeof start);
  _next = (Handle{start} << 24U) + 1;
}

AuthorizationStatus Sessions::create(const Caller& caller, Handle& handle) {
  return hold(caller, std::make_shared<Session>(), handle);
}

AuthorizationStatus Sessions::makeExternalForm(const Caller& caller, Handle handle, Time now,
                                               AuthorizationExternalForm& form,
                                               std::shared_ptr<const NamedProcess> recipient) {
  if (sessionOf(caller, handle) == nullptr) return errAuthorizationInvalidRef;
  dropEndedForms(now);
  makeRoomForForm(caller.uid);
  auto& exported = _forms.emplace_back(ExportedForm{.form = {},
                                                    .uid = caller.uid,
                                                    .ends = now + _lifetimes.form,
                                                    .session = _holders.at(handle).session,
                                                    .recipient = std::move(recipient)});
  fillRandomly(exported.form.bytes.data(), exported.form.bytes.size());
  form = exported.form;
  return errAuthorizationSuccess;
}

AuthorizationStatus Sessions::createFromExternalForm(const Caller& caller, std::span<const std::byte> form, Time now,
                                                     Handle& handle, const char** cause) {
  if (!mayHold(caller)) return errAuthorizationInternal;
  dropEndedForms(now);
  AuthorizationExternalForm asked;
  std::copy_n(form.begin(), std::min(form.size(), asked.bytes.size()), asked.bytes.begin());
  const std::size_t rightLength = maskOf(form.size() == asked.bytes.size());
  // Every form is compared in every respect, and none ends the search: the time tells nothing about what is there.
  std::size_t known = 0;
  std::size_t found = 0;
  for (std::size_t i = 0; i < _forms.size(); ++i) {
    const pid_t recipient = _forms[i].recipient ? _forms[i].recipient->number() : caller.process;
    const std::size_t mayUse = maskOf(recipient == caller.process) & maskOf(!_forms[i].isUsed);
    const std::size_t same =
        maskOfEqual(asked, _forms[i].form) & maskOf(_forms[i].uid == caller.uid) & rightLength & (i + 1);
    known |= same;
    found |= same & mayUse;
  }
  if (cause != nullptr) *cause = causeOf(known);
  if (found == 0 || !isRecipientAlive(_forms[found - 1])) return errAuthorizationDenied;
  _forms[found - 1].isUsed = true;
  return hold(caller, _forms[found - 1].session.lock(), handle);
}

const char* Sessions::causeOf(std::size_t known) const {
  if (known == 0) return "a wrong form";
  return _forms[known - 1].isUsed ? "a form that was used before" : "a form that was made for another process";
}

// Only the process of the right number gets here. The number may have been given to it after the recipient ended.
bool Sessions::isRecipientAlive(const ExportedForm& form) { return !form.recipient || form.recipient->isAlive(); }

AuthorizationStatus Sessions::holdsRight(const Caller& caller, Handle handle, Time now, Right right) const {
  const Session* session = sessionOf(caller, handle);
  if (session == nullptr) return errAuthorizationInvalidRef;
  return now < session->rightEnds[static_cast<std::size_t>(right)] ? errAuthorizationSuccess : errAuthorizationDenied;
}

AuthorizationStatus Sessions::grantRight(const Caller& caller, Handle handle, Time now, Right right) {
  Session* session = sessionOf(caller, handle);
  if (session == nullptr) return errAuthorizationInvalidRef;
  session->rightEnds[static_cast<std::size_t>(right)] = now + _lifetimes.right;
  return errAuthorizationSuccess;
}

AuthorizationStatus Sessions::free(const Caller& caller, Handle handle, bool destroyRights) {
  Session* session = sessionOf(caller, handle);
  if (session == nullptr) return errAuthorizationInvalidRef;
  if (destroyRights) session->rightEnds = {};
  _holders.erase(handle);
  return errAuthorizationSuccess;
}

bool Sessions::dropConnection(const std::string& name) {
  return std::erase_if(_holders, [&](const auto& entry) { return entry.second.caller.name == name; }) > 0;
}

// The user is compared as well: a bus gives a unique name once only, but nothing here has to rely on that.
Sessions::Session* Sessions::sessionOf(const Caller& caller, Handle handle) const {
  const auto holder = _holders.find(handle);
  if (holder == _holders.end()) return nullptr;
  const Caller& owner = holder->second.caller;
  return owner.name == caller.name && owner.uid == caller.uid ? holder->second.session.get() : nullptr;
}

AuthorizationStatus Sessions::hold(const Caller& caller, std::shared_ptr<Session> session, Handle& handle) {
  if (!mayHold(caller)) return errAuthorizationInternal;
  handle = _next++;
  _holders.emplace(handle, Holder{caller, std::move(session)});
  return errAuthorizationSuccess;
}

bool Sessions::mayHold(const Caller& caller) const {
  std::size_t ofUser = 0;
  std::size_t ofConnection = 0;
  for (const auto& [handle, holder] : _holders) {
    if (holder.caller.uid == caller.uid) ++ofUser;
    if (holder.caller.name == caller.name) ++ofConnection;
  }
  return ofUser < protocol::maximumHandlesOfUser && ofConnection < protocol::maximumHandlesOfConnection;
}

void Sessions::dropEndedForms(Time now) {
  std::erase_if(_forms, [&](const ExportedForm& form) { return form.ends <= now || form.session.expired(); });
}

void Sessions::makeRoomForForm(uid_t uid) {
  const auto ofUser = [&](const ExportedForm& form) { return form.uid == uid; };
  if (static_cast<std::size_t>(std::count_if(_forms.begin(), _forms.end(), ofUser)) < protocol::maximumFormsOfUser) return;
  _forms.erase(std::find_if(_forms.begin(), _forms.end(), ofUser));
}

}  // namespace platform::Linux::authorizationd
