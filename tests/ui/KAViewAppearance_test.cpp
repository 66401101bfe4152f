// The appearance cycle, row by row: every notification in every state, and every condition on either side.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "platform/fake/FakePlatform.h"
#include "tests/ui/ToldController.h"

using namespace tests;
using foundation::View;
using testing::ElementsAre;

namespace {

using State = KAView::Appearance;

struct KAViewAppearanceTest : testing::Test {
  platform::fake::FakePlatform fakes;
  Calls calls;
  foundation::ViewWindow window{fakes.runLoop};
  std::shared_ptr<View> content = std::make_shared<View>();
  std::shared_ptr<KAView> view = std::make_shared<KAView>();
  std::shared_ptr<ToldController> controller = toldController(calls);
};

// The circumstances of a notification.
struct Where {
  bool hasSuperview = false;
  bool inWindow = false;  // through the superview
  bool ownHidden = false;
  bool ancestorHidden = false;
};

struct Row {
  const char* notification;
  bool toSomewhere;  // with a superview or window, or with none
  const char* first;
  State before;
  State after;
  const char* callback;
};

// In a window and shown: what each notification does in the state that it waits for.
const Row rows[] = {
    {"willSuperview", true, "WillMoveToSuperview", State::Disappeared, State::Appearing, "WillAppear"},
    {"willSuperview", false, "WillBeRemovedFromSuperview", State::Appeared, State::Disappearing, "WillDisappear"},
    {"didSuperview", true, "DidMoveToSuperview", State::Appearing, State::Appeared, "DidAppear"},
    {"didSuperview", false, "WasRemovedFromSuperview", State::Disappearing, State::Disappeared, "DidDisappear"},
    {"willWindow", true, "WillMoveToWindow", State::Disappeared, State::Appearing, "WillAppear"},
    {"willWindow", false, "WillBeRemovedFromWindow", State::Appeared, State::Disappearing, "WillDisappear"},
    {"didWindow", true, "DidMoveToWindow", State::Appearing, State::Appeared, "DidAppear"},
    {"didWindow", false, "WasRemovedFromWindow", State::Disappearing, State::Disappeared, "DidDisappear"},
};

// Brings a view into any state and place, and sends it single notifications.
struct KAViewAppearanceRowsTest : KAViewAppearanceTest {
  // The states are passed through by notifications alone, while the view hangs in a window.
  void bringTo(State state) {
    auto stage = std::make_shared<View>();
    window.setContentView(stage);
    stage->addSubview(view);
    view->setViewController(controller.get());
    view->removeFromSuperview();
    ASSERT_EQ(view->viewAppearance(), State::Disappeared);
    if (state != State::Disappeared) view->viewWillMoveToSuperview(stage.get());
    if (state == State::Appeared || state == State::Disappearing) {
      view->setViewController(nullptr);
      stage->addSubview(view);
      view->setViewController(controller.get());
      view->viewDidMoveToSuperview();
    }
    if (state == State::Disappearing) view->viewWillMoveToSuperview(nullptr);
    view->setViewController(nullptr);
    view->removeFromSuperview();
    view->setViewController(controller.get());
    window.setContentView(nullptr);
    ASSERT_EQ(view->viewAppearance(), state);
  }

  void place(const Where& where) {
    view->setViewController(nullptr);
    if (where.inWindow) window.setContentView(content);
    if (where.hasSuperview) content->addSubview(view);
    content->setHidden(where.ancestorHidden);
    view->setHidden(where.ownHidden);
    view->setViewController(controller.get());
    calls.clear();
  }

  void send(const std::string& notification, bool toSomewhere) {
    if (notification == "willSuperview") view->viewWillMoveToSuperview(toSomewhere ? content.get() : nullptr);
    if (notification == "didSuperview") view->viewDidMoveToSuperview();
    if (notification == "willWindow") view->viewWillMoveToWindow(toSomewhere ? &window : nullptr);
    if (notification == "didWindow") view->viewDidMoveToWindow();
  }

