#include "foundation/views/ViewEnvironment.h"

#include <cstdio>
#include <cstdlib>

namespace foundation {
namespace {

ViewEnvironment* theOne = nullptr;

}  // namespace

ViewEnvironment& ViewEnvironment::installed() {
  if (theOne == nullptr) {
    std::fputs("no view environment is installed: make a ViewEnvironment::Installation first\n", stderr);
    std::abort();
  }
  return *theOne;
}

ViewEnvironment::Installation::Installation(ViewEnvironment& environment) { theOne = &environment; }

ViewEnvironment::Installation::~Installation() { theOne = nullptr; }

}  // namespace foundation
