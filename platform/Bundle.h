#pragma once
// Application bundles: information dictionary, resources, localised strings.
//
// Read-only. A Bundle never changes once it is open; any thread.
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "foundation/plist/PropertyList.h"

namespace platform {

class Bundle {
 public:
  virtual ~Bundle() = default;

  [[nodiscard]] virtual std::string bundlePath() const = 0;
  // The information dictionary; empty if it is missing or unreadable.
  [[nodiscard]] virtual const foundation::PropertyList::Dictionary& infoDictionary() const = 0;
  // The full path of the resource `name` (with ".type" appended unless `type` is empty), also in the folders of the
  // preferred localizations; nullopt if there is no such resource.
  [[nodiscard]] virtual std::optional<std::string> pathForResource(std::string_view name, std::string_view type) const = 0;
  // The text for `key` in the table (an empty name stands for the default table, "Localizable") of the first preferred
  // localization that holds it; otherwise `value`, or the key itself if `value` is empty.
  [[nodiscard]] virtual std::string localizedStringForKey(std::string_view key, std::string_view value,
                                                          std::string_view table) const = 0;
  // The localizations of this bundle that suit the user, best first, as locale identifiers ("en-GB", "zh-Hans").
  [[nodiscard]] virtual std::vector<std::string> preferredLocalizations() const = 0;

  // "CFBundleIdentifier" if it is a string.
  [[nodiscard]] std::optional<std::string> bundleIdentifier() const { return infoString("CFBundleIdentifier"); }
  // The value under `key` if it is a string.
  [[nodiscard]] std::optional<std::string> infoString(std::string_view key) const;
};

class Bundles {
 public:
  virtual ~Bundles() = default;
  // The bundle of the running program. Lives as long as the platform.
  [[nodiscard]] virtual const Bundle& mainBundle() const = 0;
  // The bundle at `path`, or nullptr if that is not a folder.
  [[nodiscard]] virtual std::shared_ptr<const Bundle> bundleWithPath(std::string_view path) const = 0;
};

}  // namespace platform
