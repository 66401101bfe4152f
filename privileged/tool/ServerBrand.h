#pragma once
// Which Library Server belongs to an application: Kelto's, unless root has put the application's brand into the folder
// of brands (protocol/Branding.h).
#include <sys/types.h>

#include <string>

#include "protocol/Branding.h"

namespace AssistantTool {

// The server of the application with this bundle identifier, which may be empty. A bundle only says which application it
// is; where the server lies is root's word. Throws Failure when a brand is there and cannot be believed, is wrong, is that
// of another application, or names no server. `owner` is root but in tests.
protocol::Branding::Server serverOfApplication(const std::string& identifier,
                                               const std::string& folder = protocol::brandFolderPath, uid_t owner = 0);

}  // namespace AssistantTool
