#pragma once
// Letters as large as the desktop's user wants them, in a window of one size. Main thread only.
#include <QWidget>

namespace platform::Linux {

inline constexpr double designedLetterSize = 10;  // typographic points

// `designed` points for letters of the designed size, as many more as the letters are larger, and no more than the screen
// has.
int widthForLetters(int designed);

// Sets the letters in the window to the designed size times `scale`. A label whose property "letterScale" holds a number
// has letters larger by it.
void setLetters(QWidget& window, double scale);

// The same with the scale of the settings, or the largest for which everything has the room that it needs, but never less
// than 1.
void fitLetters(QWidget& window);

}  // namespace platform::Linux
