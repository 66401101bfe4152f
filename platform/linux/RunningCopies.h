#pragma once
// The running copies of an application.
#include <string>
#include <vector>

#include "platform/Bundle.h"
#include "platform/linux/RunningProcesses.h"

namespace platform::Linux {

struct SoughtApplication {
  std::string identifier;
  // A bundle whose main executable counts whatever its identifier; may be empty.
  std::string installedBundle;
};

// Every process but this one that is a copy of the application. One is when any of these holds:
//   - it runs the main executable of a bundle with the identifier, or of the installed bundle, by path or by file;
//   - it did, and the bundle was moved into a staging folder beside its place when it was replaced;
//   - it interprets a script that is such a main executable;
//   - it owns the identifier on the session bus;
//   - it is the first process of a unit that a desktop named after the identifier;
//   - this program or the desktop has started it as this application, whatever program it has become since.
// Other programs of a bundle do not count: they get their end from the application. Of another user's processes only the
// words that they were started with are known. Blocks for the bus, up to a few seconds. Any thread.
std::vector<RunningProcess> copiesOf(const SoughtApplication& application, const platform::Bundles& bundles);

}  // namespace platform::Linux
