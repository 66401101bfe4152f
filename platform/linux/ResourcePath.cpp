#include "platform/linux/ResourcePath.h"

#include <cstdlib>
#include <string>

namespace platform::Linux {

void putResourcesFirstOnPath(const platform::Bundle& bundle) {
  constexpr const char* standardPath = "/usr/local/bin:/usr/bin:/bin";
  const char* before = std::getenv("PATH");
  const std::string original = before == nullptr ? standardPath : before;
  setenv("KELTO_ORIGINAL_PATH", original.c_str(), 1);
  setenv("PATH", (bundle.bundlePath() + "/Contents/Resources:" + original).c_str(), 1);
}

}  // namespace platform::Linux
