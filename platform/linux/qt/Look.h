#pragma once
// The product's look: style, colours, letter size and icon, the same on every desktop. Main thread only.
#include <QApplication>
#include <QIcon>

#include "platform/Bundle.h"

namespace platform::Linux {

// The face behind the texts has its own light colours, so a desktop's dark theme or its style would make the texts on it
// unreadable, and loading a theme costs time and memory. Before the first widget.
void applyLook(QApplication& application);

// The icon that the bundle names as "CFBundleIconFile", from artwork/NAME-SIZE.png in every size that there is; a null icon
// when there is none.
QIcon applicationIcon(const platform::Bundle& bundle);

}  // namespace platform::Linux
