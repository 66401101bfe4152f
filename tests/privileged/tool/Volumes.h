#pragma once
// For tests: real file systems in image files, where the machine can make and mount them.
#include <fcntl.h>
#include <linux/loop.h>
#include <sys/ioctl.h>

#include "tests/privileged/tool/Namespace.h"

namespace tests::tool {

struct FileSystemKind {
  std::string name;
  std::string make;  // the command; the image's path follows
  off_t bytes;
  std::string options;  // of the mount
};
inline const std::vector<FileSystemKind> fileSystemKinds{
    {"ext4", "/sbin/mkfs.ext4 -q -F -E nodiscard", off_t{64} << 20, ""},
    {"xfs", "/sbin/mkfs.xfs -q -f -K", off_t{320} << 20, ""},
    {"btrfs", "/sbin/mkfs.btrfs -q -f -K", off_t{160} << 20, ""},
};

// Why there cannot be such a volume; empty when it was made in the file `image`.
inline std::string makeImage(const FileSystemKind& kind, const fs::path& image) {
  if (read("/proc/filesystems").find("\t" + kind.name + "\n") == std::string::npos) return "the kernel has no " + kind.name;
  const auto program = kind.make.substr(0, kind.make.find(' '));
  if (!isThere(program)) return program + " is not installed";
  write(image, "");
  fs::resize_file(image, static_cast<std::uintmax_t>(kind.bytes));
  const auto command = kind.make + " '" + image.string() + "' >/dev/null 2>&1";
  return std::system(command.c_str()) == 0 ? "" : program + " failed";
}

// A block device over a file, or over `bytes` of it from `offset` on; gone with its last user.
class LoopDevice {
 public:
  explicit LoopDevice(const fs::path& file, off_t offset = 0, off_t bytes = 0) {
    const int control = ::open("/dev/loop-control", O_RDWR | O_CLOEXEC);
    const int backing = ::open(file.c_str(), O_RDWR | O_CLOEXEC);
    for (int tries = 0; control >= 0 && backing >= 0 && tries < 100 && _device < 0; ++tries) {
      const int number = ::ioctl(control, LOOP_CTL_GET_FREE);
      _path = "/dev/loop" + std::to_string(number);
      const int device = ::open(_path.c_str(), O_RDWR | O_CLOEXEC);
      loop_config config{};
      config.fd = static_cast<__u32>(backing);
      config.info.lo_flags = LO_FLAGS_AUTOCLEAR;
      config.info.lo_offset = static_cast<__u64>(offset);
      config.info.lo_sizelimit = static_cast<__u64>(bytes);
      // Someone else may have taken it meanwhile.
      if (device >= 0 && ::ioctl(device, LOOP_CONFIGURE, &config) == 0) {
        _device = device;
      } else if (device >= 0) {
        ::close(device);
      }
    }
    if (control >= 0) ::close(control);
    if (backing >= 0) ::close(backing);
  }
  ~LoopDevice() {
    if (_device >= 0) ::close(_device);
  }
  LoopDevice(const LoopDevice&) = delete;
  LoopDevice& operator=(const LoopDevice&) = delete;
  [[nodiscard]] bool isOpen() const { return _device >= 0; }
  [[nodiscard]] const std::string& path() const { return _path; }

 private:
  int _device = -1;
  std::string _path;
};

}  // namespace tests::tool
