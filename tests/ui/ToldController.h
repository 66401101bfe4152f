#pragma once
// A view controller that writes down the callbacks it receives, each behind its own name.
#include <string>
#include <vector>

#include "ui/KAViewController.h"

using Calls = std::vector<std::string>;

class ToldController : public KAViewController {
 public:
  static constexpr std::string_view className = "ToldController";

  using KAViewController::KAViewController;
  explicit ToldController(Calls& calls, std::string prefix = {}) : prefix(std::move(prefix)), calls(&calls) {}

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
  void ktViewWillMoveToSuperview(platform::View* superview) override {
    movedTo = superview;
    say("WillMoveToSuperview");
  }
  void ktViewDidMoveToSuperview() override { say("DidMoveToSuperview"); }
  void ktViewWillBeRemovedFromSuperview() override { say("WillBeRemovedFromSuperview"); }
  void ktViewWasRemovedFromSuperview() override { say("WasRemovedFromSuperview"); }
  void ktViewWillMoveToWindow(platform::ViewWindow* window) override {
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
