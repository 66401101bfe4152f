#include "platform/RunReport.h"

#include <utility>

namespace platform {
namespace {

const char* nameOf(Ending ending) {
  switch (ending) {
    case Ending::done:
      return "Done";
    case Ending::failed:
      return "Failed";
    case Ending::badArguments:
      return "Bad arguments";
    case Ending::noDisplay:
      return "No display";
    case Ending::refused:
      return "Refused";
    case Ending::stillRunning:
      return "Still running";
    case Ending::cancelled:
      return "Cancelled";
  }
  return "Failed";
}

std::string lineFor(const Failure& failure) {
  std::string line = std::string(nameOf(failure.ending)) + " (status " + std::to_string(static_cast<int>(failure.ending)) +
                     "): step \"" + failure.step + "\"";
  if (!failure.path.empty()) line += ", path \"" + failure.path + "\"";
  return line + ", cause: " + failure.cause;
}

}  // namespace

void RunReport::fail(const Failure& failure) {
  if (_isDone) return;
  _log.log(lineFor(failure));
  if (!_failure) _failure = failure;
  _expected.reset();
}

void RunReport::cancel(const std::string& cause) {
  Failure failure = _expected.value_or(Failure{.ending = {}, .step = "run", .path = {}, .cause = {}});
  failure.ending = Ending::cancelled;
  failure.cause = cause;
  fail(failure);
}

void RunReport::failAsExpected() {
  if (_expected) fail(*std::exchange(_expected, std::nullopt));
}

}  // namespace platform
