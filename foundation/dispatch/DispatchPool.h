#pragma once
// The threads behind the queues. Any thread.
#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>

#include "foundation/dispatch/Fork.h"

namespace foundation::Dispatch {

class Pool {
 public:
  // Never destroyed.
  static Pool& shared();
  Pool();
  // Before its first job.
  ~Pool();
  Pool(const Pool&) = delete;
  Pool& operator=(const Pool&) = delete;

  // Runs `job` on a thread of the pool. Every job gets a thread at once: jobs may wait for each other. Where there is no
  // thread to be had, a job waits for one of those that there are; without any the caller runs it.
  void submit(std::function<void()> job);
  // Waits until `isDone`, which must not submit anything. Meanwhile this thread runs the jobs that find no other one: it
  // may be waiting for one of them.
  void waitUntil(const std::function<bool()>& isDone);
  // After `isDone` of some thread has become true.
  void tellWaiting();

 private:
  bool startThread();
  bool run(std::unique_lock<std::mutex>& lock);
  void work();
  void waitUntilNothingRuns(std::unique_lock<std::mutex>& lock);

  std::mutex _mutex;
  std::condition_variable _hasJob;
  std::condition_variable _hasFinished;
  std::condition_variable _isTold;  // the threads in `waitUntil`
  std::deque<std::function<void()>> _jobs;
  std::size_t _idle = 0;
  std::size_t _running = 0;
  std::size_t _threads = 0;
  std::size_t _unserved = 0;  // of the jobs: those that found no thread
  Fork::HandlersID _handlers = 0;
};

}  // namespace foundation::Dispatch
