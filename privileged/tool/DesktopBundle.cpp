#include "privileged/tool/DesktopBundle.h"

#include <sys/stat.h>

#include <algorithm>
#include <string_view>

#include "privileged/tool/BundleItem.h"
#include "privileged/tool/DesktopEntry.h"
#include "privileged/tool/Failure.h"
#include "privileged/tool/Folder.h"

namespace AssistantTool {
namespace {

constexpr std::size_t maximumIcons = 64;

std::string lastComponent(const std::string& path) { return path.substr(path.rfind('/') + 1); }

// The file at `path`, which nobody but root and `user` can change or exchange.
BundleItem fileKeptFromOthers(int bundle, const std::string& path, uid_t user) {
  for (auto slash = path.find('/'); slash != std::string::npos; slash = path.find('/', slash + 1)) {
    if (canBeWrittenByOthers(statusOf(BundleItem(bundle, path.substr(0, slash)).descriptor()), user))
      throw Failure("others can write in " + printable(path.substr(0, slash)));
  }
  BundleItem item(bundle, path);
  if (item.kind() != EntryKind::file) throw Failure("not a file: " + printable(path));
  if (canBeWrittenByOthers(statusOf(item.descriptor()), user)) throw Failure("others can write " + printable(path));
  return item;
}

void requireProgram(int bundle, const std::string& path, uid_t user) {
  if ((fileKeptFromOthers(bundle, path, user).mode() & S_IXUSR) == 0) throw Failure("not executable: " + printable(path));
}

// "48x48", "48x48@2", "scalable", "symbolic"
bool isIconSize(std::string_view name) {
  if (name == "scalable" || name == "symbolic") return true;
  constexpr std::string_view digits = "0123456789";
  constexpr std::size_t longest = 9;
  const auto by = std::min(name.find('x'), name.size());
  const auto width = name.substr(0, by);
  const auto isNumber = !width.empty() && width.find_first_not_of(digits) == std::string_view::npos;
  const auto height = "x" + std::string(width);
  const auto rest = name.substr(by);
  return name.size() <= longest && isNumber && (rest == height || rest == height + "@2");
}

// "<identifier>.png", "<identifier>-<more>.svg": no name that another application's icon could have.
bool isIconName(std::string_view name, const std::string& identifier) {
  if (!name.starts_with(identifier) || (!name.ends_with(".png") && !name.ends_with(".svg"))) return false;
  const auto more = name.substr(identifier.size(), name.rfind('.') - identifier.size());
  return more.empty() || (more.front() == '-' && isBundleIdentifier(more) && more.find('.') == std::string_view::npos);
}

// The names in a folder of the bundle, each a folder or each a file.
std::vector<std::string> namesIn(int bundle, const std::string& path) {
  const BundleItem folder(bundle, path);
  if (folder.kind() != EntryKind::folder) throw Failure("not a folder: " + printable(path));
  const auto entries = entriesOf(folder.descriptor(), maximumIcons);
  if (!entries) throw Failure("too many icons");
  std::vector<std::string> names;
  for (const auto& entry : *entries) names.push_back(entry.name);
  std::ranges::sort(names);
  return names;
}

std::vector<BroughtIcon> iconsIn(int bundle, const std::string& identifier, uid_t user) {
  std::vector<BroughtIcon> icons;
  const auto folder = std::string(desktopFolder) + "/" + iconFolder;
  if (isMissing(bundle, folder)) return icons;
  for (const auto& size : namesIn(bundle, folder)) {
    if (!isIconSize(size)) throw Failure("not a size of icons: " + printable(size));
    for (const auto& name : namesIn(bundle, folder + "/" + size + "/" + iconContext)) {
      if (!isIconName(name, identifier)) throw Failure("an icon that is not named after the bundle: " + printable(name));
      fileKeptFromOthers(bundle, folder + "/" + size + "/" + iconContext + "/" + name, user);
      icons.push_back({.size = size, .name = name});
    }
    if (icons.size() > maximumIcons) throw Failure("too many icons");
  }
  return icons;
}

}  // namespace

bool bringsEntry(const Location& bundle) {
  return static_cast<bool>(openFolderIn(bundle.folder.get(), bundle.name + "/" + desktopFolder));
}

std::optional<BroughtEntry> entryBroughtBy(const Location& bundle, uid_t user, const std::vector<TrustedKey>& keys,
                                           const SignaturePolicy& signatures) {
  const auto folder = openFolderIn(bundle.folder.get(), bundle.name);
  if (!folder || isMissing(folder.get(), desktopFolder)) return std::nullopt;
  if (canBeWrittenByOthers(statusOf(folder.get()), user)) throw Failure("others can write the bundle");
  const auto accepted = acceptBundle({bundle.folder.get(), bundle.name}, std::nullopt, keys, signatures);
  BroughtEntry brought{.identifier = accepted.identity.identifier, .text = {}, .icons = {}};
  if (brought.identifier.empty()) throw Failure("the bundle has no identifier");
  const auto path = std::string(desktopFolder) + "/" + brought.identifier + ".desktop";
  const auto file = fileKeptFromOthers(folder.get(), path, user);
  const auto text = contentsOfFile(file.descriptor(), maximumDesktopEntryBytes, lastComponent(path));
  if (accepted.manifest) verifyContents(file.descriptor(), *accepted.manifest, path);
  const DesktopEntry entry(text);
  for (const auto& program : entry.programs()) requireProgram(folder.get(), program, user);
  brought.icons = iconsIn(folder.get(), brought.identifier, user);
  brought.text = entry.installedFor(bundle.path);
  return brought;
}

}  // namespace AssistantTool
