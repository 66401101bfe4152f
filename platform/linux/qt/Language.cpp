#include "platform/linux/qt/Language.h"

#include <QFontMetrics>
#include <QGuiApplication>
#include <QLocale>

#include "foundation/text/Locale.h"
#include "platform/linux/Bundle.h"
#include "platform/linux/UserDefaults.h"
#include "platform/linux/qt/QtElements.h"

namespace platform::Linux {
namespace {

class UnheardLog final : public platform::SystemLog {
 public:
  void log(std::string_view /*line*/) override {}
};

// A letter that the interface's own font lacks makes Qt ask the font library for others, which reads its language at the
// first such question and never again. Only Chinese letters have forms that depend on it; others are spared the time.
void readLanguageOfFonts() { QFontMetrics(QGuiApplication::font()).horizontalAdvance(QChar(0x4e00)); }

}  // namespace

std::string chosenLocalization(int argc, const char* const* argv) {
  UnheardLog log;
  const Bundles information(log);
  const UserDefaults defaults(argc, argv, information.mainBundle().bundleIdentifier().value_or(""), log);
  const Bundles bundles(log, [&] { return preferredLanguages(defaults); });
  const auto localizations = bundles.mainBundle().preferredLocalizations();
  return localizations.empty() ? "en" : localizations.front();
}

std::string fontLanguage(std::string_view localization) {
  const auto locale = foundation::Locale::fromIdentifier(localization);
  if (locale.languageCode != "zh") return locale.languageCode;
  const auto usual = foundation::usualScript("zh", locale.countryCode.value_or(""));
  return locale.scriptCode.value_or(std::string(usual)) == "Hant" ? "zh-tw" : "zh-cn";
}

void applyLanguage(std::string_view localization) {
  const std::string language = fontLanguage(localization);
  if (language == "ja" || language == "ko" || language.starts_with("zh")) readLanguageOfFonts();
  QLocale::setDefault(QLocale(qtString(localization).replace('-', '_')));
  const bool isRightToLeft = foundation::Locale::fromIdentifier(localization).isRightToLeft();
  QGuiApplication::setLayoutDirection(isRightToLeft ? Qt::RightToLeft : Qt::LeftToRight);
}

}  // namespace platform::Linux
