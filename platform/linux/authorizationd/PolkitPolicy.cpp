#include "platform/linux/authorizationd/PolkitPolicy.h"

#include <cstring>
#include <string>
#include <string_view>
#include <utility>

#include "platform/linux/BusCall.h"
#include "platform/linux/authorizationd/CallerProcess.h"
#include "protocol/Broker.h"

namespace platform::Linux::authorizationd {

namespace {

constexpr const char* service = "org.freedesktop.PolicyKit1";
constexpr const char* authority = "/org/freedesktop/PolicyKit1/Authority";
constexpr const char* authorityInterface = "org.freedesktop.PolicyKit1.Authority";
constexpr unsigned allowUserInteraction = 1;

struct Verdict {
  bool authorized = false;
  bool challenge = false;
  bool dismissed = false;
};

bool readDetails(sd_bus_message* reply, Verdict& verdict) {
  if (sd_bus_message_enter_container(reply, 'a', "{ss}") < 0) return false;
  const char* key = nullptr;
  const char* value = nullptr;
  while (sd_bus_message_enter_container(reply, 'e', "ss") > 0) {
    if (sd_bus_message_read(reply, "ss", &key, &value) < 0 || sd_bus_message_exit_container(reply) < 0) return false;
    if (std::string_view(key) == "polkit.dismissed" && *value != '\0') verdict.dismissed = true;
  }
  return sd_bus_message_exit_container(reply) >= 0;
}

bool readVerdict(sd_bus_message* reply, Verdict& verdict) {
  int authorized = 0;
  int challenge = 0;
  if (sd_bus_message_enter_container(reply, 'r', "bba{ss}") < 0) return false;
  if (sd_bus_message_read(reply, "bb", &authorized, &challenge) < 0 || !readDetails(reply, verdict)) return false;
  verdict.authorized = authorized != 0;
  verdict.challenge = challenge != 0;
  return true;
}

AuthorizationStatus statusOf(const Verdict& verdict) {
  if (verdict.authorized) return errAuthorizationSuccess;
  if (verdict.dismissed) return errAuthorizationCanceled;
  if (!verdict.challenge) return errAuthorizationDenied;
  return errAuthorizationInteractionNotAllowed;
}

// The program that asks, as the person who is asked sees it.
std::string programOf(const Caller& caller) {
  const std::string path = executableOf(caller.process, caller.uid);
  return path.empty() ? "?" : printable(path);
}

class PolkitQuestion final : public Question {
 public:
  PolkitQuestion(sd_bus* bus, Journal& journal, std::string cancellation, Policy::Answer answer)
      : _bus(bus), _journal(journal), _cancellation(std::move(cancellation)), _answer(std::move(answer)) {}
  PolkitQuestion(const PolkitQuestion&) = delete;
  PolkitQuestion& operator=(const PolkitQuestion&) = delete;
  ~PolkitQuestion() override {
    if (_slot != nullptr) cancel();
    sd_bus_slot_unref(_slot);
  }

  int send(const Caller& caller, Right right, bool interaction, const Patience& patience) {
    sd_bus_message* call = nullptr;
    int status = sd_bus_message_new_method_call(_bus, &call, service, authority, authorityInterface, "CheckAuthorization");
    const BusMessage owned(call);
    if (status < 0) return status;
    const char* action = right == Right::admin ? protocol::adminAction : protocol::anyProgramAction;
    status = sd_bus_message_append(call, "(sa{sv})sa{ss}us", "system-bus-name", 1, "name", "s", caller.name.c_str(), action,
                                   1, protocol::programDetail, programOf(caller).c_str(),
                                   interaction ? allowUserInteraction : 0U, _cancellation.c_str());
    const auto wait = static_cast<std::uint64_t>((interaction ? patience.person : patience.service).count());
    if (status >= 0) status = sd_bus_call_async(_bus, &_slot, call, answered, this, wait);
    return status;
  }

 private:
  static int answered(sd_bus_message* reply, void* self, sd_bus_error* /*error*/) {
    auto* question = static_cast<PolkitQuestion*>(self);
    const AuthorizationStatus status = question->read(reply);
    const Policy::Answer answer = std::move(question->_answer);
    answer(status);  // `question` is gone after this
    return 0;
  }

  AuthorizationStatus read(sd_bus_message* reply) {
    // A question without an answer in time is withdrawn from the service by the destructor, one with an answer is not.
    if (!sd_bus_message_is_method_error(reply, SD_BUS_ERROR_NO_REPLY)) _slot = sd_bus_slot_unref(_slot);
    if (const sd_bus_error* error = sd_bus_message_get_error(reply)) {
      _journal.record("the policy service failed: " + quoted(error->message != nullptr ? error->message : error->name));
      return errAuthorizationInternal;
    }
    Verdict verdict;
    if (readVerdict(reply, verdict)) return statusOf(verdict);
    _journal.record("the policy service gave an answer of an unknown form");
    return errAuthorizationInternal;
  }

  void cancel() {
    sd_bus_message* call = nullptr;
    if (sd_bus_message_new_method_call(_bus, &call, service, authority, authorityInterface, "CancelCheckAuthorization") <
        0) {
      return;
    }
    const BusMessage owned(call);
    if (sd_bus_message_append(call, "s", _cancellation.c_str()) < 0) return;
    sd_bus_message_set_expect_reply(call, 0);
    sd_bus_send(_bus, call, nullptr);
  }

  sd_bus* _bus;
  Journal& _journal;
  sd_bus_slot* _slot = nullptr;
  std::string _cancellation;
  Policy::Answer _answer;
};

}  // namespace

std::unique_ptr<Question> PolkitPolicy::ask(const Caller& caller, Right right, bool interaction, Answer answer) {
  auto question = std::make_unique<PolkitQuestion>(_bus, _journal, "question-" + std::to_string(++_asked), answer);
  const int status = question->send(caller, right, interaction, _patience);
  if (status >= 0) return question;
  _journal.record(std::string("the policy service cannot be asked: ") + std::strerror(-status));
  answer(errAuthorizationInternal);
  return nullptr;
}

}  // namespace platform::Linux::authorizationd
