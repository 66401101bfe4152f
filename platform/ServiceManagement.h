#pragma once
// Background services of the machine, as the service manager describes them. Main thread.
#include <optional>
#include <string>

#include "foundation/plist/PropertyList.h"

namespace platform {

class ServiceManagement {
 public:
  virtual ~ServiceManagement() = default;
  // The description of a job in the system domain, with "PID" when it runs now; nothing when the service manager does not
  // know the job or cannot be asked.
  [[nodiscard]] virtual std::optional<foundation::PropertyList::Dictionary> copyJobDictionary(
      const std::string& label) const = 0;
};

}  // namespace platform
