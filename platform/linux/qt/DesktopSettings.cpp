#include "platform/linux/qt/DesktopSettings.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdlib>
#include <string_view>

namespace platform::Linux {
namespace {

std::string_view environment(const char* name) {
  const char* value = std::getenv(name);
  return value == nullptr ? std::string_view() : std::string_view(value);
}

double number(std::string_view text) {
  double value = 1;
  std::from_chars(text.data(), text.data() + text.size(), value);
  return value;
}

}  // namespace

double possibleLetterScale(double scale) {
  return std::isnan(scale) ? 1 : std::clamp(scale, 1.0, DesktopSettings::largestLetters);
}

DesktopSettings settingsOfEnvironment() {
  DesktopSettings settings;
  settings.highContrast = environment("KELTO_HIGH_CONTRAST") == "1" || environment("GTK_THEME").starts_with("HighContrast");
  settings.animates = environment("KELTO_REDUCED_MOTION") != "1";
  settings.letterScale = possibleLetterScale(number(environment("GDK_DPI_SCALE")));
  return settings;
}

}  // namespace platform::Linux
