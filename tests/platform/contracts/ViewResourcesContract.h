#pragma once
// The contract of ViewResources and Image.
//
// A World has: `resources()`, which hold the image "dot" of 10 by 6 points; the nib "Settings", whose view of 300 by 200
// points has one subview, the outlet "face" of its owner; and the nib "Broken", which cannot be read. `environment()` of
// the views.
#include <gtest/gtest.h>

#include <map>
#include <string>

#include "foundation/views/ViewController.h"
#include "foundation/views/ViewResources.h"

namespace tests::contracts {

template <class World>
class ViewResourcesContract : public testing::Test {
 protected:
  struct Owner final : foundation::ViewController {
    using ViewController::ViewController;
    void connectOutlet(std::string_view name, const std::shared_ptr<foundation::InterfaceElement>& element) override {
      outlets[std::string(name)] = element.get();
    }
    std::map<std::string, foundation::InterfaceElement*> outlets;
  };
  std::shared_ptr<foundation::View> load(std::string_view name) { return world.resources().loadNib(name, owner, cause); }

  World world;
  Owner owner{world.environment(), "Settings"};
  std::string cause;
};

TYPED_TEST_SUITE_P(ViewResourcesContract);

TYPED_TEST_P(ViewResourcesContract, AnImageIsFoundByItsNameAndHasItsSizeInPoints) {
  const auto image = this->world.resources().imageNamed("dot");
  ASSERT_NE(image, nullptr);
  EXPECT_EQ(image->size(), (foundation::Size{10, 6}));
  EXPECT_EQ(this->world.resources().imageNamed("dot"), image);
}

TYPED_TEST_P(ViewResourcesContract, AMissingImageIsNotFound) {
  for (const char* name : {"missing", "", "Settings"}) EXPECT_EQ(this->world.resources().imageNamed(name), nullptr) << name;
}

TYPED_TEST_P(ViewResourcesContract, ANibGivesItsViewWithWhatIsInIt) {
  const auto view = this->load("Settings");
  ASSERT_NE(view, nullptr);
  EXPECT_EQ(view->frame().size, (foundation::Size{300, 200}));
  EXPECT_EQ(view->superview(), nullptr);
  EXPECT_EQ(view->subviews().size(), 1U);
  EXPECT_EQ(this->cause, "");
}

TYPED_TEST_P(ViewResourcesContract, TheOwnersOutletsAreConnected) {
  const auto view = this->load("Settings");
  ASSERT_NE(view, nullptr);
  EXPECT_EQ(this->owner.outlets["face"], view->subviews().front().get());
}

TYPED_TEST_P(ViewResourcesContract, EachLoadGivesViewsOfItsOwn) {
  const auto one = this->load("Settings");
  const auto other = this->load("Settings");
  EXPECT_NE(one, other);
  EXPECT_NE(one->subviews().front(), other->subviews().front());
}

TYPED_TEST_P(ViewResourcesContract, AMissingOrUnreadableNibHasACause) {
  for (const char* name : {"Missing", "", "dot", "Broken"}) {
    this->cause.clear();
    EXPECT_EQ(this->load(name), nullptr) << name;
    EXPECT_NE(this->cause, "") << name;
  }
}

REGISTER_TYPED_TEST_SUITE_P(ViewResourcesContract, AnImageIsFoundByItsNameAndHasItsSizeInPoints, AMissingImageIsNotFound,
                            ANibGivesItsViewWithWhatIsInIt, TheOwnersOutletsAreConnected, EachLoadGivesViewsOfItsOwn,
                            AMissingOrUnreadableNibHasACause);

}  // namespace tests::contracts
