#pragma once
// One log file's facts, fetched when first asked for and kept. One thread at a time.
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "foundation/Api.h"
#include "platform/LoggingPlatform.h"

class KELTO_API DDLogFileInfo {
 public:
  static std::shared_ptr<DDLogFileInfo> logFileWithPath(platform::LoggingPlatform& platform, const std::string& path);
  DDLogFileInfo(platform::LoggingPlatform& platform, std::string filePath);
  DDLogFileInfo(std::string filePath, platform::LoggingHost* host, platform::SystemLog& systemLog);

  [[nodiscard]] const std::string& filePath() const { return _filePath; }
  const std::string& fileName();
  // Nothing when they cannot be read; the next question tries again.
  const std::optional<platform::LogFileAttributes>& fileAttributes();
  std::optional<foundation::Date> creationDate();
  std::optional<foundation::Date> modificationDate();
  // Bytes. 0 means not known yet, so a file without content is asked every time.
  std::uint64_t fileSize();
  // Since its creation; 0 when that is not known.
  foundation::Seconds age();
  // A dictionary of all the above as text.
  std::string description();

  // The mark of a file that is complete: no logger writes to it any more.
  [[nodiscard]] bool isArchived() const;
  // Troubles go to the system log.
  void setIsArchived(bool archived);
  [[nodiscard]] bool hasExtendedAttributeWithName(const std::string& name) const;
  void addExtendedAttributeWithName(const std::string& name);
  void removeExtendedAttributeWithName(const std::string& name);

  // Moves the file within its folder. The info follows the new name whether or not that succeeded; a failure goes to the
  // system log.
  void renameFile(const std::string& newFileName);
  // Forgets name, attributes and dates, and not the size.
  void reset();

  bool operator==(const DDLogFileInfo& other) const { return _filePath == other._filePath; }
  // Negative when this file comes first, that is, when it is the later one; 0 for equal dates.
  int reverseCompareByCreationDate(DDLogFileInfo& other);
  int reverseCompareByModificationDate(DDLogFileInfo& other);

 private:
  std::string _filePath;
  platform::LoggingHost* const _host;
  platform::SystemLog& _systemLog;
  std::optional<std::string> _fileName;
  std::optional<platform::LogFileAttributes> _attributes;
  std::uint64_t _fileSize = 0;
};
