#include "privileged/tool/FileSystemNumber.h"

#include <sys/stat.h>

#include "posix/Descriptor.h"
#include "tests/privileged/tool/Volumes.h"

namespace tests::tool {
namespace {

struct Numbers {
  dev_t device = 0;
  std::string own;
};

class FileSystemNumber : public NamespaceTest, public ::testing::WithParamInterface<FileSystemKind> {
 protected:
  // Of the image, as the device that is free now.
  [[nodiscard]] Numbers mounted(const fs::path& image) const {
    const LoopDevice device(image);
    const auto place = folder / "disk";
    fs::create_directories(place);
    EXPECT_TRUE(device.isOpen());
    EXPECT_EQ(::mount(device.path().c_str(), place.c_str(), GetParam().name.c_str(), 0, nullptr), 0)
        << std::strerror(errno);
    const posix::Descriptor top(::open(place.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    struct stat status {};
    EXPECT_EQ(::fstat(top.get(), &status), 0);
    Numbers numbers{.device = status.st_dev, .own = AssistantTool::numberOfFileSystem(top.get())};
    EXPECT_EQ(::umount2(place.c_str(), MNT_DETACH), 0);
    return numbers;
  }
};

}  // namespace

TEST_P(FileSystemNumber, StaysWhenTheDevicesAreCountedAnew) {
  const auto images = volume("images", "size=1g");
  if (const auto reason = makeImage(GetParam(), images / "disk"); !reason.empty()) GTEST_SKIP() << reason;
  if (!LoopDevice(images / "disk").isOpen()) GTEST_SKIP() << "there are no loop devices";
  const auto before = mounted(images / "disk");
  write(images / "other", std::string(4096, '\0'));
  // The one that was free is taken.
  std::vector<std::unique_ptr<LoopDevice>> others;
  auto after = before;
  for (int tries = 0; tries < 10 && after.device == before.device; ++tries) {
    others.push_back(std::make_unique<LoopDevice>(images / "other"));
    after = mounted(images / "disk");
  }
  // A volume of btrfs has a device of its own, by chance another each time.
  if (GetParam().name != "btrfs") {
    EXPECT_NE(after.device, before.device);
  }
  EXPECT_FALSE(before.own.empty());
  EXPECT_EQ(after.own, before.own);
}

INSTANTIATE_TEST_SUITE_P(On, FileSystemNumber, ::testing::ValuesIn(fileSystemKinds),
                         [](const auto& kind) { return kind.param.name; });

}  // namespace tests::tool
