#include "sdk/BrokerSession.h"

#include <cstring>
#include <utility>

#include <kelto/controller.h>

namespace sdk {
namespace {

namespace brokerMethod = protocol::brokerMethod;

// The broker gives up on a person before its client gives up on the broker.
constexpr std::uint64_t patienceForPerson = 600 * second;
constexpr std::uint64_t patienceForBroker = 60 * second;

// The flags of CopyRights: the user may be asked (1), and the right is added to the session (2), ahead of its use (16).
constexpr std::uint32_t askAndExtend = 1U | 2U | 16U;

Failure failureOf(sd_bus_message* reply) {
  const sd_bus_error* error = sd_bus_message_get_error(reply);
  const bool isDenied = error != nullptr && protocol::brokerStatusForError(error->name) == protocol::brokerStatusDenied;
  return {isDenied ? KELTO_ERROR_DENIED : KELTO_ERROR_BROKER, causeOf(reply)};
}

const Failure noCall{KELTO_ERROR_BROKER, "the broker cannot be called"};

}  // namespace

void BrokerSession::obtainRight(RightAnswered answered) {
  end();
  _answered = std::move(answered);
  startBroker(true);
}

// A broker of the machine that does not start is not replaced by the user's own.
void BrokerSession::startBroker(bool onSystemBus) {
  _bus = openBus(onSystemBus ? sd_bus_open_system : sd_bus_open_user, _loop);
  const auto started = [this, onSystemBus](sd_bus_message* reply) {
    if (!hasFailed(reply)) return create();
    const bool isMissing = sd_bus_message_is_method_error(reply, SD_BUS_ERROR_SERVICE_UNKNOWN) > 0;
    const std::string cause = causeOf(reply);
    if (isMissing && onSystemBus) return startBroker(false);
    answer(Failure{isMissing ? KELTO_ERROR_NO_BROKER : KELTO_ERROR_BROKER, cause});
  };
  const auto write = [](sd_bus_message* request) {
    return sd_bus_message_append(request, "su", protocol::brokerBusName, 0U);
  };
  if (_bus && callLater(_bus.get(), busMethod("StartServiceByName"), patienceForBroker, write, started)) return;
  if (onSystemBus) return startBroker(false);
  answer(Failure{KELTO_ERROR_NO_BROKER, "there is neither a system bus nor a session bus"});
}

bool BrokerSession::call(const protocol::BrokerMethod& method, std::uint64_t patience, const Write& write,
                         Answered answered) {
  const Method called{protocol::brokerBusName, protocol::brokerObjectPath, protocol::brokerInterface, method.name};
  return callLater(_bus.get(), called, patience, write, std::move(answered));
}

void BrokerSession::create() {
  const bool sent = call(brokerMethod::create, patienceForBroker, {}, [this](sd_bus_message* reply) {
    if (hasFailed(reply) || sd_bus_message_read(reply, brokerMethod::create.gives, &_handle) < 0)
      return answer(failureOf(reply));
    copyRight();
  });
  if (!sent) answer(noCall);
}

void BrokerSession::copyRight() {
  const auto write = [this](sd_bus_message* request) {
    return sd_bus_message_append(request, brokerMethod::copyRights.takes, _handle, protocol::adminRight, askAndExtend);
  };
  const bool sent = call(brokerMethod::copyRights, patienceForPerson, write, [this](sd_bus_message* reply) {
    std::uint32_t status = 0;
    if (hasFailed(reply) || sd_bus_message_read(reply, brokerMethod::copyRights.gives, &status) < 0)
      return answer(failureOf(reply));
    const auto result = static_cast<std::int32_t>(status);
    if (result == protocol::brokerStatusSuccess) return answer(std::nullopt);
    const bool isDenied = result == protocol::brokerStatusDenied;
    answer(
        Failure{isDenied ? KELTO_ERROR_DENIED : KELTO_ERROR_BROKER, "the right was not given: " + std::to_string(result)});
  });
  if (!sent) answer(noCall);
}

void BrokerSession::answer(const std::optional<Failure>& failure) {
  _hasRight = !failure;
  if (const auto answered = std::exchange(_answered, nullptr)) answered(failure);
}

void BrokerSession::makeForm(int pidfd, const FormAnswered& answered) {
  const auto write = [&](sd_bus_message* request) {
    return sd_bus_message_append(request, brokerMethod::makeExternalFormFor.takes, _handle, pidfd);
  };
  const auto read = [answered](sd_bus_message* reply) {
    const void* bytes = nullptr;
    std::size_t length = 0;
    Form form{};
    if (hasFailed(reply)) return answered(failureOf(reply), form);
    if (sd_bus_message_read_array(reply, 'y', &bytes, &length) < 0 || length != form.size())
      return answered(Failure{KELTO_ERROR_BROKER, "the broker's form is malformed"}, form);
    std::memcpy(form.data(), bytes, length);
    answered(std::nullopt, form);
  };
  if (!call(brokerMethod::makeExternalFormFor, patienceForBroker, write, read)) answered(noCall, {});
}

void BrokerSession::end() {
  _bus = nullptr;
  _handle = 0;
  _hasRight = false;
  _answered = nullptr;
}

}  // namespace sdk
