#include "platform/linux/Bundle.h"

#include <algorithm>
#include <filesystem>
#include <map>
#include <mutex>

#include "foundation/plist/StringsFile.h"
#include "foundation/text/Path.h"
#include "platform/linux/PathKind.h"
#include "platform/linux/ReadDocument.h"

namespace platform::Linux {
namespace {

std::string joined(const std::string& folder, std::string_view name, std::string_view type) {
  std::string path = foundation::Path::appending(folder, name);
  if (!type.empty()) path.append(".").append(type);
  return path;
}

class Bundle final : public platform::Bundle {
 public:
  Bundle(std::string path, platform::SystemLog& log, const Bundles::Languages& languages)
      : _path(std::move(path)), _log(log), _languages(languages) {
    const std::string contents = foundation::Path::appending(_path, "Contents");
    const bool isApplication = isFolder(contents);
    _resources = isApplication ? foundation::Path::appending(contents, "Resources") : _path;
    if (isApplication) readInformation(foundation::Path::appending(contents, "Info.plist"));
  }

  [[nodiscard]] std::string bundlePath() const override { return _path; }
  [[nodiscard]] const foundation::PropertyList::Dictionary& infoDictionary() const override { return _information; }

  [[nodiscard]] std::optional<std::string> pathForResource(std::string_view name, std::string_view type) const override {
    if (name.empty()) return std::nullopt;
    for (const auto& folder : resourceFolders())
      if (auto path = joined(folder, name, type); exists(path)) return path;
    return std::nullopt;
  }

  [[nodiscard]] std::string localizedStringForKey(std::string_view key, std::string_view value,
                                                  std::string_view table) const override {
    for (const auto& strings : tables(table.empty() ? "Localizable" : table)) {
      const auto place = strings.find(key);
      if (place != strings.end()) return place->second;
    }
    return std::string(value.empty() ? key : value);
  }

  [[nodiscard]] std::vector<std::string> preferredLocalizations() const override {
    std::call_once(_localizationsChosen, [this] {
      _localizations = matchingLocalizations(availableLocalizations(), _languages(),
                                             infoString("CFBundleDevelopmentRegion").value_or("en"));
    });
    return _localizations;
  }

 private:
  void readInformation(const std::string& path) {
    ReadFailure failure;
    const auto document = readDocument(path, foundation::PropertyList::maximumBytes, failure);
    auto value = document ? foundation::PropertyList::parse(document->bytes, &failure.reason) : std::nullopt;
    if (!value) return report(path, failure.reason);
    const auto* dictionary = value->as<foundation::PropertyList::Dictionary>();
    if (dictionary == nullptr) return report(path, "it is not a dictionary");
    _information = *dictionary;
  }

  void report(const std::string& path, const std::string& reason) const {
    _log.log("NSBundle: cannot read '" + path + "': " + reason);
  }

  [[nodiscard]] std::vector<std::string> availableLocalizations() const {
    std::vector<std::string> names;
    std::error_code error;
    std::filesystem::directory_iterator entry(_resources, error);
    for (; !error && entry != std::filesystem::directory_iterator(); entry.increment(error)) {
      const auto& path = entry->path();
      if (path.extension() == ".lproj" && path.stem() != "Base" && isFolder(path)) names.push_back(path.stem());
    }
    return names;
  }

  // Where a resource may lie, best first.
  [[nodiscard]] std::vector<std::string> resourceFolders() const {
    std::vector<std::string> folders;
    for (const auto& localization : preferredLocalizations()) folders.push_back(joined(_resources, localization, "lproj"));
    folders.push_back(foundation::Path::appending(_resources, "Base.lproj"));
    folders.push_back(_resources);
    return folders;
  }

  // The tables of that name, best first. They stay as they were first read, though the bundle may move or be replaced.
  [[nodiscard]] const std::vector<foundation::StringTable>& tables(std::string_view name) const {
    const std::lock_guard lock(_tablesMutex);
    const auto place = _tables.find(name);
    if (place != _tables.end()) return place->second;
    std::vector<foundation::StringTable> tables;
    for (const auto& folder : resourceFolders())
      if (auto table = readTable(joined(folder, name, "strings"))) tables.push_back(std::move(*table));
    return _tables.emplace(name, std::move(tables)).first->second;
  }

  [[nodiscard]] std::optional<foundation::StringTable> readTable(const std::string& path) const {
    ReadFailure failure;
    const auto document = readDocument(path, foundation::PropertyList::maximumBytes, failure);
    if (!document && failure.isMissing) return std::nullopt;
    auto table = document ? foundation::parseStrings(document->bytes, &failure.reason) : std::nullopt;
    if (!table) report(path, failure.reason);
    return table;
  }

  std::string _path;
  platform::SystemLog& _log;
  Bundles::Languages _languages;
  std::string _resources;
  foundation::PropertyList::Dictionary _information;
  mutable std::once_flag _localizationsChosen;
  mutable std::vector<std::string> _localizations;
  mutable std::mutex _tablesMutex;
  mutable std::map<std::string, std::vector<foundation::StringTable>, std::less<>> _tables;
};

std::string ownExecutable() {
  std::error_code error;
  return std::filesystem::read_symlink("/proc/self/exe", error);
}

}  // namespace

std::string bundlePathForExecutable(const std::string& executable) {
  std::string own = foundation::Path::deletingLastComponent(executable);
  for (std::string folder = own; folder.size() > 1; folder = foundation::Path::deletingLastComponent(folder))
    if (exists(foundation::Path::appending(folder, "Contents/Info.plist"))) return folder;
  return own;
}

Bundles::Bundles(platform::SystemLog& log, Languages languages)
    : _log(log),
      _languages(std::move(languages)),
      _main(std::make_shared<Bundle>(bundlePathForExecutable(ownExecutable()), _log, _languages)) {}

std::shared_ptr<const platform::Bundle> Bundles::bundleWithPath(std::string_view path) const {
  std::string folder(path);
  if (!isFolder(folder)) return nullptr;
  return std::make_shared<Bundle>(std::move(folder), _log, _languages);
}

}  // namespace platform::Linux
