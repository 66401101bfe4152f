#pragma once
// Application bundles on disk: Name.app/Contents/Info.plist and Contents/Resources with one xx.lproj for each localization.
//
// A folder without Contents is a bundle too, whose resources lie in the folder itself. Any thread.
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "platform/Bundle.h"
#include "platform/SystemLog.h"
#include "platform/linux/PreferredLanguages.h"

namespace platform::Linux {

// The innermost folder above `executable` that has Contents/Info.plist, else the folder the executable lies in.
std::string bundlePathForExecutable(const std::string& executable);

class Bundles final : public platform::Bundles {
 public:
  // Best language first. Asked on the first look-up of a text or localised resource in a bundle, and not again for it.
  using Languages = std::function<std::vector<std::string>()>;

  // Defects of an information list or a string table are written to `log`, with the reason.
  explicit Bundles(platform::SystemLog& log, Languages languages = languagesOfTheEnvironment);

  [[nodiscard]] const platform::Bundle& mainBundle() const override { return *_main; }
  // Opened afresh on every call: the bundle may have been replaced since the last.
  [[nodiscard]] std::shared_ptr<const platform::Bundle> bundleWithPath(std::string_view path) const override;

 private:
  platform::SystemLog& _log;
  Languages _languages;
  std::shared_ptr<const platform::Bundle> _main;
};

}  // namespace platform::Linux
