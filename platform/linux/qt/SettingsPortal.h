#pragma once
// The settings portal of the desktop (org.freedesktop.portal.Settings on the session bus): what it says now, and every
// change. Main thread only.
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <variant>

#include "platform/linux/Bus.h"
#include "platform/linux/qt/DesktopSettings.h"

namespace platform::Linux {

// Nothing here waits for the portal: what it has not said is as the environment says. Without a bus, or with a portal that
// never answers, it stays so.
//
// The desktop's settings and what they mean here:
//   org.freedesktop.appearance         contrast 1: high contrast; reduced-motion 1: no animation
//   org.gnome.desktop.interface        enable-animations false: no animation; text-scaling-factor: larger letters;
//                                      font-name "Cantarell 11": the family, and larger letters above the usual size
//   org.gnome.desktop.a11y.interface   high-contrast true: high contrast
class SettingsPortal {
 public:
  using Value = std::variant<std::monostate, bool, double, std::string>;

  // Sends the question. Waits a moment at most for the bus to take it.
  SettingsPortal();

  // Called by process() after a change.
  std::function<void()> onChange;

  [[nodiscard]] const DesktopSettings& settings() const { return _settings; }

  // Readable when process() should be called; -1 without a bus, and from the process() on that found the connection broken.
  [[nodiscard]] int fileDescriptor() const;
  // Reads what has arrived, without waiting.
  void process();

 private:
  struct Answers {
    std::optional<bool> contrast;
    std::optional<bool> highContrast;
    std::optional<bool> reducedMotion;
    std::optional<bool> animations;
    std::optional<double> textScale;
    std::optional<std::string> font;
  };

  static int onAnswer(sd_bus_message* message, void* portal, sd_bus_error* error);
  static int onSignal(sd_bus_message* message, void* portal, sd_bus_error* error);
  void ask();
  void waitUntilSent();
  void take(std::string_view name, std::string_view key, const Value& value);
  [[nodiscard]] DesktopSettings settingsOfAnswers() const;
  void update();

  std::optional<Bus> _bus;
  Answers _answers;
  const DesktopSettings _environment = settingsOfEnvironment();
  DesktopSettings _settings = _environment;
};

}  // namespace platform::Linux
