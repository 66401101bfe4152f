#pragma once
// Jobs of the system's service manager: the unit "<label>.service" of systemd, asked over the system bus.
#include "platform/ServiceManagement.h"
#include "platform/SystemLog.h"

namespace platform::Linux {

// Main thread; answers within a few seconds even when the manager does not. `log` must outlive it.
class ServiceManagement final : public platform::ServiceManagement {
 public:
  explicit ServiceManagement(platform::SystemLog& log) : _log(log) {}

  // "Label", and "PID" when the service has a main process. Nothing when the unit is not loaded; why a manager could not
  // be asked goes to the log.
  [[nodiscard]] std::optional<foundation::PropertyList::Dictionary> copyJobDictionary(
      const std::string& label) const override;

 private:
  platform::SystemLog& _log;
};

}  // namespace platform::Linux
