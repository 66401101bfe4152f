#pragma once
// The programs that a test runs: those of its own build, or those of the build whose bin folder KELTO_TEST_BIN_DIR names.
//
// With the variable a test of an attack can be run against an older build, to see that it would have found the attack.
#include <cstdlib>
#include <filesystem>

namespace tests {

inline std::filesystem::path testedPrograms() {
  const char* other = std::getenv("KELTO_TEST_BIN_DIR");
  return other != nullptr && *other != '\0' ? other : KELTO_BIN_DIR;
}

}  // namespace tests
