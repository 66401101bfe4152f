#include "privileged/NSFileManager+Kelto.h"

#include "foundation/text/FileURL.h"
#include "foundation/text/Path.h"
#include "platform/Platform.h"

namespace NSFileManager::Kelto {

std::optional<std::string> findOrCreateDirectory_inDomain_appendPathComponent_error(
    platform::SearchPathDirectory kind, platform::SearchPathDomainMask domain, const std::optional<std::string>& component,
    std::optional<platform::Error>* error) {
  auto& files = platform::current().fileManager;
  const auto folders = files.searchPathForDirectories(kind, domain, true);
  if (folders.empty()) return std::nullopt;
  const std::string path = component ? foundation::Path::appending(folders.front(), *component) : folders.front();
  bool isDirectory = false;
  const bool exists = files.fileExistsAtPath(path, &isDirectory);
  if (exists && !isDirectory) return std::nullopt;
  platform::Error cause;
  if (!exists && !files.createDirectoryAtPath(path, true, {}, &cause)) {
    if (error != nullptr) *error = cause;
    return std::nullopt;
  }
  if (error != nullptr) error->reset();
  return path;
}

std::optional<std::string> findOrCreateDirectory_appendPathComponent_error(platform::SearchPathDirectory kind,
                                                                           const std::optional<std::string>& component,
                                                                           std::optional<platform::Error>* error) {
  return findOrCreateDirectory_inDomain_appendPathComponent_error(kind, platform::NSUserDomainMask, component, error);
}

bool isItemAtURLOnLocalFilesystem(std::string_view url) {
  const auto path = foundation::FileURL::path(url);
  if (!path) return false;
  const auto volume = platform::current().fileManager.volumeURLForPath(*path);
  return volume && foundation::FileURL::path(*volume);
}

}  // namespace NSFileManager::Kelto
