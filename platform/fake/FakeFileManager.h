#pragma once
// Files in memory. One thread.
#include <cstdint>
#include <map>
#include <set>

#include "platform/FileManager.h"
#include "platform/fake/CallJournal.h"

namespace platform::fake {

// Documents and folders, no links. As on a disk, an item needs a folder above it. The mask of the process is 022: items
// made without permissions have 0644 or 0755.
class FakeFileManager final : public FileManager, public Journaled {
 public:
  struct Item {
    bool isDirectory = false;
    std::string contents{};
    FileAttributes attributes{};
    bool isExecutable = false;
  };

  explicit FakeFileManager(CallJournal* journal = nullptr);

  [[nodiscard]] bool fileExistsAtPath(const std::string& path, bool* isDirectory) const override;
  [[nodiscard]] bool isExecutableFileAtPath(const std::string& path) const override;
  bool createFileAtPath(const std::string& path, const FileAttributes& attributes) override;
  bool createDirectoryAtPath(const std::string& path, bool withIntermediateDirectories, const FileAttributes& attributes,
                             Error* error) override;
  bool setAttributes(const FileAttributes& attributes, const std::string& path) override;
  bool removeItemAtPath(const std::string& path) override;
  [[nodiscard]] std::optional<std::string> contentsAtPath(const std::string& path) const override;
  [[nodiscard]] std::string temporaryDirectory() const override { return temporaryFolder; }
  [[nodiscard]] std::string unusedName(const std::string& nameTemplate) const override;
  [[nodiscard]] std::vector<std::string> searchPathForDirectories(SearchPathDirectory kind, SearchPathDomainMask domain,
                                                                  bool expandTilde) const override;
  [[nodiscard]] std::optional<std::string> volumeURLForPath(const std::string& path) const override;

  // Both make the folders above. An item that exists is replaced by a document, and left alone by a folder.
  void addFile(const std::string& path, std::string contents = {}, bool isExecutable = false);
  void addFolder(const std::string& path);

  std::map<std::string, Item> items;
  std::set<std::string> accounts{"root", "adm"};  // users and groups
  std::string temporaryFolder = "/tmp";
  std::string homeFolder = "/home/me";
  // Full paths. The search gives those of both domains when asked for both, the user's first.
  std::map<std::pair<SearchPathDirectory, SearchPathDomainMask>, std::vector<std::string>> searchPaths;
  std::map<std::string, std::string> volumes;  // mount point to volume URL
  std::vector<std::string> removed;
  mutable std::vector<std::string> existenceTests;  // every path asked for, in order

  // Faults: all calls fail while they are set.
  std::optional<Error> createDirectoryError;
  bool refusesToCreateFiles = false;
  bool refusesToSetAttributes = false;
  bool refusesToRemove = false;
  bool refusesToRead = false;

 private:
  [[nodiscard]] bool isFolder(const std::string& path) const;
  [[nodiscard]] bool knows(const FileAttributes& attributes) const;
  [[nodiscard]] int makeFolder(const std::string& path, const FileAttributes& attributes);
  [[nodiscard]] int makeFolders(const std::string& path, const FileAttributes& attributes);

  mutable std::uint64_t _names = 0;
};

}  // namespace platform::fake
