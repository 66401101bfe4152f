#pragma once
// For tests: the brand of an editor that is not Kelto.
#include <string>

#include "protocol/Branding.h"

namespace tests::tool {

inline std::string stringIn(const std::string& key, const std::string& value) {
  return "<key>" + key + "</key><string>" + value + "</string>";
}

// The file of the brand for the application with this identifier; an empty label stands for no server.
inline std::string brandOf(const std::string& application, const std::string& label = "com.acme.editor.server") {
  namespace key = protocol::brandingKey;
  const std::string server = stringIn(key::serverName, "Acme Server") + stringIn(key::serverLabel, label) +
                             stringIn(key::serverProgram, "Application Support/Acme/AcmeServer") +
                             stringIn(key::serverDefinition, "LaunchDaemons/com.acme.editor.server.plist") +
                             stringIn(key::serverMarker, "/Users/Shared/Acme/Shares.plist");
  return "<plist version=\"1.0\"><dict>" + stringIn(key::productName, "Acme Editor") +
         stringIn(key::identifier, "com.acme.editor.installer") + stringIn(key::defaultsDomain, application) +
         (label.empty() ? "" : server) + "</dict></plist>";
}

}  // namespace tests::tool
