#include "foundation/runtime/ProcessScope.h"

#include <gtest/gtest.h>

#include <string>

using foundation::ProcessScope;

namespace {

struct Tracked {
  Tracked(std::string name, std::vector<std::string>& destroyed) : name(std::move(name)), destroyed(destroyed) {}
  ~Tracked() { destroyed.push_back(name); }
  std::string name;
  std::vector<std::string>& destroyed;
};
struct First : Tracked {
  using Tracked::Tracked;
};
struct Second : Tracked {
  using Tracked::Tracked;
};

}  // namespace

TEST(ProcessScope, MakesAnObjectOnce) {
  ProcessScope scope;
  int made = 0;
  const auto make = [&] { return std::make_shared<int>(++made); };
  EXPECT_EQ(scope.once<int>(make), scope.once<int>(make));
  EXPECT_EQ(made, 1);
}

TEST(ProcessScope, AMakerThatGivesNothingIsNotAskedAgain) {
  ProcessScope scope;
  int asked = 0;
  const auto make = [&] {
    ++asked;
    return std::shared_ptr<int>();
  };
  EXPECT_EQ(scope.once<int>(make), nullptr);
  EXPECT_EQ(scope.once<int>(make), nullptr);
  EXPECT_EQ(asked, 1);
}

TEST(ProcessScope, AMakerMayAskForAnotherType) {
  ProcessScope scope;
  const auto* text = scope.once<std::string>([&] {
    return std::make_shared<std::string>(std::to_string(*scope.once<int>([] { return std::make_shared<int>(5); })));
  });
  EXPECT_EQ(*text, "5");
}

TEST(ProcessScope, DestroysWhatWasMadeLastFirst) {
  std::vector<std::string> destroyed;
  {
    ProcessScope scope;
    scope.once<First>([&] { return std::make_shared<First>("first", destroyed); });
    scope.once<Second>([&] { return std::make_shared<Second>("second", destroyed); });
  }
  EXPECT_EQ(destroyed, (std::vector<std::string>{"second", "first"}));
}
