#pragma once
// A view controller that records the callbacks it receives, each with the prefix of its controller.
#include <string>
#include <vector>

#include "foundation/views/ViewWindow.h"
#include "ui/KAViewController.h"

namespace tests {

using Calls = std::vector<std::string>;

class ToldController : public KAViewController {
 public:
  static constexpr ClassName<ToldController> className{"ToldController"};
  using KAViewController::KAViewController;

  void ktViewDidLoad() override { say("DidLoad"); }
  void ktViewDidUnload() override { say("DidUnload"); }
  void ktViewWillAppear() override {
    say("WillAppear");
    KAViewController::ktViewWillAppear();
  }
  void ktViewDidAppear() override {
    say("DidAppear");
    KAViewController::ktViewDidAppear();
  }
  void ktViewWillDisappear() override { say("WillDisappear"); }
  void ktViewDidDisappear() override {
    say("DidDisappear");
    KAViewController::ktViewDidDisappear();
  }
  void ktViewWillMoveToSuperview(foundation::View* superview) override {
    movedTo = superview;
    say("WillMoveToSuperview");
  }
  void ktViewDidMoveToSuperview() override { say("DidMoveToSuperview"); }
  void ktViewWillBeRemovedFromSuperview() override { say("WillBeRemovedFromSuperview"); }
  void ktViewWasRemovedFromSuperview() override { say("WasRemovedFromSuperview"); }
  void ktViewWillMoveToWindow(foundation::ViewWindow* window) override {
    movedTo = window;
    say("WillMoveToWindow");
  }
  void ktViewDidMoveToWindow() override { say("DidMoveToWindow"); }
  void ktViewWillBeRemovedFromWindow() override { say("WillBeRemovedFromWindow"); }
  void ktViewWasRemovedFromWindow() override { say("WasRemovedFromWindow"); }

  std::string prefix;
  Calls* calls = nullptr;
  const void* movedTo = nullptr;

 private:
  void say(const char* what) {
    if (calls != nullptr) calls->push_back(prefix + what);
  }
};

// A controller that writes to `calls`.
inline std::shared_ptr<ToldController> toldController(Calls& calls, std::string prefix = {}) {
  const auto controller = KAViewController::viewController<ToldController>();
  controller->calls = &calls;
  controller->prefix = std::move(prefix);
  return controller;
}

}  // namespace tests
