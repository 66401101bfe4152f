#pragma once
// A file manager's operations for documents and folders that must exist: made when they are missing. With the rights of the
// user; any thread.
//
// All report success as a boolean; only the two require operations write to the log, at debug level.
#include <cstdint>
#include <optional>
#include <string>

#include "platform/FileManager.h"

namespace NSFileManager::Extensions {

// True when a document (not a folder) exists at `path`. A folder there is logged.
bool requireFileAtPath(const platform::FileManager& files, const std::string& path);
// True when a folder exists at `path`. A document there is logged.
bool requireDirectoryAtPath(const platform::FileManager& files, const std::string& path);

// True when a document (a folder) exists at `path` afterwards. An existing one is left as it is, attributes included;
// missing folders above a new folder are made.
bool _createFileIfNeededAtPath_attributes(platform::FileManager& files, const std::string& path,
                                          const platform::FileAttributes& attributes);
bool _createFolderIfNeededAtPath_attributes(platform::FileManager& files, const std::string& path,
                                            const platform::FileAttributes& attributes);

bool createFileIfNeededAtPath_permissions(platform::FileManager& files, const std::string& path, std::int32_t permissions);
bool createFolderIfNeededAtPath_permissions(platform::FileManager& files, const std::string& path,
                                            std::int32_t permissions);
// Owner account first, then group account. Without an owner the group is left out too.
bool createFolderIfNeededAtPath_permissions_ownerName_groupName(platform::FileManager& files, const std::string& path,
                                                                std::int32_t permissions,
                                                                const std::optional<std::string>& ownerName,
                                                                const std::optional<std::string>& groupName);

// Owner account first, then group account. Without an owner nothing is changed.
bool changePath_toOwnerName_andGroupName(platform::FileManager& files, const std::string& path,
                                         const std::optional<std::string>& ownerName,
                                         const std::optional<std::string>& groupName);

}  // namespace NSFileManager::Extensions
