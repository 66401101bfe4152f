#pragma once
// An open file descriptor, owned; -1 for none. One thread at a time.
#include <unistd.h>

#include <utility>

namespace posix {

class Descriptor {
 public:
  Descriptor() = default;
  explicit Descriptor(int descriptor) : _descriptor(descriptor) {}
  Descriptor(Descriptor&& other) noexcept : _descriptor(std::exchange(other._descriptor, -1)) {}
  Descriptor& operator=(Descriptor&& other) noexcept {
    std::swap(_descriptor, other._descriptor);
    return *this;
  }
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;
  ~Descriptor() { reset(); }

  [[nodiscard]] int get() const { return _descriptor; }
  explicit operator bool() const { return _descriptor >= 0; }
  void reset() {
    if (_descriptor >= 0) ::close(_descriptor);
    _descriptor = -1;
  }

 private:
  int _descriptor = -1;
};

}  // namespace posix
