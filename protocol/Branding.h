#pragma once
// The brand of an installer: Contents/Resources/Branding.plist in its bundle, a dictionary of strings. Without the file the
// installer is Kelto's.
//
//   ProductName       Acme Editor                               the application, as the texts call it
//   Identifier        com.acme.editor.installer                 of the installer's bundle, and its name on the session bus
//   DefaultsDomain    com.acme.editor                           of the application's bundle, and of its preferences
//   Artwork           artwork                                   the folder of the pictures; may be missing
//   ServerName        Acme Library Server                       the server that the application brings along; without one
//   ServerLabel       com.acme.editor.server                    all five keys are missing
//   ServerProgram     Application Support/Acme/AcmeServer       below the machine's library folder
//   ServerDefinition  LaunchDaemons/com.acme.editor.server.plist
//   ServerMarker      /Users/Shared/Acme/Shares.plist           is there when the server has something to do
//
// The installer reads the file of its own bundle, which may be a user's. Root's tool never does: it reads the copy that
// root has put into brandFolderPath. Texts, pictures and the bundle's information are made from the file by
// packaging/brand.py, so the programs need only what is in Branding.
//
// Pure; any thread; the standard library only, because the tool links it. The reader is total.
#include <array>
#include <cstddef>
#include <map>
#include <optional>
#include <string>
#include <string_view>

namespace protocol {

// NAME.plist for the application whose bundle identifier is NAME.
inline constexpr const char* brandFolderPath = "/etc/kelto/brands.d";
inline constexpr std::size_t maximumBrandingBytes = std::size_t{64} << 10;

namespace brandingKey {

inline constexpr const char* productName = "ProductName";
inline constexpr const char* identifier = "Identifier";
inline constexpr const char* defaultsDomain = "DefaultsDomain";
inline constexpr const char* artwork = "Artwork";
inline constexpr const char* serverName = "ServerName";
inline constexpr const char* serverLabel = "ServerLabel";
inline constexpr const char* serverProgram = "ServerProgram";
inline constexpr const char* serverDefinition = "ServerDefinition";
inline constexpr const char* serverMarker = "ServerMarker";

inline constexpr std::array<std::string_view, 9> all{productName, identifier,    defaultsDomain,   artwork,     serverName,
                                                     serverLabel, serverProgram, serverDefinition, serverMarker};

}  // namespace brandingKey

struct Branding {
  struct Server {
    std::string name = "Kelto Library Server";
    std::string label = "com.kelto.KeltoLibraryServer";
    std::string program = "Application Support/Kelto/KeltoLibraryServer";
    std::string definition = "LaunchDaemons/com.kelto.KeltoLibraryServer.plist";
    std::string marker = "/Users/Shared/Kelto/Shares.plist";
    bool operator==(const Server&) const = default;
  };

  std::string identifier = "com.kelto.installer";
  std::string defaultsDomain = "com.kelto.macController";
  std::optional<Server> server = Server();
  bool operator==(const Branding&) const = default;
};

using BrandingValues = std::map<std::string, std::string, std::less<>>;

// The brand that the values of such a file tell. Refused, with `cause` naming the key: a key that is missing or unknown, a
// name with a sign that texts, property lists or units would have to escape, an identifier that cannot be a name on the
// session bus, and a path that is not plain.
std::optional<Branding> brandingOf(const BrandingValues& values, std::string& cause);

}  // namespace protocol
