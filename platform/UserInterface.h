#pragma once
// The window and its elements, alerts, and the application that owns them. Main thread only.
//
// The loaded interface description owns the elements; everything else holds weak references.
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "foundation/graphics/Geometry.h"
#include "foundation/runtime/NotificationCenter.h"
#include "foundation/views/InterfaceElement.h"

namespace foundation {
class View;
}

namespace platform {

struct Platform;

using foundation::InterfaceElement;

// A window of the application. Texts are UTF-8 and shown as they stand, without any markup.
class Window : public InterfaceElement {
 public:
  // In points of the screen, origin at the bottom-left corner of the main screen, borders included.
  [[nodiscard]] virtual foundation::Rect frame() const = 0;
  // Where most of the window would lie off the screens it comes to the nearest place that shows all of it. With `display`
  // it is drawn before the call returns.
  virtual void setFrame(const foundation::Rect& frame, bool display) = 0;
  // The same for the bottom-left corner alone; the size stays.
  virtual void setFrameOrigin(foundation::Point origin) = 0;
  // To the middle of the main screen; the size stays.
  virtual void center() = 0;
  virtual void setTitle(std::string_view title) = 0;
  // Shows the window in front of the others and asks for the keyboard, which the desktop may refuse.
  virtual void makeKeyAndOrderFront() = 0;
};

// A text that the user can read and not change.
class TextField : public InterfaceElement {
 public:
  // In UTF-8; shown as it stands, without any markup.
  virtual void setStringValue(std::string_view text) = 0;
};

// Its action stands in the interface description.
class Button : public InterfaceElement {
 public:
  // In UTF-8; no letter of it becomes a shortcut.
  virtual void setTitle(std::string_view title) = 0;
};

// A bar that shows that work goes on, not how much of it is done.
class ProgressIndicator : public InterfaceElement {
 public:
  // Keeps the animation going while a blocking call of the platform occupies the main thread.
  virtual void setUsesThreadedAnimation(bool threaded) = 0;
  virtual void startAnimation() = 0;
};

// An alert with one button.
struct Alert {
  std::string messageText;
  std::string informativeText;
  std::string defaultButton;
  bool operator==(const Alert&) const = default;
};

class Application {
 public:
  virtual ~Application() = default;
  // Shows the alert and returns when it has been dismissed. Does nothing after termination.
  virtual void runModal(const Alert& alert) = 0;
  // Ends the run: calls the delegate's applicationWillTerminate, posts the will-terminate notification, then lets the main
  // function return. A call during or after termination does nothing.
  virtual void terminate(const void* sender) = 0;
};

// The object that the framework calls. An interface description creates it by class name and connects its outlets.
class ApplicationDelegate {
 public:
  virtual ~ApplicationDelegate() = default;
  // Connects the outlet `name`; ignores a name that the delegate does not have.
  virtual void connectOutlet(std::string_view name, const std::shared_ptr<InterfaceElement>& element) = 0;
  virtual void applicationDidFinishLaunching(const foundation::Notification& notification) = 0;
  virtual void applicationWillTerminate(const foundation::Notification& notification) = 0;
};

// A class that an interface description may name, and its factory.
struct DelegateClass {
  std::string_view name;
  std::function<std::unique_ptr<ApplicationDelegate>(Platform&)> make;
};

// The same for the views in it.
struct ViewClass {
  std::string_view name;
  std::function<std::shared_ptr<foundation::View>()> make;
};

// The arguments that an application takes. The views outlive the main function's call.
struct CommandLine {
  std::string_view help;               // for "--help"; %@ in it stands for the bundle's executable
  std::vector<std::string_view> keys;  // of the arguments "-key value"
};

// The application framework's main function: makes the platform, loads the main interface description (named by
// "NSMainNibFile" in the main bundle's information), makes the delegate that it names, connects its outlets and runs until
// Application::terminate. Returns the exit status (see Ending). With a command line, "--help" and "--version" are answered
// and nothing else happens, and an argument that it does not name is an error. Every platform implements this once.
int ApplicationMain(int argc, char** argv, const std::vector<DelegateClass>& classes,
                    const std::vector<ViewClass>& viewClasses = {}, const CommandLine* commandLine = nullptr);

}  // namespace platform
