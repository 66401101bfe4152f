#include "protocol/ParentWindow.h"

#include <gtest/gtest.h>

using protocol::ParentWindow;
using protocol::parentWindowFromText;

namespace {

TEST(ParentWindow, OfX11HasItsNumberInHexadecimal) {
  EXPECT_EQ(parentWindowFromText("x11:1a0000B"), (ParentWindow{.waylandHandle = "", .x11Number = 0x1A0000B}));
  EXPECT_EQ(parentWindowFromText("x11:ffffffff"), (ParentWindow{.waylandHandle = "", .x11Number = 0xFFFFFFFF}));
}

TEST(ParentWindow, OfWaylandHasTheHandleOfTheCompositor) {
  EXPECT_EQ(parentWindowFromText("wayland:4f1b-"), (ParentWindow{.waylandHandle = "4f1b-"}));
  EXPECT_EQ(parentWindowFromText("wayland:a:b"), (ParentWindow{.waylandHandle = "a:b"}));
  EXPECT_TRUE(parentWindowFromText("wayland:" + std::string(255, 'h')));
}

class NoParentWindow : public testing::TestWithParam<std::string> {};

TEST_P(NoParentWindow, IsReadFromThisText) { EXPECT_EQ(parentWindowFromText(GetParam()), std::nullopt); }

INSTANTIATE_TEST_SUITE_P(Texts, NoParentWindow,
                         testing::Values("", ":", "x11", "x11:", "x11:0", "x11:-1", "x11:0x1a", "x11:1a ", "x11:1ag",
                                         "x11:100000000", "wayland", "wayland:", "wayland:a b", "wayland:a\n",
                                         "wayland:\x7f", "wayland:\xC3\xA4", "wayland:" + std::string(256, 'h'),
                                         std::string("wayland:a\0b", 11), "Wayland:a", "mir:a"));

}  // namespace
