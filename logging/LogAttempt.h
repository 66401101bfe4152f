#pragma once
// Work of a logger that runs on its queue by itself, when a timer is due for example: nobody is there to catch what it
// throws.
//
// Any thread.
#include <exception>

namespace logging {

// The first exception of the process goes to the system log.
void reportThrown(const char* reason) noexcept;

template <class Work>
void attempt(const Work& work) noexcept {
  try {
    work();
  } catch (const std::exception& exception) {
    reportThrown(exception.what());
  } catch (...) {
    reportThrown("unknown");
  }
}

}  // namespace logging
