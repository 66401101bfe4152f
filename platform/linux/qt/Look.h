#pragma once
// The product's look: style, colours and letter size, the same on every desktop.
#include <QApplication>

namespace platform::Linux {

// The face behind the texts has its own light colours, so a desktop's dark theme or its style would make the texts on it
// unreadable, and loading a theme costs time and memory. Main thread, before the first widget.
void applyLook(QApplication& application);

}  // namespace platform::Linux
