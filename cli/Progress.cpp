#include "cli/Progress.h"

#include <array>
#include <cstdio>
#include <string_view>

namespace cli {
namespace {

constexpr std::chrono::milliseconds frame{125};
constexpr std::array<std::string_view, 4> wheel{"|", "/", "-", "\\"};
// To the head of the line, and the rest of the line away.
constexpr const char* freshLine = "\r\033[K";

void print(const std::string& text) {
  std::fputs(text.c_str(), stderr);
  std::fflush(stderr);
}

}  // namespace

void Progress::tell(const std::string& step) {
  clear();
  if (_kind != Kind::none) print(step + "\n");
}

void Progress::work(const std::string& step) {
  if (_kind != Kind::drawn) return tell(step);
  clear();
  _step = step;
  _begin = std::chrono::steady_clock::now();
  _isOver = false;
  _painter = std::thread([this] { draw(); });
}

void Progress::clear() {
  if (!_painter.joinable()) return;
  {
    const std::lock_guard lock(_mutex);
    _isOver = true;
  }
  _over.notify_all();
  _painter.join();
  print(freshLine);
}

void Progress::draw() {
  std::unique_lock lock(_mutex);
  for (std::size_t turn = 0; !_isOver; ++turn) {
    const auto passed = std::chrono::duration_cast<std::chrono::seconds>(std::chrono::steady_clock::now() - _begin);
    print(freshLine + std::string(wheel[turn % wheel.size()]) + " " + _step + " (" + std::to_string(passed.count()) +
          " s)");
    _over.wait_for(lock, frame, [this] { return _isOver; });
  }
}

}  // namespace cli
