#pragma once
// Background services of the machine. Main thread.
#include <optional>
#include <string>

#include "foundation/plist/PropertyList.h"

namespace platform {

class ServiceManagement {
 public:
  virtual ~ServiceManagement() = default;
  // The service manager's description of a job in the system domain, with "PID" only while the job runs; nullopt if the
  // manager does not know the job or does not answer.
  [[nodiscard]] virtual std::optional<foundation::PropertyList::Dictionary> copyJobDictionary(
      const std::string& label) const = 0;
};

}  // namespace platform
