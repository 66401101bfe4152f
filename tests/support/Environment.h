#pragma once
// Environment variables for the length of a test.
#include <stdlib.h>

#include <optional>
#include <string>
#include <utility>

namespace tests {

class EnvironmentVariable {
 public:
  // Sets the variable, or takes it away when no value is given; what was before comes back at the end.
  EnvironmentVariable(std::string name, const std::optional<std::string>& value) : _name(std::move(name)) {
    if (const char* before = ::getenv(_name.c_str())) _before = before;
    set(value);
  }
  ~EnvironmentVariable() { set(_before); }
  EnvironmentVariable(const EnvironmentVariable&) = delete;
  EnvironmentVariable& operator=(const EnvironmentVariable&) = delete;

 private:
  void set(const std::optional<std::string>& value) {
    if (value)
      ::setenv(_name.c_str(), value->c_str(), 1);
    else
      ::unsetenv(_name.c_str());
  }

  std::string _name;
  std::optional<std::string> _before;
};

}  // namespace tests
