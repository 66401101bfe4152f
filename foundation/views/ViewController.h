#pragma once
// The plain view controller: owns a view, which it loads from an interface description ("nib"). Main thread only.
#include <memory>
#include <string>
#include <string_view>

#include "foundation/views/Responder.h"
#include "foundation/views/View.h"
#include "foundation/views/ViewEnvironment.h"

namespace foundation {

class ViewController : public Responder {
 public:
  // `nibName` names an interface description of the main bundle. The environment outlives the controller.
  ViewController(ViewEnvironment& environment, std::string nibName)
      : _environment(environment), _nibName(std::move(nibName)) {}

  // The view, loaded by the first call. Returns nullptr if it cannot be loaded.
  View* view();
  // The view, or nullptr while there is none. Loads nothing.
  [[nodiscard]] const std::shared_ptr<View>& viewIfLoaded() const { return _view; }
  virtual void setView(const std::shared_ptr<View>& view) { _view = view; }

  // Connects the outlet `name` while the nib is loaded: a control or an inner view. The element lives as long as the nib's
  // view, so an outlet is a weak reference. A name that the controller does not have is ignored.
  virtual void connectOutlet(std::string_view name, const std::shared_ptr<InterfaceElement>& element);

  // Sets the view that the nib holds. On failure returns false, sets no view, and writes the cause to the system log.
  virtual bool loadView();

 private:
  ViewEnvironment& _environment;
  std::string _nibName;
  std::shared_ptr<View> _view;
};

}  // namespace foundation
