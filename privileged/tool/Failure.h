#pragma once
// Why a job was refused or failed. Thrown inside the tool and caught in one place, where the reason is printed; it never
// leaves the program. Code that throws has undone its changes first.
#include <stdexcept>
#include <string>
#include <string_view>

namespace AssistantTool {

class Failure : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// "<what>: <the system's words for the error of the call just made>".
[[noreturn]] void failWithSystemError(std::string_view what);
[[noreturn]] void failWithSystemError(std::string_view what, int error);

}  // namespace AssistantTool
