#include "protocol/LastRun.h"

#include <cstdlib>

namespace protocol {

std::string lastRunPath() {
  const char* state = std::getenv("XDG_STATE_HOME");
  const char* home = std::getenv("HOME");
  std::string folder;
  if (state != nullptr && *state == '/')
    folder = state;
  else if (home != nullptr && *home == '/')
    folder = std::string(home) + "/.local/state";
  return folder.empty() ? "" : folder + "/kelto/last-run.plist";
}

}  // namespace protocol
