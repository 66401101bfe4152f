#pragma once
// An interface description that has been loaded: the widgets of a .ui document as interface elements.
//
// Main thread only. What the document says beyond its widgets, as dynamic properties:
//   delegateClass  on the top-level widget: the class of the application's delegate
//   action         on a button: "terminate:" ends the application when it is pressed
//   namedBy        on a widget: the name of the label whose text is its name for assistive tools
//   any boolean    on a widget whose class is a view's: set on the view
// Every widget with a name is an outlet of that name; the top-level is the window.
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "foundation/dispatch/RunLoop.h"
#include "platform/UserInterface.h"
#include "platform/linux/qt/QtWindow.h"

namespace platform::Linux {

class InterfaceDescription {
 public:
  // Loads the document at `path`; a widget whose class is one of `viewClasses` shows a view, whose animations
  // `runLoop` drives. Closing the window and the action "terminate:" call `terminate`. Returns nullptr, and sets `cause`,
  // if the document cannot be read.
  static std::unique_ptr<InterfaceDescription> load(const std::string& path, const std::function<void()>& terminate,
                                                    std::string& cause, foundation::RunLoop& runLoop,
                                                    const std::vector<ViewClass>& viewClasses = {});

  // Empty when the document names none.
  [[nodiscard]] std::string delegateClass() const;
  // The delegate holds the elements weakly: they go with this object.
  void connectOutlets(ApplicationDelegate& delegate) const;
  [[nodiscard]] QWidget& window() const { return *_window; }

 private:
  struct Outlet {
    std::string name;
    std::shared_ptr<InterfaceElement> element;
  };

  explicit InterfaceDescription(std::unique_ptr<WindowWidget> window) : _window(std::move(window)) {}
  void makeOutlets();
  void connectActions(const std::function<void()>& terminate);

  std::unique_ptr<WindowWidget> _window;
  std::vector<Outlet> _outlets;
};

}  // namespace platform::Linux
