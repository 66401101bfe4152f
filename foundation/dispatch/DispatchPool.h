#pragma once
// The threads behind the queues. Any thread.
#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>

namespace foundation::Dispatch {

class Pool {
 public:
  // Never destroyed.
  static Pool& shared();

  // Runs `job` on a thread of the pool. Every job gets a thread at once: jobs may wait for each other.
  void submit(std::function<void()> job);

 private:
  Pool();
  void work();
  void waitUntilNothingRuns(std::unique_lock<std::mutex>& lock);

  std::mutex _mutex;
  std::condition_variable _hasJob;
  std::condition_variable _hasFinished;
  std::deque<std::function<void()>> _jobs;
  std::size_t _idle = 0;
  std::size_t _running = 0;
};

}  // namespace foundation::Dispatch
