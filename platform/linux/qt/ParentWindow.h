#pragma once
// The window of the application that started this program. The wizard is a dialog of it: in front of it, and under Wayland
// placed by the compositor with regard to it.
//
// Main thread only.
#include <QPointer>
#include <QWindow>
#include <memory>
#include <optional>

#include "platform/SystemLog.h"
#include "protocol/ParentWindow.h"

namespace platform::Linux {

// The name that this program was started with, which programs started later do not inherit. Returns nullopt without one, or
// if it has no form of a name; the log tells of the latter.
std::optional<protocol::ParentWindow> takeParentWindow(platform::SystemLog& log);

// Needs the application object.
class ParentWindow {
 public:
  // `log` must outlive this object.
  ParentWindow(std::optional<protocol::ParentWindow> name, platform::SystemLog& log);
  ~ParentWindow();

  // Makes `dialog`, which has just been shown, a dialog of the parent; only the first call does. A parent that cannot be
  // found, or that goes, leaves the dialog as it would be without one.
  void adopt(QWindow& dialog);

  // The dialog has no parent any more; without effect before adopt(). A window manager keeps a dialog in front of its
  // parent, so that the parent could not be raised over it.
  void letGo();

 private:
  class Imported;
  // Both return the cause of a failure, or nullptr.
  const char* adoptOnWayland(QWindow& dialog, const std::string& handle);
  const char* adoptOnX11(QWindow& dialog, std::uint32_t parent);
  void tell(const char* problem);

  std::optional<protocol::ParentWindow> _name;  // until it is used
  platform::SystemLog& _log;
  std::unique_ptr<Imported> _imported;    // on Wayland
  std::unique_ptr<QObject> _untilActive;  // on X11
  QPointer<QWindow> _dialog;
};

}  // namespace platform::Linux
