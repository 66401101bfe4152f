#include "platform/linux/wayland/Toplevel.h"

#include <qpa/qplatformnativeinterface.h>

#include <QGuiApplication>

namespace platform::Linux {

std::optional<Toplevel> toplevelOf(QWindow& window) {
  if (!QGuiApplication::platformName().startsWith("wayland")) return std::nullopt;
  auto* qt = QGuiApplication::platformNativeInterface();
  if (qt == nullptr || qt->nativeResourceForWindow("xdg_toplevel", &window) == nullptr) return std::nullopt;
  const Toplevel toplevel{static_cast<wl_display*>(qt->nativeResourceForIntegration("wl_display")),
                          static_cast<wl_surface*>(qt->nativeResourceForWindow("surface", &window))};
  return toplevel.display != nullptr && toplevel.surface != nullptr ? std::optional(toplevel) : std::nullopt;
}

}  // namespace platform::Linux
