#pragma once
// How a thread waits for work that others bring without waking anybody: a few moments at first, then in naps that grow.
#include <chrono>

class Nap {
 public:
  using Duration = std::chrono::steady_clock::duration;
  struct Habit {
    int yields;         // before the first nap
    Duration shortest;  // the first nap
    Duration longest;
    Duration patience;  // of naps without work, after which it is enough
  };
  // Of somebody whom others wait for.
  static const Habit patient;
  // Of the watch, which lets a little work come together.
  static const Habit watchful;

  enum Verdict { goOn, enough };

  explicit Nap(const Habit& habit) : _habit(habit) { startOver(); }
  // There was work.
  void startOver();
  Verdict take();
  // Ten microseconds without a nap, which would last many times as long.
  static void breathe();

 private:
  const Habit& _habit;
  int _yields = 0;
  Duration _next{};
  Duration _slept{};
};
