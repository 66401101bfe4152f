#pragma once
// Where commands are looked for. Main thread, before other threads start.
#include "platform/Bundle.h"

namespace platform::Linux {

// Commands are looked for among the bundle's resources first. The path as it was goes to the programs that are launched.
void putResourcesFirstOnPath(const platform::Bundle& bundle);

}  // namespace platform::Linux
