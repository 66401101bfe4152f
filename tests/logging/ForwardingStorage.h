#pragma once
// Real files, for tests that interfere with some of what is done to them.
#include <cerrno>
#include <cstdint>

#include "platform/linux/LogStorage.h"

namespace tests {

class ForwardingFile : public platform::LogFile {
 public:
  explicit ForwardingFile(std::unique_ptr<platform::LogFile> file) : _file(std::move(file)) {}
  std::size_t append(std::string_view bytes, int& error) override { return _file->append(bytes, error); }
  [[nodiscard]] std::uint64_t size() const override { return _file->size(); }
  [[nodiscard]] std::string contentsFrom(std::uint64_t offset) const override { return _file->contentsFrom(offset); }
  bool synchronize() override { return _file->synchronize(); }
  void endUse() override { _file->endUse(); }
  [[nodiscard]] Place placeOf(const std::string& path) const override { return _file->placeOf(path); }

 private:
  const std::unique_ptr<platform::LogFile> _file;
};

class ForwardingStorage : public platform::LogStorage {
 public:
  [[nodiscard]] bool fileExists(const std::string& path) const override { return _real.fileExists(path); }
  bool createDirectory(const std::string& path, platform::Error& error) override {
    return _real.createDirectory(path, error);
  }
  [[nodiscard]] std::vector<std::string> namesInDirectory(const std::string& path) const override {
    return _real.namesInDirectory(path);
  }
  [[nodiscard]] std::optional<platform::LogFileAttributes> attributesOfFile(const std::string& path) const override {
    return _real.attributesOfFile(path);
  }
  bool createFile(const std::string& path) override { return _real.createFile(path); }
  std::unique_ptr<platform::LogFile> openFile(const std::string& path) override { return _real.openFile(path); }
  bool removeFile(const std::string& path) override { return _real.removeFile(path); }
  bool moveFile(const std::string& path, const std::string& newPath, platform::Error& error) override {
    return _real.moveFile(path, newPath, error);
  }
  [[nodiscard]] bool hasMark(const std::string& path, const std::string& name) const override {
    return _real.hasMark(path, name);
  }
  int setMark(const std::string& path, const std::string& name) override { return _real.setMark(path, name); }
  int removeMark(const std::string& path, const std::string& name, bool& wasMissing) override {
    return _real.removeMark(path, name, wasMissing);
  }

 private:
  platform::Linux::LogStorage _real;
};

// A disk with room for so many bytes.
struct SmallDisk final : ForwardingStorage {
  struct File final : ForwardingFile {
    File(std::unique_ptr<platform::LogFile> file, std::size_t& space) : ForwardingFile(std::move(file)), room(space) {}
    std::size_t append(std::string_view bytes, int& error) override {
      const std::size_t count = std::min(room, bytes.size());
      if (count > 0) ForwardingFile::append(bytes.substr(0, count), error);
      if (count < bytes.size()) error = ENOSPC;
      room -= count;
      return count;
    }
    std::size_t& room;
  };
  std::unique_ptr<platform::LogFile> openFile(const std::string& path) override {
    auto file = ForwardingStorage::openFile(path);
    return file ? std::make_unique<File>(std::move(file), room) : nullptr;
  }

  std::size_t room = SIZE_MAX;
};

}  // namespace tests
