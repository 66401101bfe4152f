#pragma once
// Work of loggers, formatters and blocks, which may throw: nobody is there to catch it. Any thread.
#include <exception>

namespace logging {

// `report` receives the exception's text and must not throw.
template <class Work, class Report>
void attempt(const Work& work, const Report& report) noexcept {
  try {
    work();
  } catch (const std::exception& exception) {
    report(exception.what());
  } catch (...) {
    report("unknown");
  }
}

// The first exception of the process goes to the system log.
void reportThrown(const char* reason) noexcept;

// For work that runs on a logger's queue by itself, when a timer is due for example.
template <class Work>
void attempt(const Work& work) noexcept {
  attempt(work, reportThrown);
}

}  // namespace logging
