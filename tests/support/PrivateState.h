#pragma once
// For test programs that run root's tool: from the start of the program on, /var/lib is its own.
#include <gtest/gtest.h>

#include <filesystem>

#include "tests/support/StateNamespace.h"

namespace tests {

class PrivateState : public ::testing::Environment {
 public:
  void SetUp() override {
    if (::geteuid() != 0) return;
    _isPrivate = makeStatePrivate();
    if (!_isPrivate) GTEST_SKIP() << "root's tool would change /var/lib, and no name space can be made";
  }

  // Forgets what earlier tests of the program left.
  static void clear() {
    if (_isPrivate) std::filesystem::remove_all("/var/lib/kelto");
  }

 private:
  static inline bool _isPrivate = false;
};

inline ::testing::Environment* const privateState = ::testing::AddGlobalTestEnvironment(new PrivateState);

}  // namespace tests
