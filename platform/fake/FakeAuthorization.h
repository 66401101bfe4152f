#pragma once
// Authorization sessions in memory, and a tool that answers as told. One thread.
#include <deque>
#include <functional>
#include <map>
#include <optional>
#include <vector>

#include "platform/Authorization.h"
#include "platform/fake/CallJournal.h"

namespace platform::fake {

// The note that FakeAuthorization takes of a request for the administrator right.
inline std::string copiedRights(AuthorizationRef authorization, AuthorizationFlags flags) {
  return "copyRights " + std::to_string(authorization) + " " + kAuthorizationRightExecute + " " + std::to_string(flags);
}

// A tool process: takes what is written and answers in the given chunks, each handed out by one or more reads.
class FakeByteStream final : public ByteStream {
 public:
  std::size_t write(const void* bytes, std::size_t length) override;
  std::size_t read(void* buffer, std::size_t capacity) override;
  void expectSignsOfLife(const std::string& path) override { record->signs = path; }
  ~FakeByteStream() override;

  struct Record {
    std::string written;
    std::size_t writes = 0;
    std::vector<std::size_t> reads;  // bytes given by every read
    bool isClosed = false;
    std::string signs;  // the file whose times are its signs of life
  };
  std::shared_ptr<Record> record = std::make_shared<Record>();
  std::deque<std::string> chunks;      // what single writes of the tool put on the pipe
  std::size_t writeLimit = SIZE_MAX;   // writes beyond this many bytes in all are cut short
  std::function<void()> beforeRead{};  // the tool at work
};

// Every handle names a session, and the handles that one session was handed over to share its right. The administrator
// right is granted to everyone who asks to extend the rights; no other right is.
class FakeAuthorizationServices final : public AuthorizationServices, public Journaled {
 public:
  using Journaled::Journaled;

  [[nodiscard]] std::string cause() const override { return failureCause; }
  AuthorizationStatus create(AuthorizationFlags flags, AuthorizationRef& authorization) override;
  AuthorizationStatus makeExternalForm(AuthorizationRef authorization, AuthorizationExternalForm& form) override;
  AuthorizationStatus createFromExternalForm(const AuthorizationExternalForm& form,
                                             AuthorizationRef& authorization) override;
  AuthorizationStatus copyRights(AuthorizationRef authorization, const AuthorizationRights& rights,
                                 AuthorizationFlags flags) override;
  AuthorizationStatus free(AuthorizationRef authorization, AuthorizationFlags flags) override;
  AuthorizationStatus executeWithPrivileges(AuthorizationRef authorization, const std::string& path,
                                            AuthorizationFlags options, std::unique_ptr<ByteStream>& stream) override;

  // As if another program had exported a session that holds the right.
  void addForeignForm(const AuthorizationExternalForm& form);

  // Every call in order, as text: "create 0", "copyRights 1 system.privilege.admin 18", "free 1 8", ...
  std::vector<std::string> calls;
  // The answers, when they are to be failures.
  AuthorizationStatus createStatus = errAuthorizationSuccess;
  AuthorizationStatus makeExternalFormStatus = errAuthorizationSuccess;
  AuthorizationStatus createFromExternalFormStatus = errAuthorizationSuccess;
  AuthorizationStatus copyRightsStatus = errAuthorizationSuccess;
  AuthorizationStatus freeStatus = errAuthorizationSuccess;
  AuthorizationStatus executeStatus = errAuthorizationSuccess;
  std::string failureCause;                               // what cause() answers
  std::optional<AuthorizationExternalForm> externalForm;  // handed out by makeExternalForm; otherwise each is another
  AuthorizationExternalForm adoptedForm{};                // taken by createFromExternalForm
  std::string rightValue;                                 // value of the right last asked for
  std::function<std::unique_ptr<ByteStream>()> tool = [] { return std::make_unique<FakeByteStream>(); };

 private:
  struct Session {
    bool holdsRight = false;
  };

  void take(std::string call);
  [[nodiscard]] std::shared_ptr<Session> sessionOf(AuthorizationRef authorization) const;

  AuthorizationRef _last = 0;
  std::map<AuthorizationRef, std::shared_ptr<Session>> _handles;
  std::vector<std::pair<AuthorizationExternalForm, std::shared_ptr<Session>>> _forms;
};

}  // namespace platform::fake
