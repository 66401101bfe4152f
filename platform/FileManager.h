#pragma once
// Files and folders with the rights of the user who runs the program.
//
// Any thread. Paths are absolute, UTF-8 or whatever bytes the file system holds.
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/Error.h"

namespace platform {

struct FileAttributes {
  std::optional<std::int32_t> posixPermissions{};
  std::optional<std::string> ownerAccountName{};
  std::optional<std::string> groupOwnerAccountName{};
  bool operator==(const FileAttributes&) const = default;
};

// The kinds of standard folder, with the platform's own numbers.
enum class SearchPathDirectory : std::uint32_t {
  application = 1,
  library = 5,
  desktop = 12,
  caches = 13,
  applicationSupport = 14,
};

using SearchPathDomainMask = std::uint32_t;
inline constexpr SearchPathDomainMask NSUserDomainMask = 1;
inline constexpr SearchPathDomainMask NSLocalDomainMask = 2;

class FileManager {
 public:
  virtual ~FileManager() = default;

  // Links are followed; a dangling link does not exist. `isDirectory` is untouched when nothing exists.
  [[nodiscard]] virtual bool fileExistsAtPath(const std::string& path, bool* isDirectory = nullptr) const = 0;
  // A document (not a folder) that this user may execute.
  [[nodiscard]] virtual bool isExecutableFileAtPath(const std::string& path) const = 0;
  // Makes an empty document, replacing an existing one; false when that failed. Permissions are set as given, whatever the
  // process's mask.
  virtual bool createFileAtPath(const std::string& path, const FileAttributes& attributes) = 0;
  // Makes a folder; missing folders above it too when asked. On failure false, and the error is stored when a place is
  // given.
  virtual bool createDirectoryAtPath(const std::string& path, bool withIntermediateDirectories,
                                     const FileAttributes& attributes, Error* error) = 0;
  virtual bool setAttributes(const FileAttributes& attributes, const std::string& path) = 0;
  // Removes a document, or a folder with all that it holds; links are removed, not followed.
  virtual bool removeItemAtPath(const std::string& path) = 0;
  // The bytes of a document, or nothing.
  [[nodiscard]] virtual std::optional<std::string> contentsAtPath(const std::string& path) const = 0;

  [[nodiscard]] virtual std::string temporaryDirectory() const = 0;
  // Replaces the run of X at the end of `nameTemplate` by characters that make a name not in use now, and makes nothing.
  // Empty when none was found.
  [[nodiscard]] virtual std::string unusedName(const std::string& nameTemplate) const = 0;
  // The standard folders of a kind, in the order of the search; empty when the platform has none. With `expandTilde` false
  // a folder in the home folder is written with "~".
  [[nodiscard]] virtual std::vector<std::string> searchPathForDirectories(SearchPathDirectory kind,
                                                                          SearchPathDomainMask domain,
                                                                          bool expandTilde) const = 0;
  // The URL of the volume that holds `path`: a file URL when the volume is local, one with the scheme of its network file
  // system otherwise; nothing when the path is on no volume that can be named.
  [[nodiscard]] virtual std::optional<std::string> volumeURLForPath(const std::string& path) const = 0;
};

}  // namespace platform
