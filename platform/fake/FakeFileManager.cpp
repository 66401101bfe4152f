#include "platform/fake/FakeFileManager.h"

#include <algorithm>
#include <cerrno>
#include <system_error>

#include "foundation/text/Path.h"

namespace platform::fake {
namespace {

constexpr std::int32_t documentPermissions = 0644;
constexpr std::int32_t folderPermissions = 0755;

FileAttributes withPermissions(FileAttributes attributes, std::int32_t usual) {
  if (!attributes.posixPermissions) attributes.posixPermissions = usual;
  return attributes;
}

std::string parentOf(const std::string& path) { return foundation::Path::deletingLastComponent(path); }

// True for the folder itself and for all that is in it.
bool isBelow(const std::string& path, const std::string& folder) {
  return folder == "/" || path == folder || path.starts_with(folder + "/");
}

}  // namespace

FakeFileManager::FakeFileManager(CallJournal* journal) : Journaled(journal) { addFolder(temporaryFolder); }

bool FakeFileManager::isFolder(const std::string& path) const {
  const auto place = items.find(path);
  return place != items.end() && place->second.isDirectory;
}

bool FakeFileManager::knows(const FileAttributes& attributes) const {
  const auto isKnown = [this](const std::optional<std::string>& name) { return !name || accounts.contains(*name); };
  return isKnown(attributes.ownerAccountName) && isKnown(attributes.groupOwnerAccountName);
}

bool FakeFileManager::fileExistsAtPath(const std::string& path, bool* isDirectory) const {
  note("fileManager.fileExistsAtPath " + path);
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
  note("fileManager.createFileAtPath " + path);
  if (refusesToCreateFiles || !knows(attributes) || isFolder(path) || !isFolder(parentOf(path))) return false;
  const auto all = withPermissions(attributes, documentPermissions);
  items[path] = Item{.attributes = all, .isExecutable = (*all.posixPermissions & 0111) != 0};
  return true;
}

int FakeFileManager::makeFolder(const std::string& path, const FileAttributes& attributes) {
  if (items.contains(path)) return EEXIST;
  const std::string parent = parentOf(path);
  if (!items.contains(parent)) return ENOENT;
  if (!isFolder(parent)) return ENOTDIR;
  items[path] = Item{.isDirectory = true, .attributes = withPermissions(attributes, folderPermissions)};
  return 0;
}

int FakeFileManager::makeFolders(const std::string& path, const FileAttributes& attributes) {
  if (isFolder(path)) return 0;
  const std::string parent = parentOf(path);
  if (!items.contains(parent) && parent != path)
    if (const int status = makeFolders(parent, attributes); status != 0) return status;
  return makeFolder(path, attributes);
}

bool FakeFileManager::createDirectoryAtPath(const std::string& path, bool withIntermediateDirectories,
                                            const FileAttributes& attributes, Error* error) {
  note("fileManager.createDirectoryAtPath " + path);
  int status = knows(attributes) ? 0 : EINVAL;
  if (!createDirectoryError && status == 0)
    status = withIntermediateDirectories ? makeFolders(path, attributes) : makeFolder(path, attributes);
  if (!createDirectoryError && status == 0) return true;
  if (error != nullptr) *error = createDirectoryError.value_or(Error{status, std::generic_category().message(status)});
  return false;
}

bool FakeFileManager::setAttributes(const FileAttributes& attributes, const std::string& path) {
  note("fileManager.setAttributes " + path);
  const auto place = items.find(path);
  if (refusesToSetAttributes || place == items.end() || !knows(attributes)) return false;
  auto& stored = place->second.attributes;
  if (attributes.posixPermissions) stored.posixPermissions = attributes.posixPermissions;
  if (attributes.ownerAccountName) stored.ownerAccountName = attributes.ownerAccountName;
  if (attributes.groupOwnerAccountName) stored.groupOwnerAccountName = attributes.groupOwnerAccountName;
  return true;
}

bool FakeFileManager::removeItemAtPath(const std::string& path) {
  note("fileManager.removeItemAtPath " + path);
  removed.push_back(path);
  if (refusesToRemove || path == "/") return false;
  return std::erase_if(items, [&](const auto& entry) { return isBelow(entry.first, path); }) > 0;
}

std::optional<std::string> FakeFileManager::contentsAtPath(const std::string& path) const {
  note("fileManager.contentsAtPath " + path);
  const auto place = items.find(path);
  if (refusesToRead || place == items.end() || place->second.isDirectory) return std::nullopt;
  return place->second.contents;
}

std::string FakeFileManager::unusedName(const std::string& nameTemplate) const {
  const auto start = nameTemplate.find_last_not_of('X') + 1;
  const auto length = nameTemplate.size() - start;
  if (length == 0) return {};
  for (int attempt = 0; attempt < 100; ++attempt) {
    const auto number = std::to_string(_names++);
    std::string name = nameTemplate.substr(0, start);
    name +=
        number.size() > length ? number.substr(number.size() - length) : std::string(length - number.size(), 'a') + number;
    if (!items.contains(name)) return name;
  }
  return {};
}

std::vector<std::string> FakeFileManager::searchPathForDirectories(SearchPathDirectory kind, SearchPathDomainMask domain,
                                                                   bool expandTilde) const {
  std::vector<std::string> folders;
  for (const auto each : {NSUserDomainMask, NSLocalDomainMask}) {
    const auto place = searchPaths.find({kind, each});
    if ((domain & each) != 0 && place != searchPaths.end())
      folders.insert(folders.end(), place->second.begin(), place->second.end());
  }
  for (auto& folder : folders)
    if (!expandTilde && isBelow(folder, homeFolder)) folder.replace(0, homeFolder.size(), "~");
  return folders;
}

std::optional<std::string> FakeFileManager::volumeURLForPath(const std::string& path) const {
  if (!items.contains(path)) return std::nullopt;
  std::optional<std::string> url;
  std::size_t longest = 0;
  for (const auto& [mountPoint, volume] : volumes)
    if (isBelow(path, mountPoint) && mountPoint.size() >= longest) {
      longest = mountPoint.size();
      url = volume;
    }
  return url;
}

void FakeFileManager::addFile(const std::string& path, std::string contents, bool isExecutable) {
  addFolder(parentOf(path));
  items[path] = Item{.contents = std::move(contents), .isExecutable = isExecutable};
}

void FakeFileManager::addFolder(const std::string& path) {
  if (path.empty() || items.contains(path)) return;
  addFolder(parentOf(path) == path ? "" : parentOf(path));
  items[path] = Item{.isDirectory = true};
}

}  // namespace platform::fake
