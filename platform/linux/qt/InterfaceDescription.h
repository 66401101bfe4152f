#pragma once
// Reads interface descriptions, which are .ui documents: of a window, as widgets and interface elements, and of a
// controller's view ("nib"), as a view with its inner views and controls.
//
// Main thread only. The document uses these dynamic properties:
//   delegateClass     on the top-level widget of a window: the class of the application's delegate
//   action            on a button: "terminate:" ends the application when the button is pressed
//   letterScale       on a label in a window: how much larger its letters are than the others
//   namedBy           on a widget: the name of the label whose text is its name for assistive tools
//   autoresizingMask  on a widget whose class is a view's: a number, set on the view
//   any boolean       on a widget whose class is a view's: set on the view
// Every element with a name is an outlet of that name, and so is every view in a nib but the outermost.
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "foundation/dispatch/RunLoop.h"
#include "foundation/views/ViewController.h"
#include "platform/UserInterface.h"
#include "platform/linux/qt/QtWindow.h"

namespace platform::Linux {

// The classes of views that a document may name, and the services for them.
struct ViewContext {
  foundation::RunLoop& runLoop;
  std::vector<ViewClass> classes;
};

struct Outlet {
  std::string name;
  std::shared_ptr<InterfaceElement> element;
};

class InterfaceDescription {
 public:
  // Loads the document at `path`; a widget whose class is one of the view classes shows a view. Closing the window and the
  // action "terminate:" call `terminate`. Returns nullptr, and sets `cause`, if the document cannot be read.
  static std::unique_ptr<InterfaceDescription> load(const std::string& path, const std::function<void()>& terminate,
                                                    std::string& cause, const ViewContext& views);

  // Loads the document at `path`, whose top-level widget has the class of a view, and connects the outlets of `owner`. The
  // view owns its controls. Returns nullptr, and sets `cause`, if the document cannot be read.
  static std::shared_ptr<foundation::View> loadView(const std::string& path, const std::function<void()>& terminate,
                                                    std::string& cause, const ViewContext& views,
                                                    foundation::ViewController& owner);

  // Empty if the document does not name one.
  [[nodiscard]] std::string delegateClass() const;
  // The delegate holds the elements weakly; they live as long as this object.
  void connectOutlets(ApplicationDelegate& delegate) const;
  // Enables or disables the buttons with the action "terminate:".
  void setActionsEnabled(bool enabled) const;
  [[nodiscard]] WindowWidget& window() const { return *_window; }

 private:
  explicit InterfaceDescription(std::unique_ptr<WindowWidget> window);

  std::unique_ptr<WindowWidget> _window;
  std::vector<Outlet> _outlets;
};

}  // namespace platform::Linux
