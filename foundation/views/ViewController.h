#pragma once
// The platform's view controller: owns a view, which an interface description ("nib") holds. Main thread only.
#include <memory>
#include <string>

#include "foundation/views/Responder.h"
#include "foundation/views/View.h"

namespace platform {

class ViewController : public Responder {
 public:
  ViewController() = default;
  // The nib is looked for in the main bundle.
  explicit ViewController(std::string nibName) : _nibName(std::move(nibName)) {}

  // The view, loaded when there is none yet. nullptr when it cannot be loaded.
  View* view();
  // The view, or nullptr while there is none; loads nothing.
  [[nodiscard]] const std::shared_ptr<View>& viewIfLoaded() const { return _view; }
  virtual void setView(const std::shared_ptr<View>& view) { _view = view; }

  // Sets the view of the nib. Without one: false, no view, and the cause in the system log.
  virtual bool loadView();

 private:
  std::string _nibName;
  std::shared_ptr<View> _view;
};

}  // namespace platform
