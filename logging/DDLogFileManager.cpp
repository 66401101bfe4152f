#include "logging/DDLogFileManager.h"

#include <algorithm>
#include <random>

#include "foundation/text/Path.h"
#include "logging/DDLog.h"

using foundation::Path::appending;
using foundation::Path::lastComponent;

namespace {

constexpr std::string_view prefix = "log-";
constexpr std::string_view digits = "0123456789ABCDEF";
constexpr std::size_t digitCount = 6;
// Enough for any folder that still has a free name, and an end when no file can be made at all.
constexpr int nameAttempts = 1000;

}  // namespace

DDLogFileManagerDefault::DDLogFileManagerDefault(platform::LoggingPlatform& platform)
    : DDLogFileManagerDefault(platform, defaultLogsDirectory(platform)) {}

DDLogFileManagerDefault::DDLogFileManagerDefault(platform::LoggingPlatform& platform, std::string logsDirectory)
    : _host(platform.loggingHost), _systemLog(platform.systemLog), _logsDirectory(std::move(logsDirectory)) {}

std::string DDLogFileManagerDefault::defaultLogsDirectory(platform::LoggingPlatform& platform) {
  const auto libraries = platform.fileManager.searchPathForDirectories(platform::SearchPathDirectory::library,
                                                                       platform::NSUserDomainMask, true);
  const std::string base = libraries.empty() ? platform.fileManager.temporaryDirectory() : libraries.front();
  const std::string name = platform.loggingHost == nullptr ? "" : platform.loggingHost->process.processName();
  return appending(appending(base, "Logs"), name);
}

std::string DDLogFileManagerDefault::logsDirectory() {
  platform::Error error;
  if (_host != nullptr && !_host->storage.fileExists(_logsDirectory) &&
      !_host->storage.createDirectory(_logsDirectory, error))
    _systemLog.log("DDFileLogManagerDefault: Error creating logsDirectory: " + error.description);
  return _logsDirectory;
}

bool DDLogFileManagerDefault::isLogFile(std::string_view fileName) {
  if (!fileName.starts_with(prefix) || fileName.size() < prefix.size() + digitCount) return false;
  return std::ranges::all_of(fileName.substr(prefix.size(), digitCount),
                             [](char c) { return digits.find(c) != std::string_view::npos; });
}

std::string DDLogFileManagerDefault::generateShortUUID() {
  std::random_device random;
  std::string text;
  for (std::size_t i = 0; i < digitCount; ++i) text += digits[random() % digits.size()];
  return text;
}

void DDLogFileManagerDefault::setMaximumNumberOfLogFiles(std::size_t number) {
  if (_maximumNumberOfLogFiles.exchange(number) == number) return;
  DDLog::loggingQueue().async([weak = weak_from_this()] {
    if (const auto self = weak.lock()) self->deleteOldLogFiles();
  });
}

std::vector<std::string> DDLogFileManagerDefault::unsortedLogFilePaths() {
  std::vector<std::string> paths;
  const std::string directory = logsDirectory();
  if (_host == nullptr) return paths;
  for (const auto& name : _host->storage.namesInDirectory(directory))
    if (isLogFile(name)) paths.push_back(appending(directory, name));
  return paths;
}

std::vector<std::string> DDLogFileManagerDefault::unsortedLogFileNames() {
  auto names = unsortedLogFilePaths();
  for (auto& name : names) name = lastComponent(name);
  return names;
}

DDLogFileManager::Infos DDLogFileManagerDefault::unsortedLogFileInfos() {
  Infos infos;
  for (auto& path : unsortedLogFilePaths())
    infos.push_back(std::make_shared<DDLogFileInfo>(std::move(path), _host, _systemLog));
  return infos;
}

std::vector<std::string> DDLogFileManagerDefault::sortedLogFilePaths() {
  std::vector<std::string> paths;
  for (const auto& info : sortedLogFileInfos()) paths.push_back(info->filePath());
  return paths;
}

std::vector<std::string> DDLogFileManagerDefault::sortedLogFileNames() {
  auto names = sortedLogFilePaths();
  for (auto& name : names) name = lastComponent(name);
  return names;
}

// Files that were made within one tick of the file system's clock have equal dates: then the one in use comes first.
DDLogFileManager::Infos DDLogFileManagerDefault::sortedLogFileInfos() {
  auto infos = unsortedLogFileInfos();
  std::ranges::stable_sort(infos, [](const auto& one, const auto& other) {
    const int order = one->reverseCompareByCreationDate(*other);
    return order != 0 ? order < 0 : !one->isArchived() && other->isArchived();
  });
  return infos;
}

std::string DDLogFileManagerDefault::createNewLogFile() {
  const std::string directory = logsDirectory();
  std::string path;
  for (int attempt = 0; attempt < nameAttempts; ++attempt) {
    path = appending(directory, std::string(prefix) + generateShortUUID() + ".txt");
    // A name that somebody else takes at the same moment is not ours either.
    if (_host == nullptr || _host->storage.createFile(path) || !_host->storage.fileExists(path)) break;
  }
  deleteOldLogFiles(path);
  return path;
}

void DDLogFileManagerDefault::deleteOldLogFiles() { deleteOldLogFiles({}); }

void DDLogFileManagerDefault::deleteOldLogFiles(const std::string& inUse) {
  auto infos = sortedLogFileInfos();
  if (!inUse.empty())
    std::erase_if(infos, [&](const auto& info) { return info->filePath() == inUse; });
  else if (!infos.empty() && !infos.front()->isArchived())
    infos.erase(infos.begin());
  for (std::size_t i = maximumNumberOfLogFiles(); i < infos.size(); ++i) _host->storage.removeFile(infos[i]->filePath());
}
