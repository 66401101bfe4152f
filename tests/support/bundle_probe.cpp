// Says what a program learns of its own bundle: path, identifier, localizations, and the text of "<Cancel>".
#include <iostream>
#include <optional>

#include "platform/linux/Bundle.h"
#include "platform/linux/UserDefaults.h"

namespace {

struct StandardErrorLog final : platform::SystemLog {
  void log(std::string_view line) override { std::cerr << line << '\n'; }
};

}  // namespace

int main(int argc, char** argv) {
  StandardErrorLog log;
  std::optional<platform::Linux::UserDefaults> defaults;
  const platform::Linux::Bundles bundles(log, [&] { return platform::Linux::preferredLanguages(*defaults); });
  const auto& bundle = bundles.mainBundle();
  const std::string identifier = bundle.bundleIdentifier().value_or("");
  defaults.emplace(argc, argv, identifier, log);
  std::cout << bundle.bundlePath() << '\n' << identifier << '\n';
  std::string separator;
  for (const auto& localization : bundle.preferredLocalizations()) {
    std::cout << separator << localization;
    separator = " ";
  }
  std::cout << '\n' << bundle.localizedStringForKey("<Cancel>", "", "") << '\n';
}
