#pragma once
// The one source of visible texts, and the user's language as the product's other parts name it. Any thread.
//
// Which language the texts are in is the main bundle's matter; the language table below is independent of it.
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "foundation/plist/PropertyList.h"
#include "foundation/text/Format.h"

class KTLocalizer {
  struct SingletonKey {
    explicit SingletonKey() = default;
  };

 public:
  // The one localizer of the process, made at the first call. Instances come from nowhere else.
  static KTLocalizer* sharedLocalizer();
  explicit KTLocalizer(SingletonKey);
  KTLocalizer(const KTLocalizer&) = delete;
  KTLocalizer& operator=(const KTLocalizer&) = delete;

  // The list in the main bundle's resource "UnlocalizedStrings.plist", as it was when the localizer was made; nothing when
  // there is none.
  [[nodiscard]] const std::optional<foundation::PropertyList::Array>& unlocalizedStrings() const {
    return _unlocalizedStrings;
  }

  // The text for `key` in the main bundle's default table, taken as a format and filled with the arguments. A key without a
  // text is reported to the debug log, and comes back with "ZXZ" behind it, so that it is noticed.
  template <class... Arguments>
  [[nodiscard]] std::string localizedStringForKey(std::string_view key, const Arguments&... arguments) const {
    return foundation::formatted(textForKey(key), arguments...);
  }

  // The row of the language table, 0 to 13, that suits the main bundle's preferred localizations. Chosen at the first call
  // of this or of any operation below, and fixed from then on.
  static std::int64_t languageCodes();
  // The identifier of the row's locale, language and country: "en-US", "nb-NO", "zh-Hans-CN".
  static std::string locale();
  // The subdomain of the product's web site.
  static std::string keltoSubdomain();
  // The language in addresses of the web site.
  static std::string keltoUrlLanguageCode();
  // The language as the product's library code names it.
  static std::string kclibLanguageId();

 private:
  [[nodiscard]] std::string textForKey(std::string_view key) const;

  std::optional<foundation::PropertyList::Array> _unlocalizedStrings;
};
