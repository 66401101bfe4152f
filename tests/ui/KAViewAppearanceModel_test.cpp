// Views are added, removed, hidden and moved about at random, against a literal model of the appearance cycle.
#include <gtest/gtest.h>
#include <rapidcheck.h>

#include <array>

#include "platform/fake/FakePlatform.h"
#include "tests/ui/ToldController.h"

using namespace tests;

namespace {

constexpr int viewCount = 6;
constexpr int nowhere = -1;
constexpr int inWindow = -2;  // the parent of a window's content view

struct Node {
  int parent = nowhere;
  bool hidden = false;
  int state = 0;
  std::vector<int> children;
};

// The model knows parents, flags and states, and writes the callbacks that there should be.
class Model {
 public:
  Calls calls;
  std::array<Node, viewCount> nodes;

  void add(int view, int parent) {
    if (isInside(parent, view)) return;
    if (parent == inWindow)
      for (int other = 0; other < viewCount; ++other)
        if (nodes[other].parent == inWindow) remove(other);
    remove(view);
    const bool windowThere = hasWindow(parent);
    willSuperview(view, true, windowThere);
    if (windowThere) forAll(view, [this, view](int n) { willWindow(n, true, n != view); });
    nodes[view].parent = parent;
    if (parent >= 0) nodes[parent].children.push_back(view);
    if (windowThere) forAll(view, [this](int n) { didWindow(n); });
    didSuperview(view);
  }

  void remove(int view) {
    const int parent = nodes[view].parent;
    if (parent == nowhere) return;
    const bool windowThere = hasWindow(view);
    willSuperview(view, false, false);
    if (windowThere) forAll(view, [this](int n) { willWindow(n, false, true); });
    if (parent >= 0) std::erase(nodes[parent].children, view);
    nodes[view].parent = nowhere;
    if (windowThere) forAll(view, [this](int n) { didWindow(n); });
    didSuperview(view);
  }

  void setHidden(int view, bool hidden) {
    if (nodes[view].hidden == hidden) return;
    nodes[view].hidden = hidden;
    const int parent = nodes[view].parent;
    if (parent >= 0 && isHidden(parent)) return;
    tellHidden(view, hidden);
  }

 private:
  template <class Do>
  void forAll(int view, Do what) {
    what(view);
    for (const int child : nodes[view].children) forAll(child, what);
  }
  [[nodiscard]] bool isInside(int node, int view) const {
    for (; node >= 0; node = nodes[node].parent)
      if (node == view) return true;
    return false;
  }
  [[nodiscard]] bool hasWindow(int node) const {
    while (node >= 0) node = nodes[node].parent;
    return node == inWindow;
  }
  [[nodiscard]] bool isHidden(int node) const {
    for (; node >= 0; node = nodes[node].parent)
      if (nodes[node].hidden) return true;
    return false;
  }
  void say(int view, const char* what) { calls.push_back(std::to_string(view) + what); }
  void pass(int view, int from, int to, const char* what) {
    if (nodes[view].state != from) return;
    nodes[view].state = to;
    say(view, what);
  }

  void willSuperview(int view, bool some, bool superviewHasWindow) {
    say(view, some ? "WillMoveToSuperview" : "WillBeRemovedFromSuperview");
    if (some && superviewHasWindow && !nodes[view].hidden) pass(view, 0, 1, "WillAppear");
    if (!some) pass(view, 2, 3, "WillDisappear");
  }
  void didSuperview(int view) {
    const bool some = nodes[view].parent != nowhere;
    say(view, some ? "DidMoveToSuperview" : "WasRemovedFromSuperview");
    if (some && hasWindow(view) && !isHidden(view)) pass(view, 1, 2, "DidAppear");
    if (!some) pass(view, 3, 0, "DidDisappear");
  }
  void willWindow(int view, bool some, bool hasSuperview) {
    say(view, some ? "WillMoveToWindow" : "WillBeRemovedFromWindow");
    if (some && hasSuperview && !nodes[view].hidden) pass(view, 0, 1, "WillAppear");
    if (!some) pass(view, 2, 3, "WillDisappear");
  }
  void didWindow(int view) {
    const bool some = hasWindow(view);
    say(view, some ? "DidMoveToWindow" : "WasRemovedFromWindow");
    if (some && nodes[view].parent != nowhere && !isHidden(view)) pass(view, 1, 2, "DidAppear");
    if (!some) pass(view, 3, 0, "DidDisappear");
  }
  void tellHidden(int view, bool hidden) {
    if (hasWindow(view)) {
      if (hidden) {
        pass(view, 2, 3, "WillDisappear");
        pass(view, 3, 0, "DidDisappear");
      } else {
        pass(view, 0, 1, "WillAppear");
        pass(view, 1, 2, "DidAppear");
      }
    }
    for (const int child : nodes[view].children)
      if (!nodes[child].hidden) tellHidden(child, hidden);
  }
};

struct Step {
  int kind = 0;  // add, remove, hide, show, put into the window
  int view = 0;
  int parent = 0;
};

std::ostream& operator<<(std::ostream& out, const Step& step) {
  return out << "{" << step.kind << ", view " << step.view << ", parent " << step.parent << "}";
}

// The real thing.
class Stage {
 public:
  explicit Stage(foundation::RunLoop& runLoop) : window(runLoop) {
    for (int i = 0; i < viewCount; ++i) {
      views.push_back(std::make_shared<KAView>());
      controllers.push_back(toldController(calls, std::to_string(i)));
      controllers.back()->setView(views.back());
    }
  }
  ~Stage() {
    for (const auto& controller : controllers) controller->calls = nullptr;
  }
  Stage(const Stage&) = delete;
  Stage& operator=(const Stage&) = delete;

  Calls calls;
  foundation::ViewWindow window;
  std::vector<std::shared_ptr<KAView>> views;
  std::vector<std::shared_ptr<ToldController>> controllers;
};

void apply(const Step& step, Stage& stage, Model& model) {
  const auto& view = stage.views[static_cast<std::size_t>(step.view)];
  switch (step.kind) {
    case 0:
      stage.views[static_cast<std::size_t>(step.parent)]->addSubview(view);
      return model.add(step.view, step.parent);
    case 1:
      view->removeFromSuperview();
      return model.remove(step.view);
    case 2:
    case 3:
      view->setHidden(step.kind == 2);
      return model.setHidden(step.view, step.kind == 2);
    default:
      if (model.nodes[step.view].parent == inWindow) return;
      stage.window.setContentView(view);
      return model.add(step.view, inWindow);
  }
}

rc::Gen<Step> steps() {
  const auto index = rc::gen::inRange(0, viewCount);
  return rc::gen::construct<Step>(rc::gen::inRange(0, 5), index, index);
}

TEST(KAViewAppearanceModelTest, FollowsItsTableWhateverIsDoneToTheViews) {
  platform::fake::FakePlatform fakes;
  const bool holds = rc::check([&fakes] {
    const auto todo = *rc::gen::container<std::vector<Step>>(steps());
    Stage stage(fakes.runLoop);
    Model model;
    for (const auto& step : todo) {
      apply(step, stage, model);
      RC_ASSERT(stage.calls == model.calls);
    }
    for (int i = 0; i < viewCount; ++i)
      RC_ASSERT(static_cast<int>(stage.views[static_cast<std::size_t>(i)]->viewAppearance()) == model.nodes[i].state);
  });
  EXPECT_TRUE(holds);
}

}  // namespace
