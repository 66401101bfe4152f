#pragma once
// An open file of this process, closed by its owner's end.
#include <unistd.h>

#include <utility>

namespace AssistantTool {

class FileDescriptor {
 public:
  FileDescriptor() = default;
  explicit FileDescriptor(int number) : _number(number) {}
  FileDescriptor(FileDescriptor&& other) noexcept : _number(std::exchange(other._number, -1)) {}
  FileDescriptor& operator=(FileDescriptor&& other) noexcept {
    std::swap(_number, other._number);
    return *this;
  }
  FileDescriptor(const FileDescriptor&) = delete;
  FileDescriptor& operator=(const FileDescriptor&) = delete;
  ~FileDescriptor() {
    if (_number >= 0) ::close(_number);
  }

  explicit operator bool() const { return _number >= 0; }
  [[nodiscard]] int get() const { return _number; }

 private:
  int _number = -1;
};

}  // namespace AssistantTool
