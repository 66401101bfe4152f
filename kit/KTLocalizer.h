#pragma once
// The one source of visible texts, and the user's language as the product's other parts name it. Any thread.
//
// The main bundle chooses the language of the texts. The language table below is independent of that choice.
#include <cstdint>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>

#include "foundation/plist/PropertyList.h"
#include "foundation/text/Format.h"
#include "foundation/text/Locale.h"
#include "platform/Bundle.h"

namespace platform {
struct Platform;
}

class KTLocalizer {
  struct SingletonKey {
    explicit SingletonKey() = default;
  };

 public:
  // The one localizer of the process, made at the first call for the installed platform. Nothing else makes instances.
  static KTLocalizer* sharedLocalizer();
  KTLocalizer(SingletonKey, const platform::Platform& platform);
  KTLocalizer(const KTLocalizer&) = delete;
  KTLocalizer& operator=(const KTLocalizer&) = delete;

  // The list in the main bundle's resource "UnlocalizedStrings.plist", as it was when the localizer was made; nullopt if
  // there was no such list.
  [[nodiscard]] const std::optional<foundation::PropertyList::Array>& unlocalizedStrings() const {
    return _unlocalizedStrings;
  }

  // The text for `key` in the main bundle's default table, taken as a format and filled with the arguments. A key without a
  // text is reported to the debug log and returned with "ZXZ" appended, so that somebody notices it.
  template <class... Arguments>
  [[nodiscard]] std::string localizedStringForKey(std::string_view key, const Arguments&... arguments) const {
    return foundation::formatted(textForKey(key), arguments...);
  }

  // The row of the language table, 0 to 13, that suits the main bundle's preferred localizations. The first call of this
  // operation or of one below chooses it for good.
  static std::int64_t languageCodes();
  // A locale of the row's language and country, such as "en-US", "nb-NO" or "zh-Hans-CN".
  static foundation::Locale locale();
  // The subdomain of the product's web site.
  static std::string keltoSubdomain();
  // The language in addresses of the web site.
  static std::string keltoUrlLanguageCode();
  // The language as the product's library code names it.
  static std::string kclibLanguageId();

 private:
  [[nodiscard]] std::string textForKey(std::string_view key) const;
  std::int64_t chosenRow();

  const platform::Bundle& _mainBundle;
  std::optional<foundation::PropertyList::Array> _unlocalizedStrings;
  std::once_flag _rowChosen;
  std::int64_t _row = -1;
};
