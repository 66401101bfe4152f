#include "privileged/NSFileManager+Extensions.h"

#include "logging/KTLogger.h"

namespace NSFileManager::Extensions {
namespace {

// A missing owner ends the list of attributes, so a group after it is left out.
void addOwnerAndGroup(platform::FileAttributes& attributes, const std::optional<std::string>& ownerName,
                      const std::optional<std::string>& groupName) {
  if (!ownerName) return;
  attributes.ownerAccountName = ownerName;
  attributes.groupOwnerAccountName = groupName;
}

}  // namespace

bool requireFileAtPath(const platform::FileManager& files, const std::string& path) {
  bool isDirectory = false;
  if (!files.fileExistsAtPath(path, &isDirectory)) return false;
  if (isDirectory)
    KTDiagnostics::log({"NSFileManager", &files, "requireFileAtPath:", 46}, 7, "%@ is a folder, not a document", path);
  return !isDirectory;
}

bool requireDirectoryAtPath(const platform::FileManager& files, const std::string& path) {
  bool isDirectory = false;
  if (!files.fileExistsAtPath(path, &isDirectory)) return false;
  if (!isDirectory)
    KTDiagnostics::log({"NSFileManager", &files, "requireDirectoryAtPath:", 64}, 7, "%@ is a document, not a folder", path);
  return isDirectory;
}

bool _createFileIfNeededAtPath_attributes(platform::FileManager& files, const std::string& path,
                                          const platform::FileAttributes& attributes) {
  return requireFileAtPath(files, path) || files.createFileAtPath(path, attributes);
}

bool _createFolderIfNeededAtPath_attributes(platform::FileManager& files, const std::string& path,
                                            const platform::FileAttributes& attributes) {
  return requireDirectoryAtPath(files, path) || files.createDirectoryAtPath(path, true, attributes, nullptr);
}

bool createFileIfNeededAtPath_permissions(platform::FileManager& files, const std::string& path, std::int32_t permissions) {
  return _createFileIfNeededAtPath_attributes(files, path, {.posixPermissions = permissions});
}

bool createFolderIfNeededAtPath_permissions(platform::FileManager& files, const std::string& path,
                                            std::int32_t permissions) {
  return _createFolderIfNeededAtPath_attributes(files, path, {.posixPermissions = permissions});
}

bool createFolderIfNeededAtPath_permissions_ownerName_groupName(platform::FileManager& files, const std::string& path,
                                                                std::int32_t permissions,
                                                                const std::optional<std::string>& ownerName,
                                                                const std::optional<std::string>& groupName) {
  platform::FileAttributes attributes{.posixPermissions = permissions};
  addOwnerAndGroup(attributes, ownerName, groupName);
  return _createFolderIfNeededAtPath_attributes(files, path, attributes);
}

bool changePath_toOwnerName_andGroupName(platform::FileManager& files, const std::string& path,
                                         const std::optional<std::string>& ownerName,
                                         const std::optional<std::string>& groupName) {
  platform::FileAttributes attributes;
  addOwnerAndGroup(attributes, ownerName, groupName);
  return files.setAttributes(attributes, path);
}

}  // namespace NSFileManager::Extensions
