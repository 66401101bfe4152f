#include "privileged/tool/FileSystemNumber.h"

#include <linux/magic.h>
#include <sys/ioctl.h>
#include <sys/statfs.h>

#include <array>
#include <cstdint>
#include <cstring>

#include "privileged/tool/Failure.h"

namespace AssistantTool {
namespace {

// The answer of xfs about itself, in the kernel's oldest form, which never changes.
struct XfsGeometry {
  std::array<std::uint32_t, 8> sizes;
  std::array<std::uint64_t, 4> blocks;
  std::array<std::uint64_t, 2> uuid;
  std::array<std::uint32_t, 7> others;
};
constexpr auto askForGeometry = _IOR('X', 100, XfsGeometry);
static_assert(sizeof(XfsGeometry) == 112);

std::string textOf(std::uint64_t first, std::uint64_t second) {
  return std::to_string(first) + ":" + std::to_string(second);
}

std::string numberOfXfs(int folder) {
  XfsGeometry geometry{};
  if (::ioctl(folder, askForGeometry, &geometry) != 0) failWithSystemError("cannot ask the file system for its number");
  return textOf(geometry.uuid[0], geometry.uuid[1]);
}

}  // namespace

std::string numberOfFileSystem(int folder) {
  struct statfs volume {};
  if (::fstatfs(folder, &volume) != 0) failWithSystemError("cannot look at a file system");
  // Its number in there is that of the device.
  if (volume.f_type == XFS_SUPER_MAGIC) return numberOfXfs(folder);
  std::array<unsigned, 2> number{};
  static_assert(sizeof number == sizeof volume.f_fsid);
  std::memcpy(number.data(), &volume.f_fsid, sizeof number);
  if (number[0] == 0 && number[1] == 0) return {};
  return textOf(number[0], number[1]);
}

}  // namespace AssistantTool
