#pragma once
// Application bundles: information dictionary, resources, localised strings.
//
// Reading only. A Bundle is immutable once opened and may be used from any thread.
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
  // The information dictionary; empty when the bundle has none that can be read.
  [[nodiscard]] virtual const foundation::PropertyList::Dictionary& infoDictionary() const = 0;
  // The full path of the resource `name` (with ".type" appended when `type` is not empty), localised folders of the
  // preferred localizations included; nothing when there is none.
  [[nodiscard]] virtual std::optional<std::string> pathForResource(std::string_view name, std::string_view type) const = 0;
  // The text for `key` in the table (an empty name is the default table, "Localizable") of the first preferred localization
  // that holds it. Without one: `value`, or the key itself when `value` is empty.
  [[nodiscard]] virtual std::string localizedStringForKey(std::string_view key, std::string_view value,
                                                          std::string_view table) const = 0;
  // The localizations of this bundle that suit the user, best first, as locale identifiers ("en-GB", "zh-Hans").
  [[nodiscard]] virtual std::vector<std::string> preferredLocalizations() const = 0;

  // "CFBundleIdentifier", when it is a string.
  [[nodiscard]] std::optional<std::string> bundleIdentifier() const { return infoString("CFBundleIdentifier"); }
  // The value under `key` when it is a string.
  [[nodiscard]] std::optional<std::string> infoString(std::string_view key) const;
};

class Bundles {
 public:
  virtual ~Bundles() = default;
  // The bundle of the running program. Lives as long as the platform.
  [[nodiscard]] virtual const Bundle& mainBundle() const = 0;
  // The bundle at `path`, or nullptr when there is no folder.
  [[nodiscard]] virtual std::shared_ptr<const Bundle> bundleWithPath(std::string_view path) const = 0;
};

}  // namespace platform
