#pragma once
// For tests: bundles that bring a desktop entry and icons, and what the menus have of them after a job of root's tool.
#include "privileged/tool/Commands.h"
#include "privileged/tool/DesktopEntries.h"
#include "tests/privileged/tool/Namespace.h"
#include "tests/privileged/tool/SignedBundle.h"

namespace tests::tool {

inline constexpr const char* entryOfBundle = "Contents/Resources/Desktop/com.example.App.desktop";
inline constexpr const char* iconsOfBundle = "Contents/Resources/Desktop/icons/hicolor";

inline std::string entryText(const std::string& name, const std::string& program = "Contents/Linux/Controller") {
  return "[Desktop Entry]\nType=Application\nName=" + name + "\nIcon=com.example.App\nExec=" + program +
         " %F\nCategories=Utility;\nMimeType=application/x-example;\n";
}

// With an entry called `name`; without one when that is empty.
inline void makeDesktopBundle(const fs::path& bundle, const std::string& name,
                              const std::vector<std::string>& sizes = {"48x48", "scalable"}) {
  fs::remove_all(bundle);
  writeWithMode(bundle / "Contents/Info.plist", informationList("com.example.App", "1.0"));
  writeWithMode(bundle / "Contents/Linux/Controller", "program of " + name, 0755);
  if (name.empty()) return;
  writeWithMode(bundle / entryOfBundle, entryText(name));
  for (const auto& size : sizes)
    writeWithMode(
        bundle / iconsOfBundle / size / "apps" / (size == "scalable" ? "com.example.App.svg" : "com.example.App.png"),
        "picture");
}

// The entry and icons of com.example.App in a data folder.
struct Shown {
  fs::path data;

  [[nodiscard]] fs::path entry() const { return data / "applications/com.example.App.desktop"; }
  [[nodiscard]] std::string value(const std::string& key) const {
    const auto text = read(entry());
    const auto at = text.find("\n" + key + "=");
    if (at == std::string::npos) return "";
    const auto begin = at + key.size() + 2;
    return text.substr(begin, text.find('\n', begin) - begin);
  }
  // The sizes whose icon is there and leads to a picture in this bundle.
  [[nodiscard]] std::vector<std::string> sizesFor(const fs::path& bundle) const {
    std::vector<std::string> sizes;
    if (!isThere(data / "icons/hicolor")) return sizes;
    for (const auto& size : fs::directory_iterator(data / "icons/hicolor")) {
      if (!size.is_directory()) continue;
      for (const auto& icon : fs::directory_iterator(size.path() / "apps"))
        if (icon.is_symlink() && fs::read_symlink(icon.path()).string().starts_with(bundle.string() + "/") &&
            read(icon.path()) == "picture")
          sizes.push_back(size.path().filename());
    }
    std::ranges::sort(sizes);
    return sizes;
  }
  // No entry, no icon, and nothing on its way.
  [[nodiscard]] bool isNothing() const {
    if (!isThere(data)) return true;
    return std::ranges::all_of(fs::recursive_directory_iterator(data), [](const fs::directory_entry& each) {
      return each.symlink_status().type() == fs::file_type::directory || each.path().extension() == ".cache";
    });
  }
};

// Jobs of root's tool for another user, in a folder of root's.
class DesktopEntries : public NamespaceTest {
 protected:
  void SetUp() override {
    NamespaceTest::SetUp();
    if (IsSkipped()) return;
    volume("/usr/local/share");
    becomeAnotherUsersTool();
    makeDesktopBundle(download, "One");
    for (const auto& bundle : {installed, elsewhere}) fs::create_directory(bundle.parent_path());
  }
  void install(const std::string& name, const fs::path& bundle) {
    makeDesktopBundle(download, name);
    expectSuccess(replace(bundle, download));
  }
  void install(const std::string& name) { install(name, installed); }
  void makeUsersOwn(const fs::path& tree) {
    giveToUser(tree);
    if (fs::is_symlink(tree) || !fs::is_directory(tree)) return;
    for (const auto& entry : fs::directory_iterator(tree)) makeUsersOwn(entry.path());
  }
  // The job is done, with this warning, and nothing is shown.
  void expectLeftOut(const Answer& answer, const std::string& cause) {
    EXPECT_THAT(answer.text, ::testing::HasSubstr("; the desktop entry was left out: "));
    EXPECT_THAT(answer.text, ::testing::HasSubstr(cause));
    EXPECT_TRUE(isThere(installed / "Contents/Linux/Controller"));
    EXPECT_FALSE(isThere(system.entry()));
    EXPECT_THAT(system.sizesFor(installed), ::testing::IsEmpty());
    expectSuccess(answer);
  }
  // Replaces what is installed by the download after `spoil`.
  void expectLeftOutAfter(const std::function<void()>& spoil, const std::string& cause) {
    install("Before");
    EXPECT_EQ(system.value("Name"), "Before") << "an entry that has to go";
    makeDesktopBundle(download, "After");
    spoil();
    expectLeftOut(replace(installed, download), cause);
  }
  // Whether the removal of `item` for this user would be bounded to folders below `path`, among others.
  [[nodiscard]] static bool isRemovalBoundedTo(const fs::path& path, const fs::path& item) {
    const InstructionArchive::Instructions instructions{{protocol::filePathKey, item}};
    const AssistantTool::PathWalk walk(invokingUser);
    const AssistantTool::Rules rules;
    AssistantTool::Bundles bundles;
    const AssistantTool::Request request{.instructions = instructions, .walk = walk, .rules = rules, .bundles = bundles};
    const AssistantTool::DesktopEntries entries(AssistantTool::commandNamed(protocol::removeFileCommand), request);
    EXPECT_TRUE(entries.hasWork());
    return std::ranges::any_of(entries.folders(), [&](const posix::Descriptor& each) {
      const auto opened = fs::read_symlink("/proc/self/fd/" + std::to_string(each.get())).string();
      return (opened + "/").starts_with(path.string() + "/");
    });
  }
  static std::vector<std::string> notes() {
    std::vector<std::string> names;
    if (!fs::is_directory("/var/lib/kelto/entries")) return names;
    for (const auto& entry : fs::directory_iterator("/var/lib/kelto/entries")) names.push_back(entry.path().filename());
    return names;
  }

  const fs::path installed = folder / "Applications/App.app";
  const fs::path elsewhere = folder / "Elsewhere/App.app";
  const fs::path download = folder / "Download/App.app";
  const Shown system{"/usr/local/share"};
  const Shown users{home() / ".local/share"};
};

}  // namespace tests::tool
