#pragma once
// On the system bus: the policy service of the machine decides, and asks an administrator where it has to.
#include <systemd/sd-bus.h>

#include "platform/linux/authorizationd/Policy.h"

namespace platform::Linux::authorizationd {

inline constexpr const char* ActionIdentifier = "com.kelto.authorization.admin";

class PolkitPolicy final : public Policy {
 public:
  // `bus` is the system bus, attached to the event loop; it outlives this object.
  explicit PolkitPolicy(sd_bus* bus) : _bus(bus) {}

  [[nodiscard]] bool serves(uid_t /*uid*/) const override { return true; }
  std::unique_ptr<Question> ask(const Caller& caller, bool interaction, Answer answer) override;

 private:
  sd_bus* _bus;
  unsigned _asked = 0;
};

}  // namespace platform::Linux::authorizationd
