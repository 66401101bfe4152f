#pragma once
// The base of every view controller of the kit: one interface description per class, and callbacks for everything that
// happens to the view. Main thread only.
//
// A controller class names itself, inherits the constructor, and is made by viewController:
//
//   class Settings : public KAViewController {
//    public:
//     static constexpr ClassName<Settings> className{"Settings"};
//     using KAViewController::KAViewController;
//   };
//   const auto settings = KAViewController::viewController<Settings>();
#include <concepts>
#include <memory>
#include <string>
#include <string_view>

#include "foundation/views/ViewController.h"
#include "ui/KAView.h"

// The name of a controller class. It carries the class as its type, so a subclass cannot go by its parent's name, and with
// it load its parent's nib, by mistake.
template <class Controller>
struct ClassName {
  constexpr explicit ClassName(std::string_view text) : text(text) {}
  std::string_view text;
};

template <class Controller>
concept NamesItself = std::same_as<decltype(Controller::className), const ClassName<Controller>>;

class KAViewController : public foundation::ViewController {
 public:
  static constexpr ClassName<KAViewController> className{"KAViewController"};

  // The constructor's parameter. Only viewController can make one, so it makes every controller.
  class Making {
   public:
    Making(const Making&) = delete;
    Making& operator=(const Making&) = delete;

   private:
    friend class KAViewController;
    Making(foundation::ViewEnvironment& environment, std::string nibName)
        : environment(environment), nibName(std::move(nibName)) {}
    foundation::ViewEnvironment& environment;
    const std::string nibName;
  };

  // Makes a controller with the nib named by nibName, in the installed environment. Releasing the last share takes the view
  // away first, while the object still has its own class, so its own ktViewDidUnload runs. An exception that escapes from
  // there ends the process.
  template <NamesItself Controller>
  static std::shared_ptr<Controller> viewController() {
    const Making making(foundation::ViewEnvironment::installed(), nibName<Controller>());
    return {new Controller(making), [](Controller* controller) noexcept {
              controller->tearDown();
              delete controller;
            }};
  }
  // The class's own name: every controller class has a nib of that name.
  template <NamesItself Controller>
  static std::string nibName() {
    return std::string(Controller::className.text);
  }

  explicit KAViewController(const Making& making) : ViewController(making.environment, making.nibName) {}

  bool loadView() override;
  // Links a KAView to this controller.
  void setView(const std::shared_ptr<foundation::View>& view) override;
  [[nodiscard]] bool isViewLoaded() const { return _viewLoaded; }
  // The frame's size, or (0, 0) without a view.
  [[nodiscard]] foundation::Size recommendedViewSize() const;
  virtual void sizeViewToFit() {}

  // The view that should take the keyboard focus. This class only stores it, and does not own it.
  [[nodiscard]] foundation::Responder* viewToBeFirstResponder() const { return _viewToBeFirstResponder.get(); }
  void setViewToBeFirstResponder(foundation::Responder* view) { _viewToBeFirstResponder = view; }

  // Asks the view's window to recalculate its key-view loop on the next turn of the run loop, once for any number of
  // requests. Does nothing without a view in a window.
  void setNeedsRecalculateKeyViewLoop();

  // Each is called right before or after the event in its name. A class that overrides one of the three that do something
  // here calls the base version.
  virtual void ktViewDidLoad() {}
  virtual void ktViewDidUnload() {}
  virtual void ktViewWillAppear();  // asks the view for layout
  virtual void ktViewDidAppear() { setNeedsRecalculateKeyViewLoop(); }
  virtual void ktViewWillDisappear() {}
  virtual void ktViewDidDisappear() { setNeedsRecalculateKeyViewLoop(); }
  virtual void ktViewWillMoveToSuperview(foundation::View* superview);
  virtual void ktViewDidMoveToSuperview() {}
  virtual void ktViewWillBeRemovedFromSuperview() {}
  virtual void ktViewWasRemovedFromSuperview() {}
  virtual void ktViewWillMoveToWindow(foundation::ViewWindow* window);
  virtual void ktViewDidMoveToWindow() {}
  virtual void ktViewWillBeRemovedFromWindow() {}
  virtual void ktViewWasRemovedFromWindow() {}

 private:
  void tearDown();

  bool _viewLoaded = false;
  foundation::WeakReference<foundation::Responder> _viewToBeFirstResponder;
};
