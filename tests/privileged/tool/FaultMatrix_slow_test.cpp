#include "tests/privileged/tool/FaultMatrix.h"
#include "tests/privileged/tool/Volumes.h"

namespace tests::tool {
namespace {

// On each file system that this machine has, with and without its exchange of names, at every call of every command.
class WholeFaultMatrix : public FaultMatrix, public ::testing::WithParamInterface<std::tuple<bool, std::string>> {
 protected:
  void runOn(const std::string& name, const fs::path& here, const fs::path& there) {
    runAll(name, here, there, allFaults, std::get<0>(GetParam()), true);
  }
  // The image lies in memory: this test is not about a disk's handling of the calls.
  void runOn(const FileSystemKind& kind, const fs::path& images, const fs::path& there) {
    const auto reason = makeImage(kind, images / kind.name);
    if (!reason.empty()) return skip(kind.name, reason);
    const auto here = folder / kind.name;
    fs::create_directory(here);
    {
      const LoopDevice device(images / kind.name);
      if (!device.isOpen()) return skip(kind.name, "no loop device");
      if (::mount(device.path().c_str(), here.c_str(), kind.name.c_str(), 0, kind.options.c_str()) != 0)
        return skip(kind.name, std::string("cannot be mounted: ") + std::strerror(errno));
    }
    runOn(kind.name, here, there);
    ::umount2(here.c_str(), MNT_DETACH);
  }
  static void skip(const std::string& name, const std::string& reason) { GTEST_SKIP() << name << ": " << reason; }
};

TEST_P(WholeFaultMatrix, HasNoBadRow) {
  const auto& wanted = std::get<1>(GetParam());
  if (!isRoot) {
    if (wanted != "tmpfs") GTEST_SKIP() << "only root can mount " << wanted;
    fs::create_directory(folder / "here");
    fs::create_directory(folder / "there");
    return runOn("own", folder / "here", folder / "there");
  }
  const auto there = volume("there");
  if (wanted == "tmpfs") return runOn("tmpfs", volume("tmpfs"), there);
  const auto images = volume("images", "size=1g");
  for (const auto& kind : fileSystemKinds) {
    if (kind.name == wanted) runOn(kind, images, there);
  }
}
std::string nameOf(const ::testing::TestParamInfo<std::tuple<bool, std::string>>& info) {
  return std::get<1>(info.param) + (std::get<0>(info.param) ? "" : "WithoutExchange");
}
INSTANTIATE_TEST_SUITE_P(All, WholeFaultMatrix,
                         ::testing::Combine(::testing::Bool(), ::testing::Values("tmpfs", "ext4", "xfs", "btrfs")), nameOf);

}  // namespace
}  // namespace tests::tool
