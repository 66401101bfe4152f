#include "privileged/NSFileManager+Kelto.h"

#include "foundation/text/FileURL.h"
#include "foundation/text/Path.h"

namespace NSFileManager::Kelto {

std::optional<std::string> findOrCreateDirectory_inDomain_appendPathComponent_error(
    platform::FileManager& files, platform::SearchPathDirectory kind, platform::SearchPathDomainMask domain,
    const std::optional<std::string>& component, std::optional<platform::Error>* error) {
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

std::optional<std::string> findOrCreateDirectory_appendPathComponent_error(platform::FileManager& files,
                                                                           platform::SearchPathDirectory kind,
                                                                           const std::optional<std::string>& component,
                                                                           std::optional<platform::Error>* error) {
  return findOrCreateDirectory_inDomain_appendPathComponent_error(files, kind, platform::NSUserDomainMask, component,
                                                                  error);
}

bool isItemAtURLOnLocalFilesystem(const platform::FileManager& files, std::string_view url) {
  const auto path = foundation::FileURL::path(url);
  if (!path) return false;
  const auto volume = files.volumeURLForPath(*path);
  return volume && foundation::FileURL::path(*volume);
}

}  // namespace NSFileManager::Kelto
