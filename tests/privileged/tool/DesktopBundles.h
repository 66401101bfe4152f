#pragma once
// For tests: bundles that bring a desktop entry and icons, and what the menus have of them.
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

}  // namespace tests::tool
