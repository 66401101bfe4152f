#pragma once
// Lists through callbacks of (element, index, stop flag). Pure; any thread. A callback that sets the flag ends the walk.
#include <cstddef>
#include <ranges>
#include <stdexcept>
#include <type_traits>
#include <utility>
#include <vector>

namespace NSArray::Extensions {

// The callback's result for each element, in order, up to and with the element at which it stopped. Throws
// std::invalid_argument if the callback returns a null pointer.
template <std::ranges::input_range List, class Callback>
auto map(const List& list, Callback&& callback) {
  using Result = std::invoke_result_t<Callback&, std::ranges::range_reference_t<const List>, std::size_t, bool&>;
  static_assert(!std::is_void_v<Result>, "the callback must return an object");
  std::vector<std::remove_cvref_t<Result>> results;
  if constexpr (std::ranges::sized_range<const List>) results.reserve(std::ranges::size(list));
  bool stop = false;
  std::size_t index = 0;
  for (const auto& element : list) {
    results.push_back(callback(element, index++, stop));
    if constexpr (requires {
                    results.back() == nullptr;
                    static_cast<bool>(results.back());
                  })
      if (results.back() == nullptr) throw std::invalid_argument("map: the callback returned no object");
    if (stop) break;
  }
  return results;
}

// The elements for which the callback returned true, in order, up to and with the one at which it stopped.
template <std::ranges::input_range List, class Callback>
auto select(const List& list, Callback&& callback) {
  std::vector<std::ranges::range_value_t<List>> selected;
  bool stop = false;
  std::size_t index = 0;
  for (const auto& element : list) {
    if (callback(element, index++, stop)) selected.push_back(element);
    if (stop) break;
  }
  return selected;
}

}  // namespace NSArray::Extensions
