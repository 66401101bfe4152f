#include <cerrno>

#include "platform/fake/FakePlatform.h"

namespace platform::fake {

bool FakeFileManager::fileExistsAtPath(const std::string& path, bool* isDirectory) const {
  existenceTests.push_back(path);
  const auto place = items.find(path);
  if (place == items.end()) return false;
  if (isDirectory != nullptr) *isDirectory = place->second.isDirectory;
  return true;
}

bool FakeFileManager::isExecutableFileAtPath(const std::string& path) const {
  const auto place = items.find(path);
  return place != items.end() && !place->second.isDirectory && place->second.isExecutable;
}

bool FakeFileManager::createFileAtPath(const std::string& path, const FileAttributes& attributes) {
  const auto place = items.find(path);
  if (place != items.end() && place->second.isDirectory) return false;
  items[path] = Item{.attributes = attributes};
  return true;
}

bool FakeFileManager::createDirectoryAtPath(const std::string& path, bool withIntermediateDirectories,
                                            const FileAttributes& attributes, Error* error) {
  if (createDirectoryError) {
    if (error != nullptr) *error = *createDirectoryError;
    return false;
  }
  const auto place = items.find(path);
  if (place != items.end() && (!place->second.isDirectory || !withIntermediateDirectories)) {
    if (error != nullptr) *error = {EEXIST, "File exists"};
    return false;
  }
  for (auto slash = path.find('/', 1); withIntermediateDirectories && slash != std::string::npos;
       slash = path.find('/', slash + 1))
    items[path.substr(0, slash)].isDirectory = true;
  items[path].isDirectory = true;
  items[path].attributes = attributes;
  return true;
}

bool FakeFileManager::setAttributes(const FileAttributes& attributes, const std::string& path) {
  const auto place = items.find(path);
  if (place == items.end()) return false;
  auto& stored = place->second.attributes;
  if (attributes.posixPermissions) stored.posixPermissions = attributes.posixPermissions;
  if (attributes.ownerAccountName) stored.ownerAccountName = attributes.ownerAccountName;
  if (attributes.groupOwnerAccountName) stored.groupOwnerAccountName = attributes.groupOwnerAccountName;
  return true;
}

bool FakeFileManager::removeItemAtPath(const std::string& path) {
  removed.push_back(path);
  std::erase_if(items, [&](const auto& entry) { return entry.first.starts_with(path + "/"); });
  return items.erase(path) > 0;
}

std::optional<std::string> FakeFileManager::contentsAtPath(const std::string& path) const {
  const auto place = items.find(path);
  if (place == items.end() || place->second.isDirectory) return std::nullopt;
  return place->second.contents;
}

std::string FakeFileManager::unusedName(const std::string& nameTemplate) const {
  const auto end = nameTemplate.find_last_not_of('X') + 1;
  auto number = std::to_string(_names++);
  const auto digits = nameTemplate.size() - end;
  return nameTemplate.substr(0, end) + std::string(digits - std::min(digits, number.size()), 'a') + number;
}

std::vector<std::string> FakeFileManager::searchPathForDirectories(SearchPathDirectory kind, SearchPathDomainMask domain,
                                                                   bool /*expandTilde*/) const {
  const auto place = searchPaths.find({kind, domain});
  return place == searchPaths.end() ? std::vector<std::string>{} : place->second;
}

std::optional<std::string> FakeFileManager::volumeURLForPath(const std::string& path) const {
  std::optional<std::string> url;
  std::size_t longest = 0;
  for (const auto& [prefix, volume] : volumes)
    if (path.starts_with(prefix) && prefix.size() >= longest) {
      longest = prefix.size();
      url = volume;
    }
  return url;
}

void FakeFileManager::addFile(const std::string& path, std::string contents, bool isExecutable) {
  items[path] = Item{.contents = std::move(contents), .isExecutable = isExecutable};
}

}  // namespace platform::fake
