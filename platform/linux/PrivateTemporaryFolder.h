#pragma once
// The folder for this user's temporary files, which nobody else can list or enter. Any thread.
#include <string>

namespace platform::Linux {

// "$XDG_RUNTIME_DIR/kelto", or where the user has no runtime folder one named after the user in TMPDIR, else in "/tmp".
// A missing folder is made, with mode 0700. A folder that someone else made, can enter or can exchange is passed over.
// Empty when no private folder can be made.
std::string privateTemporaryFolder();

}  // namespace platform::Linux
