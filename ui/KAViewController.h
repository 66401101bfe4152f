#pragma once
// The base of every view controller of the kit: one interface description per class, and callbacks that tell what happens
// to the view. Main thread only.
//
// A controller class says its name and is made by viewController:
//
//   class Settings : public KAViewController {
//    public:
//     static constexpr std::string_view className = "Settings";
//     using KAViewController::KAViewController;
//   };
//   const auto settings = KAViewController::viewController<Settings>();
#include <memory>
#include <string>
#include <string_view>

#include "foundation/views/ViewController.h"
#include "ui/KAView.h"

class KAViewController : public platform::ViewController {
 public:
  // A new instance with the nib named by nibName, of the main bundle. When the last share of it goes, the view is taken
  // from it first; an exception that leaves its callbacks then ends the process.
  template <class Controller>
  static std::shared_ptr<Controller> viewController() {
    return {new Controller(nibName<Controller>()), [](Controller* controller) noexcept {
              controller->tearDown();
              delete controller;
            }};
  }
  // The class's own name: every controller class has a nib of that name.
  template <class Controller>
  static std::string nibName() {
    return std::string(Controller::className);
  }

  using platform::ViewController::ViewController;
  ~KAViewController() override { tearDown(); }

  bool loadView() override;
  // A KAView is linked to this controller while it is its view.
  void setView(const std::shared_ptr<platform::View>& view) override;
  [[nodiscard]] bool isViewLoaded() const { return _viewLoaded; }
  // The frame's size, or (0, 0) without a view.
  [[nodiscard]] foundation::Size recommendedViewSize() const;
  virtual void sizeViewToFit() {}

  // The view that should take the keyboard's focus: only kept here, and not owned.
  [[nodiscard]] platform::Responder* viewToBeFirstResponder() const { return _viewToBeFirstResponder.get(); }
  void setViewToBeFirstResponder(platform::Responder* view) { _viewToBeFirstResponder = view; }

  // The window recalculates its key-view loop on the next turn of the run loop, once however often it is asked. Nothing
  // without a view in a window.
  void setNeedsRecalculateKeyViewLoop();

  // Called before or after what they say. An overriding class calls the base version of those three that do something.
  virtual void ktViewDidLoad() {}
  virtual void ktViewDidUnload() {}
  virtual void ktViewWillAppear();  // asks the view for layout
  virtual void ktViewDidAppear() { setNeedsRecalculateKeyViewLoop(); }
  virtual void ktViewWillDisappear() {}
  virtual void ktViewDidDisappear() { setNeedsRecalculateKeyViewLoop(); }
  virtual void ktViewWillMoveToSuperview(platform::View* superview);
  virtual void ktViewDidMoveToSuperview() {}
  virtual void ktViewWillBeRemovedFromSuperview() {}
  virtual void ktViewWasRemovedFromSuperview() {}
  virtual void ktViewWillMoveToWindow(platform::ViewWindow* window);
  virtual void ktViewDidMoveToWindow() {}
  virtual void ktViewWillBeRemovedFromWindow() {}
  virtual void ktViewWasRemovedFromWindow() {}

 private:
  void tearDown() noexcept;

  bool _viewLoaded = false;
  platform::WeakReference<platform::Responder> _viewToBeFirstResponder;
};
