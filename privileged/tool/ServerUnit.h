#pragma once
// The service manager's definition of the Library Server. It is written from a template of ours: the definition that a
// bundle brings is data, of which a few values with harmless contents are taken over. So no bundle chooses another program,
// another account, other commands around the server, or mounts and devices for it.
//
//   Type = simple, exec or notify             Restart = no, on-failure or always
//   TimeoutStartSec, TimeoutStopSec, RestartSec = up to three digits: seconds
//   DefaultDependencies = yes or no           Environment = KELTO_NAME=VALUE, VALUE of letters, digits and ._/- after "%t"
#include <optional>
#include <string>
#include <string_view>

#include "privileged/tool/BundleIdentity.h"
#include "protocol/Branding.h"

namespace AssistantTool {

// Programs and definitions of servers lie below it.
inline constexpr const char* libraryFolderPath = "/Library";
inline constexpr std::size_t maximumServerUnitBytes = std::size_t{64} << 10;

// Total: any bytes may be offered. The unit names the bundle that the server came with.
std::string serverUnitFor(std::string_view offered, const BundleIdentity& bundle,
                          const protocol::Branding::Server& server = {});

// The bundle that a unit of ours names; nullopt for any other text.
std::optional<BundleIdentity> bundleNamedIn(std::string_view unit);

}  // namespace AssistantTool
