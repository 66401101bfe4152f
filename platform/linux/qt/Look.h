#pragma once
// The product's look: style, colours, letters and icon. Main thread only.
#include <QApplication>
#include <QIcon>

#include "platform/Bundle.h"
#include "platform/linux/qt/DesktopSettings.h"

namespace platform::Linux {

// The face behind the texts has its own light colours, so a desktop's dark theme or its style would make the texts on it
// unreadable, and loading a theme costs time and memory. It follows what the desktop's user needs all the same. Before the
// first widget, and again whenever the settings change: windows and alerts that are shown follow.
void applyLook(DesktopSettings settings = {});

// The icon that the bundle names as "CFBundleIconFile", from artwork/NAME-SIZE.png in every size that there is; a null icon
// when there is none.
QIcon applicationIcon(const platform::Bundle& bundle);

// Makes that icon the application's as soon as a window has been painted. Reading its pictures and handing them over takes
// several milliseconds, and no window needs them to be shown.
class IconAfterFirstPaint final : public QObject {
 public:
  // `bundle` outlives it.
  explicit IconAfterFirstPaint(const platform::Bundle& bundle);
  bool eventFilter(QObject* watched, QEvent* event) override;

 private:
  const platform::Bundle& _bundle;
};

}  // namespace platform::Linux
