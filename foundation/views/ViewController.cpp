#include "foundation/views/ViewController.h"

#include "foundation/views/ViewResources.h"
#include "platform/Platform.h"

namespace platform {

View* ViewController::view() {
  if (_view == nullptr) loadView();
  return _view.get();
}

bool ViewController::loadView() {
  Platform& platform = current();
  std::string cause = "this platform has no view resources";
  std::shared_ptr<View> loaded;
  if (platform.viewResources != nullptr) loaded = platform.viewResources->loadNib(_nibName, *this, cause);
  if (loaded == nullptr) {
    platform.systemLog.log("cannot load the view \"" + _nibName + "\": " + cause);
    return false;
  }
  setView(loaded);
  return true;
}

}  // namespace platform
