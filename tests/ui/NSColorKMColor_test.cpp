#include "ui/NSColor+KMColor.h"

#include <gtest/gtest.h>

#include <bit>
#include <cstdint>
#include <fstream>
#include <map>
#include <set>
#include <sstream>
#include <string>
#include <vector>

using foundation::Color;

namespace {

using Make = Color (*)();

const std::map<std::string, Make>& palette() {
  static const std::map<std::string, Make> colors{
#define GREY(category, name, ...) {#name, NSColor::category::name},
#define RGB GREY
#define SAME GREY
#include "ui/Palette.inc"
#undef GREY
#undef RGB
#undef SAME
  };
  return colors;
}

// The designers' list: "name red green blue alpha" or "name = other".
struct Listed {
  std::string name;
  std::string other;
  Color color;
};

std::vector<Listed> designersList() {
  std::vector<Listed> list;
  std::ifstream file(KELTO_SOURCE_DIR "/tests/ui/palette.txt");
  for (std::string line; std::getline(file, line);) {
    Listed row;
    std::istringstream fields(line);
    fields >> row.name;
    if (line.find('=') != std::string::npos)
      fields >> row.other >> row.other;
    else
      fields >> row.color.red >> row.color.green >> row.color.blue >> row.color.alpha;
    EXPECT_FALSE(fields.fail()) << line;
    list.push_back(row);
  }
  return list;
}

Color listedColor(const std::vector<Listed>& list, const std::string& name) {
  for (const auto& row : list)
    if (row.name == name) return row.other.empty() ? row.color : listedColor(list, row.other);
  ADD_FAILURE() << name << " is not listed";
  return {};
}

std::string bits(const Color& color) {
  std::ostringstream text;
  text << std::hex;
  for (const double component : {color.red, color.green, color.blue, color.alpha})
    text << std::bit_cast<std::uint64_t>(component) << ' ';
  return text.str();
}

}  // namespace

TEST(Palette, HasEveryColorOfTheDesignersListAndNoOther) {
  std::set<std::string> listed;
  for (const auto& row : designersList()) listed.insert(row.name);
  std::set<std::string> made{"blueColor", "whiteColor"};
  for (const auto& [name, make] : palette()) made.insert(name);
  EXPECT_EQ(made, listed);
}

TEST(Palette, EveryColorEqualsTheDesignersListBitForBit) {
  const auto list = designersList();
  ASSERT_GT(list.size(), 100U);
  for (const auto& [name, make] : palette()) EXPECT_EQ(bits(make()), bits(listedColor(list, name))) << name;
}

TEST(Palette, ComponentsAreSinglePrecisionQuotients) {
  EXPECT_EQ(NSColor::embeddedWindowBackgroundStartColor().red, 0.9137254953384399);
  EXPECT_EQ(NSColor::busyBackgroundColor().alpha, 0.949999988079071);
}

TEST(Palette, AGreyHasThreeEqualComponents) {
  EXPECT_EQ(NSColor::colorWithStandardWhite_alpha(0.5, 0.25), (Color{0.5, 0.5, 0.5, 0.25}));
}

TEST(Palette, AColorOfThreeComponentsIsOpaque) {
  EXPECT_EQ(NSColor::colorWithStandardRed_green_blue(0.1, 0.2, 0.3), (Color{0.1, 0.2, 0.3, 1}));
}

TEST(Palette, FactoriesNeitherScaleNorClampNorRound) {
  EXPECT_EQ(NSColor::colorWithStandardRed_green_blue_alpha(-1, 2, 255, 0.1), (Color{-1, 2, 255, 0.1}));
}

TEST(Palette, TheWizardsLowerGradientColorEqualsItsFooter) {
  EXPECT_EQ(NSColor::embeddedWindowBackgroundEndColor(), NSColor::embeddedWindowFooterBackgroundColor());
  EXPECT_NE(palette().at("embeddedWindowBackgroundEndColor"), palette().at("embeddedWindowFooterBackgroundColor"));
}

TEST(Palette, DisabledEtchedDarkIsOpaqueBlackAndEtchedLightOpaqueWhite) {
  EXPECT_EQ(NSColor::etchedDarkDisabledColor(), NSColor::blackTextColor());
  EXPECT_EQ(NSColor::etchedDarkDisabledColor(), (Color{0, 0, 0, 1}));
  EXPECT_EQ(NSColor::etchedLightColor(), (Color{1, 1, 1, 1}));
}

TEST(Palette, TheThreeQueueTextColorsAreDefinedApartWithOneValue) {
  EXPECT_EQ(NSColor::queueNotInUserHeaderTextColor(), NSColor::queueMessageTextColor());
  EXPECT_EQ(NSColor::queueMessageTextColor(), NSColor::queueTrackCountTextColor());
  EXPECT_EQ((std::set<Make>{NSColor::queueNotInUserHeaderTextColor, NSColor::queueMessageTextColor,
                            NSColor::queueTrackCountTextColor})
                .size(),
            3U);
}

TEST(Palette, AFollowingColorIsTheOneItFollows) {
  EXPECT_EQ(NSColor::infoViewMetadataTextColor(), NSColor::generalTitleTextColor());
  EXPECT_EQ(NSColor::generalLinkTextColor(), Color::blueColor());
  EXPECT_EQ(NSColor::sleepTimerSelectedButtonTextColor(), Color::whiteColor());
}
