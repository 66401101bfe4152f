#pragma once
// The display that the application shows itself on: which one, how Qt is to use it, and what it can do.
//
// Main thread only.
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "platform/SystemLog.h"

namespace platform::Linux::Display {

// How the application will reach a display: Qt's name for the way, or what is wrong and what the user can do about it.
struct Choice {
  std::string qtPlatform;  // empty when QT_QPA_PLATFORM says it already, or when there is no display
  std::string note;        // for the log; may be empty
  std::string problem;     // empty when a display can be reached
};

// The folder of Qt's plug-ins.
std::string qtPluginFolder();

// Chooses from the environment. X11 comes first, through XWayland too, because a Wayland client cannot place its own
// window; but where the window belongs to one of the compositor's (`belongsOnWayland`), the compositor places it. Without
// this check Qt would end the process with a core dump when there is no display. The advice about a problem calls the
// application by the name of its program.
Choice choose(const std::string& program, bool belongsOnWayland, const std::string& pluginFolder = qtPluginFolder());

// Sets environment variables that Qt reads while the application object is made, and puts the old values back when it goes:
// programs started later must not inherit them. Those by which a desktop lets this program come to the front, which Qt
// takes away, come back too: the program that is started in its place comes to the front with them.
class StartUpEnvironment {
 public:
  // Letters take the forms of `fontLanguage`, if one is given; the font library reads it once.
  explicit StartUpEnvironment(const std::string& qtPlatform, const std::string& fontLanguage = {});
  ~StartUpEnvironment();
  StartUpEnvironment(const StartUpEnvironment&) = delete;
  StartUpEnvironment& operator=(const StartUpEnvironment&) = delete;

 private:
  void set(const char* name, const char* value);
  void keep(const char* name);
  std::vector<std::pair<std::string, std::optional<std::string>>> _before;
};

// Whether something composes translucent windows; without it a transparent corner shows black. Needs the application
// object.
bool composesWindows();

}  // namespace platform::Linux::Display
