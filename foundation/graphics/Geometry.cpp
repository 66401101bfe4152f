#include "foundation/graphics/Geometry.h"

#include <charconv>
#include <cmath>

namespace foundation {
namespace {

class RectScanner {
 public:
  explicit RectScanner(std::string_view text) : _rest(text) {}

  bool character(char wanted) {
    skipBlanks();
    if (_rest.empty() || _rest.front() != wanted) return false;
    _rest.remove_prefix(1);
    return true;
  }

  bool number(double& value) {
    skipBlanks();
    if (!_rest.empty() && _rest.front() == '+') _rest.remove_prefix(1);
    const auto [end, error] = std::from_chars(_rest.data(), _rest.data() + _rest.size(), value);
    if (error != std::errc{} || !std::isfinite(value)) return false;
    _rest.remove_prefix(static_cast<size_t>(end - _rest.data()));
    return true;
  }

  bool pair(double& first, double& second) {
    return character('{') && number(first) && character(',') && number(second) && character('}');
  }

 private:
  void skipBlanks() {
    const auto start = _rest.find_first_not_of(" \t\r\n");
    _rest.remove_prefix(start == std::string_view::npos ? _rest.size() : start);
  }

  std::string_view _rest;
};

}  // namespace

Rect rectFromString(std::string_view text) {
  RectScanner scanner(text);
  Rect rect;
  const bool complete = scanner.character('{') && scanner.pair(rect.origin.x, rect.origin.y) && scanner.character(',') &&
                        scanner.pair(rect.size.width, rect.size.height) && scanner.character('}');
  return complete ? rect : Rect{};
}

}  // namespace foundation
