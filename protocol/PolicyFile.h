#pragma once
// The administrator's policy, /etc/kelto/authorization.conf: which programs count as tools, and what the tool may replace.
//
//   # a comment
//   tools = /usr/lib/kelto            a folder whose programs the broker of the machine runs; may stand several times
//   session-tools = /usr/lib/kelto    the same for the broker of a user's session
//   locations = /Applications         a folder that jobs of the first right are bound to; may stand several times
//   unsigned = refuse                 bundles without a signature, once there are keys: refuse, ask or allow
//   downgrades = refuse               a version below the installed one: refuse or allow
//   keep = 0                          how many replaced versions are kept
//   maximum-entries = 1000000         the most files and folders that a bundle may have
//
// Pure; any thread; the standard library only, because the tool links it and runs as root. The reader is total. A file that
// is wrong in one line is refused as a whole: a misspelt restriction must not be silently absent.
#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace protocol {

inline constexpr const char* policyFilePath = "/etc/kelto/authorization.conf";
// Where the packages put the tool.
inline constexpr const char* packagedToolFolder = "/usr/lib/kelto";

struct Policy {
  enum class Unsigned { refuse, ask, allow };

  // Absolute paths without "." and "..", and without a slash at the end.
  std::vector<std::string> tools{packagedToolFolder};
  std::vector<std::string> sessionTools{packagedToolFolder};
  // Without a value jobs may change things at any path; with none in the list, nowhere.
  std::optional<std::vector<std::string>> locations;
  Unsigned unsignedBundles = Unsigned::refuse;
  bool areDowngradesAllowed = false;
  std::size_t keptVersions = 0;
  std::size_t maximumEntries = 1'000'000;

  bool operator==(const Policy&) const = default;
};

inline constexpr std::size_t maximumPolicyFileBytes = std::size_t{64} << 10;
inline constexpr std::size_t maximumListedFolders = 64;
inline constexpr std::size_t maximumKeptVersions = 100;
inline constexpr std::size_t maximumEntriesEver = 100'000'000;

// Holds when the file is there and cannot be believed: no folder of tools, no location, nothing unsigned, no
// downgrade.
Policy strictestPolicy();

// Reads the contents of the file; a key that is absent keeps its default. Refused, with `cause` (when given) naming the
// line: an unknown key, a key that stands twice (but for the lists of folders), a value that is not one of the key's, a
// character that is not printable ASCII, and what is beyond the limits.
std::optional<Policy> parsePolicy(std::string_view text, std::string* cause = nullptr);

}  // namespace protocol
