#include "platform/fake/FakeAuthorization.h"

#include <algorithm>
#include <cstring>
#include <string_view>
#include <utility>

namespace platform::fake {

FakeByteStream::~FakeByteStream() { record->isClosed = true; }

std::size_t FakeByteStream::write(const void* bytes, std::size_t length) {
  const std::size_t taken = std::min(length, writeLimit - std::min(writeLimit, record->written.size()));
  ++record->writes;
  record->written.append(static_cast<const char*>(bytes), taken);
  return taken;
}

std::size_t FakeByteStream::read(void* buffer, std::size_t capacity) {
  if (beforeRead) std::exchange(beforeRead, nullptr)();
  std::size_t given = 0;
  if (!chunks.empty()) {
    std::string& chunk = chunks.front();
    given = std::min(capacity, chunk.size());
    std::memcpy(buffer, chunk.data(), given);
    chunk.erase(0, given);
    if (chunk.empty()) chunks.pop_front();
  }
  record->reads.push_back(given);
  return given;
}

void FakeAuthorizationServices::take(std::string call) {
  note("authorization." + call);
  calls.push_back(std::move(call));
}

std::shared_ptr<FakeAuthorizationServices::Session> FakeAuthorizationServices::sessionOf(
    AuthorizationRef authorization) const {
  const auto place = _handles.find(authorization);
  return place == _handles.end() ? nullptr : place->second;
}

AuthorizationStatus FakeAuthorizationServices::create(AuthorizationFlags flags, AuthorizationRef& authorization) {
  take("create " + std::to_string(flags));
  if (createStatus != errAuthorizationSuccess) return createStatus;
  authorization = ++_last;
  _handles[authorization] = std::make_shared<Session>();
  return errAuthorizationSuccess;
}

AuthorizationStatus FakeAuthorizationServices::makeExternalForm(AuthorizationRef authorization,
                                                                AuthorizationExternalForm& form) {
  take("makeExternalForm " + std::to_string(authorization));
  const auto session = sessionOf(authorization);
  if (session == nullptr) return errAuthorizationInvalidRef;
  if (makeExternalFormStatus != errAuthorizationSuccess) return makeExternalFormStatus;
  AuthorizationExternalForm made;
  made.bytes.fill(static_cast<std::byte>(0x80 + _forms.size()));
  form = externalForm.value_or(made);
  _forms.emplace_back(form, session);
  return errAuthorizationSuccess;
}

void FakeAuthorizationServices::addForeignForm(const AuthorizationExternalForm& form) {
  _forms.emplace_back(form, std::make_shared<Session>(Session{.holdsRight = true}));
}

AuthorizationStatus FakeAuthorizationServices::createFromExternalForm(const AuthorizationExternalForm& form,
                                                                      AuthorizationRef& authorization) {
  take("createFromExternalForm");
  adoptedForm = form;
  if (createFromExternalFormStatus != errAuthorizationSuccess) return createFromExternalFormStatus;
  const auto known = std::ranges::find_if(_forms, [&](const auto& entry) { return entry.first.bytes == form.bytes; });
  if (known == _forms.end()) return errAuthorizationDenied;
  authorization = ++_last;
  _handles[authorization] = known->second;
  return errAuthorizationSuccess;
}

AuthorizationStatus FakeAuthorizationServices::copyRights(AuthorizationRef authorization, const AuthorizationRights& rights,
                                                          AuthorizationFlags flags) {
  const AuthorizationItem& item = rights.items[0];
  const std::string_view name = item.name == nullptr ? "" : item.name;
  take("copyRights " + std::to_string(authorization) + " " + std::string(name) + " " + std::to_string(flags));
  rightValue.assign(item.value == nullptr ? "" : static_cast<const char*>(item.value), item.valueLength);
  const auto session = sessionOf(authorization);
  if (session == nullptr) return errAuthorizationInvalidRef;
  if (copyRightsStatus != errAuthorizationSuccess) return copyRightsStatus;
  if (name != kAuthorizationRightExecute) return errAuthorizationDenied;
  if ((flags & kAuthorizationFlagExtendRights) != 0) session->holdsRight = true;
  return session->holdsRight ? errAuthorizationSuccess : errAuthorizationDenied;
}

AuthorizationStatus FakeAuthorizationServices::free(AuthorizationRef authorization, AuthorizationFlags flags) {
  take("free " + std::to_string(authorization) + " " + std::to_string(flags));
  const auto session = sessionOf(authorization);
  if (session == nullptr) return errAuthorizationInvalidRef;
  if (freeStatus != errAuthorizationSuccess) return freeStatus;
  if ((flags & kAuthorizationFlagDestroyRights) != 0) session->holdsRight = false;
  _handles.erase(authorization);
  return errAuthorizationSuccess;
}

AuthorizationStatus FakeAuthorizationServices::executeWithPrivileges(AuthorizationRef authorization,
                                                                     const std::string& path, AuthorizationFlags options,
                                                                     std::unique_ptr<ByteStream>& stream) {
  take("execute " + std::to_string(authorization) + " " + path + " " + std::to_string(options));
  const auto session = sessionOf(authorization);
  if (session == nullptr) return errAuthorizationInvalidRef;
  if (executeStatus != errAuthorizationSuccess) return executeStatus;
  if (!session->holdsRight) return errAuthorizationDenied;
  stream = tool();
  return errAuthorizationSuccess;
}

}  // namespace platform::fake
