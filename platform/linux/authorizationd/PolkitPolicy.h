#pragma once
// On the system bus: the policy service of the machine decides, and asks an administrator where it has to.
#include <systemd/sd-bus.h>

#include "platform/linux/authorizationd/Journal.h"
#include "platform/linux/authorizationd/Policy.h"

namespace platform::Linux::authorizationd {

// How long an answer of the policy service is waited for; then the question is withdrawn and the answer an error.
struct Patience {
  // A person has to find a password.
  Time person = std::chrono::minutes(5);
  // The service alone has only to start and to read its rules.
  Time service = std::chrono::seconds(30);
};

class PolkitPolicy final : public Policy {
 public:
  // `bus` is the system bus, attached to the event loop; both outlive this object.
  PolkitPolicy(sd_bus* bus, Journal& journal, Patience patience) : _bus(bus), _journal(journal), _patience(patience) {}

  [[nodiscard]] bool serves(uid_t /*uid*/) const override { return true; }
  std::unique_ptr<Question> ask(const Caller& caller, Right right, bool interaction, Answer answer) override;

 private:
  sd_bus* _bus;
  Journal& _journal;
  Patience _patience;
  unsigned _asked = 0;
};

}  // namespace platform::Linux::authorizationd
