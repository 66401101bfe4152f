#pragma once
// Authorization Services on Linux: the broker `authorizationd` on the system bus, else on the user's session bus.
//
// The broker is looked for when a session is first made or imported, and kept: one connection for the life of the object,
// since the broker drops what belongs to a connection that is gone. When that is lost, every call answers
// errAuthorizationInternal. Main thread, like the interface; calls and stream operations run through the BlockingCall.
#include <chrono>
#include <functional>
#include <optional>

#include "platform/Authorization.h"
#include "platform/SystemLog.h"
#include "platform/linux/BlockingCall.h"
#include "platform/linux/Bus.h"
#include "platform/linux/BusCall.h"
#include "protocol/Broker.h"
#include "protocol/ToolProtocol.h"

namespace platform::Linux {

class AuthorizationServices final : public platform::AuthorizationServices {
 public:
  // Called with true when a tool has been started, and with false when its stream is closed.
  std::function<void(bool)> onToolRuns;
  // A tool that gives neither an answer nor a sign of life for so long is given up.
  std::chrono::milliseconds longestSilence = std::chrono::seconds(protocol::longestSilence);

  // After so long without an answer to a call the broker is asked whether it is asking somebody about it. When it is not,
  // or says nothing for as long again, the call is given up.
  std::chrono::microseconds longestWait = std::chrono::seconds(25);

  // Both outlive this object, and this object the streams that it hands out.
  AuthorizationServices(BlockingCall& blockingCall, platform::SystemLog& log) : _blockingCall(blockingCall), _log(log) {}

  [[nodiscard]] std::string cause() const override { return _cause; }
  // The flags are of no effect: no rights are asked for here.
  AuthorizationStatus create(AuthorizationFlags flags, AuthorizationRef& authorization) override;
  AuthorizationStatus makeExternalForm(AuthorizationRef authorization, AuthorizationExternalForm& form) override;
  // A form that only the process named by the pidfd can use. A broker that knows no such forms makes one for any process.
  AuthorizationStatus makeExternalFormFor(AuthorizationRef authorization, int pidfd, AuthorizationExternalForm& form);
  AuthorizationStatus createFromExternalForm(const AuthorizationExternalForm& form,
                                             AuthorizationRef& authorization) override;
  AuthorizationStatus copyRights(AuthorizationRef authorization, const AuthorizationRights& rights,
                                 AuthorizationFlags flags) override;
  AuthorizationStatus free(AuthorizationRef authorization, AuthorizationFlags flags) override;
  AuthorizationStatus executeWithPrivileges(AuthorizationRef authorization, const std::string& path,
                                            AuthorizationFlags options, std::unique_ptr<ByteStream>& stream) override;

 private:
  using Part = std::function<int(sd_bus_message*)>;
  using Method = protocol::BrokerMethod;

  bool connect();
  AuthorizationStatus call(const Method& method, std::uint64_t timeoutMicroseconds, const Part& writeArguments,
                           const Part& readAnswer);
  AuthorizationStatus exchange(const Method& method, std::uint64_t timeoutMicroseconds, const Part& writeArguments,
                               const Part& readAnswer);
  int answerTo(sd_bus_message* request, std::uint64_t timeoutMicroseconds, BusError& error, BusMessage& answer);
  int takeMessages(const BusMessage& answer, std::chrono::microseconds time);
  bool isBrokerAsking();
  AuthorizationStatus copyRight(AuthorizationRef authorization, const char* right, AuthorizationFlags flags);

  BlockingCall& _blockingCall;
  platform::SystemLog& _log;
  std::optional<Bus> _bus;
  std::string _cause;             // of the last call's failure
  bool _isMethodMissing = false;  // in the broker, of the last call
};

}  // namespace platform::Linux
