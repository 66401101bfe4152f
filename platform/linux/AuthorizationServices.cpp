#include "platform/linux/AuthorizationServices.h"

#include <fcntl.h>

#include <cerrno>
#include <cstring>
#include <string_view>
#include <utility>

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

struct UnreferenceSlot {
  void operator()(sd_bus_slot* slot) const { sd_bus_slot_unref(slot); }
};

int keepAnswer(sd_bus_message* answer, void* kept, sd_bus_error* /*error*/) {
  static_cast<BusMessage*>(kept)->reset(sd_bus_message_ref(answer));
  return 1;
}

BusMessage callOf(sd_bus* bus, const protocol::BrokerMethod& method) {
  sd_bus_message* request = nullptr;
  sd_bus_message_new_method_call(bus, &request, protocol::brokerBusName, protocol::brokerObjectPath,
                                 protocol::brokerInterface, method.name);
  return BusMessage(request);
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
  BusError error;
  BusMessage answer;
  const BusMessage request = callOf(_bus->get(), method);
  int result = request ? writeArguments(request.get()) : -ENOTCONN;
  if (result >= 0) result = answerTo(request.get(), timeoutMicroseconds, error, answer);
  if (result >= 0) result = readAnswer(answer.get());

  AuthorizationStatus status = result >= 0 ? errAuthorizationSuccess : errAuthorizationInternal;
  if (sd_bus_error_is_set(error.get()) != 0) status = protocol::brokerStatusForError(error.get()->name);
  _isMethodMissing = error.has(SD_BUS_ERROR_UNKNOWN_METHOD);
  if (status != errAuthorizationSuccess) _cause = std::string(method.name) + ": " + error.cause(result);
  return status;
}

// A person may think for minutes, and meanwhile the broker says that it is asking one. The bus keeps the order of messages:
// an answer that is not there when it says that it asks nobody will never come.
int AuthorizationServices::answerTo(sd_bus_message* request, std::uint64_t timeoutMicroseconds, BusError& error,
                                    BusMessage& answer) {
  sd_bus_slot* slot = nullptr;
  int result = sd_bus_call_async(_bus->get(), &slot, request, keepAnswer, &answer, timeoutMicroseconds);
  const std::unique_ptr<sd_bus_slot, UnreferenceSlot> ownedSlot(slot);
  for (bool isAsking = true; result >= 0 && !answer && isAsking;) {
    result = takeMessages(answer, longestWait);
    if (result < 0 || answer) break;
    isAsking = isBrokerAsking();
    result = takeMessages(answer, std::chrono::microseconds(0));
  }
  if (result < 0) return result;
  if (!answer) return sd_bus_error_set(error.get(), SD_BUS_ERROR_NO_REPLY, "the broker does not answer");
  sd_bus_error_copy(error.get(), sd_bus_message_get_error(answer.get()));
  return -sd_bus_message_get_errno(answer.get());
}

// Returns when the answer is there or the time is over; negative when the connection is lost.
int AuthorizationServices::takeMessages(const BusMessage& answer, std::chrono::microseconds time) {
  using Clock = std::chrono::steady_clock;
  const auto end = Clock::now() + time;
  while (!answer) {
    const int taken = sd_bus_process(_bus->get(), nullptr);
    if (taken < 0) return taken;
    if (taken > 0) continue;
    const auto left = std::chrono::duration_cast<std::chrono::microseconds>(end - Clock::now()).count();
    if (left <= 0) break;
    sd_bus_wait(_bus->get(), static_cast<std::uint64_t>(left));
  }
  return 0;
}

// One of an earlier version does not tell, and has its whole time.
bool AuthorizationServices::isBrokerAsking() {
  const BusMessage request = callOf(_bus->get(), brokerMethod::isAsking);
  const auto patience = static_cast<std::uint64_t>(longestWait.count());
  BusError error;
  sd_bus_message* reply = nullptr;
  const int status = request ? sd_bus_call(_bus->get(), request.get(), patience, error.get(), &reply) : -ENOTCONN;
  const BusMessage owned(reply);
  if (status < 0) return error.has(SD_BUS_ERROR_UNKNOWN_METHOD);
  int isAsking = 0;
  return sd_bus_message_read(reply, brokerMethod::isAsking.gives, &isAsking) > 0 && isAsking != 0;
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
