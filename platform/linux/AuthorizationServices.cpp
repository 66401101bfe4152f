#include "platform/linux/AuthorizationServices.h"

#include <fcntl.h>

#include <cerrno>
#include <cstring>
#include <string_view>
#include <utility>

#include "platform/linux/BusCall.h"
#include "platform/linux/ToolStream.h"
#include "posix/Descriptor.h"

namespace platform::Linux {

namespace brokerMethod = protocol::brokerMethod;

static_assert(protocol::brokerStatusSuccess == errAuthorizationSuccess);
static_assert(protocol::brokerStatusInvalidRef == errAuthorizationInvalidRef);
static_assert(protocol::brokerStatusDenied == errAuthorizationDenied);
static_assert(protocol::brokerStatusInternal == errAuthorizationInternal);
static_assert(protocol::brokerStatusToolExecuteFailure == errAuthorizationToolExecuteFailure);
static_assert(protocol::externalFormLength == kAuthorizationExternalFormLength);
static_assert(std::string_view(protocol::adminRight) == kAuthorizationRightExecute);

namespace {

constexpr std::uint64_t minute = 60'000'000;
// The broker gives up on a person or on the policy service before its client gives up on the broker.
constexpr std::uint64_t waitForPerson = 10 * minute;
constexpr std::uint64_t waitForBroker = minute;
// The new version is started after the release, and the rights end with the connection anyway.
constexpr std::uint64_t waitForRelease = 5'000'000;

int readForm(sd_bus_message* reply, AuthorizationExternalForm& form) {
  const void* bytes = nullptr;
  std::size_t length = 0;
  if (const int result = sd_bus_message_read_array(reply, 'y', &bytes, &length); result < 0) return result;
  if (length != form.bytes.size()) return -EBADMSG;
  std::memcpy(form.bytes.data(), bytes, length);
  return 0;
}

enum class Broker { There, Missing, Broken };

// Starts the broker on that bus if need be.
Broker startBroker(sd_bus* bus, std::string& cause) {
  BusError error;
  const int status = sd_bus_call_method(bus, "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus",
                                        "StartServiceByName", error.get(), nullptr, "su", protocol::brokerBusName, 0U);
  if (status >= 0) return Broker::There;
  cause = error.cause(status);
  return error.has(SD_BUS_ERROR_SERVICE_UNKNOWN) ? Broker::Missing : Broker::Broken;
}

// The bus that has a broker. A broker of the machine that does not start is not replaced by the user's own.
std::optional<Bus> busWithBroker(std::string& cause) {
  for (const auto open : {&Bus::openSystem, &Bus::openUser}) {
    auto bus = open(&cause);
    const Broker broker = bus ? startBroker(bus->get(), cause) : Broker::Missing;
    if (broker == Broker::There) return bus;
    if (broker == Broker::Broken) break;
  }
  return std::nullopt;
}

}  // namespace

bool AuthorizationServices::connect() {
  if (_bus) return true;
  std::string cause;
  _blockingCall.run([&] { _bus = busWithBroker(cause); });
  if (_bus) return true;
  _cause = std::string("No authorization broker: install ") + protocol::brokerBusName +
           " on the system bus, or make it startable on the session bus (" + cause + ")";
  return false;
}

AuthorizationStatus AuthorizationServices::call(const Method& method, std::uint64_t timeoutMicroseconds,
                                                const Part& writeArguments, const Part& readAnswer) {
  AuthorizationStatus status = errAuthorizationInternal;
  if (!_bus) return status;
  _cause.clear();
  _blockingCall.run([&] { status = exchange(method, timeoutMicroseconds, writeArguments, readAnswer); });
  return status;
}

AuthorizationStatus AuthorizationServices::exchange(const Method& method, std::uint64_t timeoutMicroseconds,
                                                    const Part& writeArguments, const Part& readAnswer) {
  sd_bus_message* request = nullptr;
  sd_bus_message* reply = nullptr;
  BusError error;
  int result = sd_bus_message_new_method_call(_bus->get(), &request, protocol::brokerBusName, protocol::brokerObjectPath,
                                              protocol::brokerInterface, method.name);
  const BusMessage ownedRequest(request);
  if (result >= 0) result = writeArguments(request);
  if (result >= 0) result = sd_bus_call(_bus->get(), request, timeoutMicroseconds, error.get(), &reply);
  const BusMessage ownedReply(reply);
  if (result >= 0) result = readAnswer(reply);

  AuthorizationStatus status = result >= 0 ? errAuthorizationSuccess : errAuthorizationInternal;
  if (sd_bus_error_is_set(error.get()) != 0) status = protocol::brokerStatusForError(error.get()->name);
  _isMethodMissing = error.has(SD_BUS_ERROR_UNKNOWN_METHOD);
  if (status != errAuthorizationSuccess) _cause = std::string(method.name) + ": " + error.cause(result);
  return status;
}

AuthorizationStatus AuthorizationServices::create(AuthorizationFlags /*flags*/, AuthorizationRef& authorization) {
  if (!connect()) return errAuthorizationInternal;
  return call(
      brokerMethod::create, waitForBroker, [](sd_bus_message*) { return 0; },
      [&](sd_bus_message* reply) { return sd_bus_message_read(reply, "t", &authorization); });
}

AuthorizationStatus AuthorizationServices::makeExternalForm(AuthorizationRef authorization,
                                                            AuthorizationExternalForm& form) {
  if (authorization == 0) return errAuthorizationInvalidRef;
  return call(
      brokerMethod::makeExternalForm, waitForBroker,
      [&](sd_bus_message* request) { return sd_bus_message_append(request, "t", authorization); },
      [&](sd_bus_message* reply) { return readForm(reply, form); });
}

AuthorizationStatus AuthorizationServices::makeExternalFormFor(AuthorizationRef authorization, int pidfd,
                                                               AuthorizationExternalForm& form) {
  if (authorization == 0) return errAuthorizationInvalidRef;
  const AuthorizationStatus status = call(
      brokerMethod::makeExternalFormFor, waitForBroker,
      [&](sd_bus_message* request) { return sd_bus_message_append(request, "th", authorization, pidfd); },
      [&](sd_bus_message* reply) { return readForm(reply, form); });
  if (status == errAuthorizationSuccess || !std::exchange(_isMethodMissing, false)) return status;
  return makeExternalForm(authorization, form);
}

AuthorizationStatus AuthorizationServices::createFromExternalForm(const AuthorizationExternalForm& form,
                                                                  AuthorizationRef& authorization) {
  if (!connect()) return errAuthorizationInternal;
  return call(
      brokerMethod::createFromExternalForm, waitForBroker,
      [&](sd_bus_message* request) {
        return sd_bus_message_append_array(request, 'y', form.bytes.data(), form.bytes.size());
      },
      [&](sd_bus_message* reply) { return sd_bus_message_read(reply, "t", &authorization); });
}

AuthorizationStatus AuthorizationServices::copyRights(AuthorizationRef authorization, const AuthorizationRights& rights,
                                                      AuthorizationFlags flags) {
  if (authorization == 0) return errAuthorizationInvalidRef;
  for (std::uint32_t i = 0; i < rights.count; ++i) {
    const AuthorizationStatus status = copyRight(authorization, rights.items[i].name, flags);
    if (status != errAuthorizationSuccess) return status;
  }
  return errAuthorizationSuccess;
}

AuthorizationStatus AuthorizationServices::copyRight(AuthorizationRef authorization, const char* right,
                                                     AuthorizationFlags flags) {
  const bool interaction = (flags & kAuthorizationFlagInteractionAllowed) != 0;
  std::uint32_t answer = 0;
  const AuthorizationStatus status = call(
      brokerMethod::copyRights, interaction ? waitForPerson : waitForBroker,
      [&](sd_bus_message* request) {
        return sd_bus_message_append(request, brokerMethod::copyRights.takes, authorization, right != nullptr ? right : "",
                                     flags);
      },
      [&](sd_bus_message* reply) { return sd_bus_message_read(reply, "u", &answer); });
  return status != errAuthorizationSuccess ? status : static_cast<AuthorizationStatus>(answer);
}

AuthorizationStatus AuthorizationServices::free(AuthorizationRef authorization, AuthorizationFlags flags) {
  if (authorization == 0) return errAuthorizationInvalidRef;
  std::uint32_t answer = 0;
  const AuthorizationStatus status = call(
      brokerMethod::free, waitForRelease,
      [&](sd_bus_message* request) {
        return sd_bus_message_append(request, brokerMethod::free.takes, authorization, flags);
      },
      [&](sd_bus_message* reply) { return sd_bus_message_read(reply, "u", &answer); });
  // Nobody above has anything to say about rights that are given back.
  if (status != errAuthorizationSuccess) _log.log("authorizationd: " + _cause);
  return status != errAuthorizationSuccess ? status : static_cast<AuthorizationStatus>(answer);
}

AuthorizationStatus AuthorizationServices::executeWithPrivileges(AuthorizationRef authorization, const std::string& path,
                                                                 AuthorizationFlags options,
                                                                 std::unique_ptr<ByteStream>& stream) {
  if (authorization == 0) return errAuthorizationInvalidRef;
  // Naming the file is enough for the broker to examine and run it; opening it further could wait or have side effects.
  posix::Descriptor tool;
  int error = 0;
  _blockingCall.run([&] {
    tool = posix::Descriptor(::open(path.c_str(), O_PATH | O_CLOEXEC));
    error = errno;
  });
  if (!tool) {
    _cause = "The tool " + path + " cannot be opened: " + std::strerror(error);
    return errAuthorizationToolExecuteFailure;
  }
  posix::Descriptor socket;
  const AuthorizationStatus status = call(
      brokerMethod::executeWithPrivileges, waitForPerson,
      [&](sd_bus_message* request) {
        return sd_bus_message_append(request, brokerMethod::executeWithPrivileges.takes, authorization, tool.get(),
                                     options);
      },
      [&](sd_bus_message* reply) {
        int borrowed = -1;
        if (const int result = sd_bus_message_read(reply, "h", &borrowed); result < 0) return result;
        socket = posix::Descriptor(::fcntl(borrowed, F_DUPFD_CLOEXEC, 3));
        return socket ? 0 : -errno;
      });
  if (status == errAuthorizationSuccess)
    stream = std::make_unique<ToolStream>(std::move(socket), _blockingCall, onToolRuns, longestSilence, _cause);
  return status;
}

}  // namespace platform::Linux
