#pragma once
// Alerts: a headline, an informative text and one button.
#include <QWidget>
#include <functional>

#include "platform/UserInterface.h"

namespace platform::Linux {

// Shows the alert above everything of the application and returns when it was dismissed: by its button, Return, Escape or
// closing. It asks for attention while it waits without the keyboard. Texts are shown as they stand. `parent` may be
// nullptr; the alert is a dialog of it, and stands over it, while it is visible. With `putBehind`, which is called once it
// is shown, it leaves the keyboard where it is and asks for attention. Main thread only; runs an event loop.
void runAlert(const Alert& alert, std::string_view title, QWidget* parent, const std::function<void()>& putBehind = {});

}  // namespace platform::Linux
