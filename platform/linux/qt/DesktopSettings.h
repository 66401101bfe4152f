#pragma once
// The wishes of the desktop's user that the look follows.
#include <string>

namespace platform::Linux {

struct DesktopSettings {
  static constexpr double largestLetters = 3;

  bool highContrast = false;
  bool animates = true;        // otherwise nothing moves across the window
  double letterScale = 1;      // of the designed size of letters: 1 to largestLetters
  std::string letterFamily{};  // empty: the one that the system's font library prefers
  bool operator==(const DesktopSettings&) const = default;
};

// The settings where no desktop answers, from the environment:
//   KELTO_HIGH_CONTRAST=1, or GTK_THEME=HighContrast (also with more behind it)
//   KELTO_REDUCED_MOTION=1
//   GDK_DPI_SCALE=1.5           larger letters
DesktopSettings settingsOfEnvironment();

// The scale that letters may have: a number that is not one, or is too small or too large, becomes the nearest.
double possibleLetterScale(double scale);

}  // namespace platform::Linux
