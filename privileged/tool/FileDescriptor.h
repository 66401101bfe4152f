#pragma once
// An open file of this process, closed by its owner's end.
#include <unistd.h>

#include <utility>

namespace AssistantTool {

class FileDescriptor {
 public:
  FileDescriptor() = default;
  explicit FileDescriptor(int number) : number_(number) {}
  FileDescriptor(FileDescriptor&& other) noexcept : number_(std::exchange(other.number_, -1)) {}
  FileDescriptor& operator=(FileDescriptor&& other) noexcept {
    std::swap(number_, other.number_);
    return *this;
  }
  FileDescriptor(const FileDescriptor&) = delete;
  FileDescriptor& operator=(const FileDescriptor&) = delete;
  ~FileDescriptor() {
    if (number_ >= 0) ::close(number_);
  }

  explicit operator bool() const { return number_ >= 0; }
  [[nodiscard]] int get() const { return number_; }

 private:
  int number_ = -1;
};

}  // namespace AssistantTool
