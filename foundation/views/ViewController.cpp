#include "foundation/views/ViewController.h"

#include "foundation/views/ViewResources.h"

namespace foundation {

View* ViewController::view() {
  if (_view == nullptr) loadView();
  return _view.get();
}

void ViewController::connectOutlet(std::string_view /*name*/, const std::shared_ptr<InterfaceElement>& /*element*/) {}

bool ViewController::loadView() {
  std::string cause = "this platform has no view resources";
  std::shared_ptr<View> loaded;
  if (_environment.resources != nullptr) loaded = _environment.resources->loadNib(_nibName, *this, cause);
  if (loaded == nullptr) {
    _environment.log("cannot load the view \"" + _nibName + "\": " + cause);
    return false;
  }
  setView(loaded);
  return true;
}

}  // namespace foundation