  // Where a view is when it gets the notification and everything is in favour.
  static Where favourable(const Row& row) {
    const bool did = std::string_view(row.notification).starts_with("did");
    return {.hasSuperview = did ? row.toSomewhere : true, .inWindow = did ? row.toSomewhere : true};
  }

  void expect(const Row& row, State before, const Where& where, bool moves) {
    SCOPED_TRACE(std::string(row.notification) + (row.toSomewhere ? "" : " nil") + " in state " +
                 std::to_string(static_cast<int>(before)));
    bringTo(before);
    place(where);
    send(row.notification, row.toSomewhere);
    if (moves)
      EXPECT_THAT(calls, ElementsAre(row.first, row.callback));
    else
      EXPECT_THAT(calls, ElementsAre(row.first));
    EXPECT_EQ(view->viewAppearance(), moves ? row.after : before);
  }
};

class KAViewAppearanceRowTest : public KAViewAppearanceRowsTest,
                                public testing::WithParamInterface<std::tuple<int, int>> {};

TEST_P(KAViewAppearanceRowTest, MovesOnlyFromItsState) {
  const Row& row = rows[std::get<0>(GetParam())];
  const auto before = static_cast<State>(std::get<1>(GetParam()));
  expect(row, before, favourable(row), before == row.before);
}

INSTANTIATE_TEST_SUITE_P(Table, KAViewAppearanceRowTest, testing::Combine(testing::Range(0, 8), testing::Range(0, 4)));

TEST_F(KAViewAppearanceRowsTest, WillMoveToASuperviewNeedsAWindowAroundIt) {
  expect(rows[0], State::Disappeared, {.inWindow = false}, false);
}

TEST_F(KAViewAppearanceRowsTest, WillMoveToASuperviewLooksAtTheOwnHiddenFlagOnly) {
  expect(rows[0], State::Disappeared, {.inWindow = true, .ownHidden = true}, false);
}

TEST_F(KAViewAppearanceRowsTest, WillMoveToASuperviewThatIsHiddenStillAppears) {
  expect(rows[0], State::Disappeared, {.inWindow = true, .ancestorHidden = true}, true);
}

TEST_F(KAViewAppearanceRowsTest, DidMoveToASuperviewNeedsAWindow) {
  expect(rows[2], State::Appearing, {.hasSuperview = true}, false);
}

TEST_F(KAViewAppearanceRowsTest, DidMoveToASuperviewLooksAtTheOwnFlag) {
  expect(rows[2], State::Appearing, {.hasSuperview = true, .inWindow = true, .ownHidden = true}, false);
}

TEST_F(KAViewAppearanceRowsTest, DidMoveToASuperviewLooksAtAncestorsToo) {
  expect(rows[2], State::Appearing, {.hasSuperview = true, .inWindow = true, .ancestorHidden = true}, false);
}

TEST_F(KAViewAppearanceRowsTest, WillMoveToAWindowNeedsASuperview) {
  expect(rows[4], State::Disappeared, {.inWindow = true}, false);
}

TEST_F(KAViewAppearanceRowsTest, WillMoveToAWindowLooksAtTheOwnHiddenFlagOnly) {
  expect(rows[4], State::Disappeared, {.hasSuperview = true, .ownHidden = true}, false);
}

TEST_F(KAViewAppearanceRowsTest, WillMoveToAWindowUnderAHiddenAncestorStillAppears) {
  expect(rows[4], State::Disappeared, {.hasSuperview = true, .ancestorHidden = true}, true);
}

TEST_F(KAViewAppearanceRowsTest, DidMoveToAWindowLooksAtAncestorsToo) {
  expect(rows[6], State::Appearing, {.hasSuperview = true, .inWindow = true, .ancestorHidden = true}, false);
}

TEST_F(KAViewAppearanceRowsTest, DidMoveToAWindowLooksAtTheOwnFlag) {
  expect(rows[6], State::Appearing, {.hasSuperview = true, .inWindow = true, .ownHidden = true}, false);
}

struct HideRow {
  bool hides;
  State before;
  State after;
  Calls callbacks;
};

class KAViewAppearanceHideRowTest : public KAViewAppearanceRowsTest,
                                    public testing::WithParamInterface<std::tuple<HideRow, bool>> {};

TEST_P(KAViewAppearanceHideRowTest, MovesOnOnlyInAWindow) {
  const auto& [row, inWindow] = GetParam();
  bringTo(row.before);
  place({.hasSuperview = true, .inWindow = inWindow});
  if (row.hides)
    view->viewDidHide();
  else
    view->viewDidUnhide();
  EXPECT_EQ(calls, inWindow ? row.callbacks : Calls{});
  EXPECT_EQ(view->viewAppearance(), inWindow ? row.after : row.before);
}

INSTANTIATE_TEST_SUITE_P(
    Table, KAViewAppearanceHideRowTest,
    testing::Combine(testing::Values(HideRow{true, State::Disappeared, State::Disappeared, {}},
                                     HideRow{true, State::Appearing, State::Appearing, {}},
                                     HideRow{true, State::Appeared, State::Disappeared, {"WillDisappear", "DidDisappear"}},
                                     HideRow{true, State::Disappearing, State::Disappeared, {"DidDisappear"}},
                                     HideRow{false, State::Disappeared, State::Appeared, {"WillAppear", "DidAppear"}},
                                     HideRow{false, State::Appearing, State::Appeared, {"DidAppear"}},
                                     HideRow{false, State::Appeared, State::Appeared, {}},
                                     HideRow{false, State::Disappearing, State::Disappearing, {}}),
                     testing::Bool()));

TEST_F(KAViewAppearanceTest, WithoutControllerTheCycleStandsStill) {
  window.setContentView(content);
  content->addSubview(view);
  view->setHidden(true);
  view->setHidden(false);
  EXPECT_EQ(view->viewAppearance(), State::Disappeared);
}

TEST_F(KAViewAppearanceTest, HidingAndShowingYieldsTheFourCallbacksInOrder) {
  controller->setView(view);
  window.setContentView(content);
  content->addSubview(view);
  calls.clear();
  view->setHidden(true);
  view->setHidden(false);
  EXPECT_THAT(calls, ElementsAre("WillDisappear", "DidDisappear", "WillAppear", "DidAppear"));
}

TEST_F(KAViewAppearanceTest, ASuperviewOutsideOfAnyWindowBringsNoAppearanceUntilItEntersOne) {
  controller->setView(view);
  content->addSubview(view);
  EXPECT_THAT(calls, ElementsAre("WillMoveToSuperview", "DidMoveToSuperview"));
  calls.clear();
  window.setContentView(content);
  EXPECT_THAT(calls, ElementsAre("WillMoveToWindow", "WillAppear", "DidMoveToWindow", "DidAppear"));
}

TEST_F(KAViewAppearanceTest, EnteringAndLeavingAShownSuperview) {
  controller->setView(view);
  window.setContentView(content);
  content->addSubview(view);
  EXPECT_THAT(calls, ElementsAre("WillMoveToSuperview", "WillAppear", "WillMoveToWindow", "DidMoveToWindow", "DidAppear",
                                 "DidMoveToSuperview"));
  calls.clear();
  view->removeFromSuperview();
  EXPECT_THAT(calls, ElementsAre("WillBeRemovedFromSuperview", "WillDisappear", "WillBeRemovedFromWindow",
                                 "WasRemovedFromWindow", "DidDisappear", "WasRemovedFromSuperview"));
}

TEST_F(KAViewAppearanceTest, CallbacksNameWhereTheViewWillMove) {
  controller->setView(view);
  view->viewWillMoveToSuperview(content.get());
  EXPECT_EQ(controller->movedTo, content.get());
  view->viewWillMoveToWindow(&window);
  EXPECT_EQ(controller->movedTo, &window);
}

TEST_F(KAViewAppearanceTest, ANotificationReachesTheControllerItHasThen) {
  window.setContentView(content);
  content->addSubview(view);
  view->setViewController(controller.get());
  view->removeFromSuperview();  // never appeared, so it does not disappear
  EXPECT_THAT(calls, ElementsAre("WillBeRemovedFromSuperview", "WillBeRemovedFromWindow", "WasRemovedFromWindow",
                                 "WasRemovedFromSuperview"));
}

}  // namespace
