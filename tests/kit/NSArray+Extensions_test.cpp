#include "kit/NSArray+Extensions.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <string_view>

using NSArray::Extensions::map;
using NSArray::Extensions::select;

TEST(MapArray, GivesTheResultForEachElementInOrder) {
  const std::vector<int> numbers{3, 1, 2};
  EXPECT_EQ(map(numbers, [](int n, std::size_t index, bool&) { return std::to_string(n) + "@" + std::to_string(index); }),
            (std::vector<std::string>{"3@0", "1@1", "2@2"}));
}

TEST(MapArray, OfAnEmptyArrayIsEmptyAndNeverCalls) {
  int calls = 0;
  auto result = map(std::vector<int>{}, [&](int n, std::size_t, bool&) { return calls += n; });
  EXPECT_TRUE(result.empty());
  EXPECT_EQ(calls, 0);
  result.push_back(1);
  EXPECT_EQ(result.size(), 1U);
}

TEST(MapArray, StopsAtTheFlagWithTheResultsSoFar) {
  const std::vector<int> numbers{1, 2, 3, 4};
  const auto result = map(numbers, [](int n, std::size_t index, bool& stop) {
    stop = index == 1;
    return n * 10;
  });
  EXPECT_EQ(result, (std::vector<int>{10, 20}));
  EXPECT_GE(result.capacity(), numbers.size());
}

TEST(MapArray, ACallbackThatReturnsNoObjectIsRefused) {
  const std::vector<int> numbers{1};
  EXPECT_THROW(map(numbers, [](int, std::size_t, bool&) { return std::shared_ptr<int>(); }), std::invalid_argument);
}

TEST(MapArray, AnEmptyViewOfTextIsAnObject) {
  const std::vector<int> numbers{1};
  EXPECT_EQ(map(numbers, [](int, std::size_t, bool&) { return std::string_view(); }), std::vector<std::string_view>(1));
}

TEST(SelectArray, GivesTheAcceptedElementsInOrder) {
  const std::vector<int> numbers{5, 6, 7, 8};
  EXPECT_EQ(select(numbers, [](int n, std::size_t, bool&) { return n % 2 == 0; }), (std::vector<int>{6, 8}));
  EXPECT_EQ(select(numbers, [](int, std::size_t index, bool&) { return index != 0; }), (std::vector<int>{6, 7, 8}));
}

TEST(SelectArray, WhoseCallbackAcceptsNothingIsEmpty) {
  EXPECT_TRUE(select(std::vector<int>{1, 2}, [](int, std::size_t, bool&) { return false; }).empty());
}

TEST(SelectArray, StopsAtTheFlag) {
  const std::vector<int> numbers{1, 2, 3, 4};
  int calls = 0;
  const auto result = select(numbers, [&](int n, std::size_t, bool& stop) {
    ++calls;
    stop = n == 3;
    return true;
  });
  EXPECT_EQ(result, (std::vector<int>{1, 2, 3}));
  EXPECT_EQ(calls, 3);
}
