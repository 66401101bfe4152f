#pragma once
// Files and folders with the rights of the user who runs the program.
//
// Any thread. Paths are absolute, in UTF-8 or in any other bytes that the file system holds.
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

// The kinds of standard folder, with the numbers of the system's own interface.
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

  // Follows links; a dangling link does not exist. Leaves `isDirectory` untouched if nothing exists.
  [[nodiscard]] virtual bool fileExistsAtPath(const std::string& path, bool* isDirectory = nullptr) const = 0;
  // True for a document (not a folder) that this user may execute.
  [[nodiscard]] virtual bool isExecutableFileAtPath(const std::string& path) const = 0;
  // Makes an empty document, replacing an existing document but not a folder. Sets permissions exactly as given, whatever
  // the process's mask. False on failure; an account that does not exist is one.
  virtual bool createFileAtPath(const std::string& path, const FileAttributes& attributes) = 0;
  // Makes a folder; with `withIntermediateDirectories` also the missing folders above it, all with the same attributes, and
  // then an existing folder is success and keeps its attributes. On failure false, with the cause in `error` unless that is
  // nullptr.
  virtual bool createDirectoryAtPath(const std::string& path, bool withIntermediateDirectories,
                                     const FileAttributes& attributes, Error* error) = 0;
  // Changes the attributes that are given. False if the item is missing or an account does not exist.
  virtual bool setAttributes(const FileAttributes& attributes, const std::string& path) = 0;
  // Removes a document, or a folder with everything in it; removes links and does not follow them.
  virtual bool removeItemAtPath(const std::string& path) = 0;
  // The bytes of a document; nullopt for a folder or if it cannot be read.
  [[nodiscard]] virtual std::optional<std::string> contentsAtPath(const std::string& path) const = 0;

  [[nodiscard]] virtual std::string temporaryDirectory() const = 0;
  // Replaces the run of X at the end of `nameTemplate` by characters that make a name not in use now. Creates nothing.
  // Empty if no such name was found.
  [[nodiscard]] virtual std::string unusedName(const std::string& nameTemplate) const = 0;
  // The standard folders of a kind in search order: the user's first, then the machine's; may be empty. With `expandTilde`
  // false, folders in the home folder are written with "~".
  [[nodiscard]] virtual std::vector<std::string> searchPathForDirectories(SearchPathDirectory kind,
                                                                          SearchPathDomainMask domain,
                                                                          bool expandTilde) const = 0;
  // The URL of the volume that holds the item at `path`: a file URL for a local volume, otherwise one with the scheme of
  // the network file system; nullopt if the item is missing or its volume cannot be named.
  [[nodiscard]] virtual std::optional<std::string> volumeURLForPath(const std::string& path) const = 0;
};

}  // namespace platform
