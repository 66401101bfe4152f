#include "logging/DDLogFileInfo.h"

#include "foundation/dispatch/Clock.h"
#include "foundation/text/DateFormatter.h"
#include "foundation/text/Format.h"
#include "foundation/text/Path.h"

namespace {

// Never destroyed: files are archived also while the process ends.
const std::string& archivedAttribute = *new std::string("plamaiskre.log.archived");

// The result of a failed attribute call of the operating system.
constexpr int failed = -1;

int reverseCompare(std::optional<foundation::Date> one, std::optional<foundation::Date> other) {
  if (one == other) return 0;
  return one > other ? -1 : 1;
}

std::string text(std::optional<foundation::Date> date) {
  static const foundation::DateFormatter formatter("yyyy-MM-dd HH:mm:ss");
  return date ? formatter.stringFromDate(*date) : "(null)";
}

}  // namespace

std::shared_ptr<DDLogFileInfo> DDLogFileInfo::logFileWithPath(platform::LoggingPlatform& platform,
                                                              const std::string& path) {
  return std::make_shared<DDLogFileInfo>(platform, path);
}

DDLogFileInfo::DDLogFileInfo(platform::LoggingPlatform& platform, std::string filePath)
    : DDLogFileInfo(std::move(filePath), platform.loggingHost, platform.systemLog) {}

DDLogFileInfo::DDLogFileInfo(std::string filePath, platform::LoggingHost* host, platform::SystemLog& systemLog)
    : _filePath(std::move(filePath)), _host(host), _systemLog(systemLog) {}

const std::string& DDLogFileInfo::fileName() {
  if (!_fileName) _fileName = foundation::Path::lastComponent(_filePath);
  return *_fileName;
}

const std::optional<platform::LogFileAttributes>& DDLogFileInfo::fileAttributes() {
  if (!_attributes && _host != nullptr) _attributes = _host->storage.attributesOfFile(_filePath);
  return _attributes;
}

std::optional<foundation::Date> DDLogFileInfo::creationDate() {
  const auto& attributes = fileAttributes();
  return attributes ? std::optional(attributes->creationDate) : std::nullopt;
}

std::optional<foundation::Date> DDLogFileInfo::modificationDate() {
  const auto& attributes = fileAttributes();
  return attributes ? std::optional(attributes->modificationDate) : std::nullopt;
}

std::uint64_t DDLogFileInfo::fileSize() {
  if (_fileSize == 0 && _host != nullptr) {
    const auto attributes = _host->storage.attributesOfFile(_filePath);
    if (attributes) _fileSize = attributes->size;
  }
  return _fileSize;
}

foundation::Seconds DDLogFileInfo::age() {
  const auto born = creationDate();
  return born ? foundation::Clock::current().now() - *born : foundation::Seconds(0);
}

std::string DDLogFileInfo::description() {
  const auto& attributes = fileAttributes();
  const std::string facts =
      attributes ? foundation::formatted("{size = %@; creationDate = %@; modificationDate = %@}", attributes->size,
                                         text(attributes->creationDate), text(attributes->modificationDate))
                 : "(null)";
  return foundation::formatted(
      "{filePath = %@; fileName = %@; fileAttributes = %@; creationDate = %@; modificationDate = %@; fileSize = %@; age = "
      "%.3f; isArchived = %@}",
      _filePath, fileName(), facts, text(creationDate()), text(modificationDate()), fileSize(), age().count(),
      isArchived() ? "YES" : "NO");
}

bool DDLogFileInfo::isArchived() const { return hasExtendedAttributeWithName(archivedAttribute); }

void DDLogFileInfo::setIsArchived(bool archived) {
  if (archived)
    addExtendedAttributeWithName(archivedAttribute);
  else
    removeExtendedAttributeWithName(archivedAttribute);
}

bool DDLogFileInfo::hasExtendedAttributeWithName(const std::string& name) const {
  return _host != nullptr && _host->storage.hasMark(_filePath, name);
}

void DDLogFileInfo::addExtendedAttributeWithName(const std::string& name) {
  if (_host == nullptr || _host->storage.setMark(_filePath, name) == 0) return;
  _systemLog.log(foundation::formatted("DDLogFileInfo: setxattr(%@, %@): error = %i", name, fileName(), failed));
}

void DDLogFileInfo::removeExtendedAttributeWithName(const std::string& name) {
  bool wasMissing = false;
  if (_host == nullptr || _host->storage.removeMark(_filePath, name, wasMissing) == 0 || wasMissing) return;
  _systemLog.log(foundation::formatted("DDLogFileInfo: removexattr(%@, %@): error = %i", name, fileName(), failed));
}

void DDLogFileInfo::renameFile(const std::string& newFileName) {
  if (newFileName == fileName()) return;
  const std::string newPath = foundation::Path::appending(foundation::Path::deletingLastComponent(_filePath), newFileName);
  platform::Error error;
  if (_host != nullptr && !_host->storage.moveFile(_filePath, newPath, error))
    _systemLog.log(foundation::formatted("DDLogFileInfo: Error renaming file (%@): %@", fileName(), error.description));
  _filePath = newPath;
  reset();
}

void DDLogFileInfo::reset() {
  _fileName.reset();
  _attributes.reset();
}

int DDLogFileInfo::reverseCompareByCreationDate(DDLogFileInfo& other) {
  return reverseCompare(creationDate(), other.creationDate());
}

int DDLogFileInfo::reverseCompareByModificationDate(DDLogFileInfo& other) {
  return reverseCompare(modificationDate(), other.modificationDate());
}
