#pragma once
// A file manager's operations for standard folders and volumes. With the rights of the user; any thread.
#include <optional>
#include <string>
#include <string_view>

#include "platform/FileManager.h"

namespace NSFileManager::Kelto {

// The first standard folder of `kind` in `domain`, with `component` appended when given; made when it is missing. Nothing
// when the platform has no such folder or a document is in the way (`error` is then untouched), or when it could not be
// made (then `error`, when a place is given, holds why). On success a given `error` is cleared.
std::optional<std::string> findOrCreateDirectory_inDomain_appendPathComponent_error(
    platform::FileManager& files, platform::SearchPathDirectory kind, platform::SearchPathDomainMask domain,
    const std::optional<std::string>& component, std::optional<platform::Error>* error);

// The same in the user's domain.
std::optional<std::string> findOrCreateDirectory_appendPathComponent_error(platform::FileManager& files,
                                                                           platform::SearchPathDirectory kind,
                                                                           const std::optional<std::string>& component,
                                                                           std::optional<platform::Error>* error);

// True when `url` is a file URL on a local volume.
bool isItemAtURLOnLocalFilesystem(const platform::FileManager& files, std::string_view url);

}  // namespace NSFileManager::Kelto
