#pragma once
// The steps of a run as they are shown: on a terminal one line that is drawn anew while a step lasts, else a line a step.
// Standard error, so that standard output holds results only. Any thread.
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <string>
#include <thread>

namespace cli {

class Progress {
 public:
  enum class Kind { none, lines, drawn };

  explicit Progress(Kind kind) : _kind(kind) {}
  ~Progress() { clear(); }
  Progress(const Progress&) = delete;
  Progress& operator=(const Progress&) = delete;

  // A step that others may write to the terminal in, such as a question.
  void tell(const std::string& step);
  // A step that takes a while.
  void work(const std::string& step);
  // Takes away what is drawn; the step is over.
  void clear();

 private:
  void draw();

  const Kind _kind;
  std::mutex _mutex;
  std::condition_variable _over;
  bool _isOver = false;
  std::string _step;
  std::chrono::steady_clock::time_point _begin;
  std::thread _painter;
};

}  // namespace cli
