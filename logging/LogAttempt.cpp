#include "logging/LogAttempt.h"

#include "logging/LogCore.h"

namespace logging {

void reportThrown(const char* reason) noexcept {
  try {
    if (const LogCore::Visit visit; visit) visit->reportThrown(reason);
  } catch (...) {
    // Without memory there is nothing to say it with.
  }
}

}  // namespace logging
