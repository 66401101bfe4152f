#include "foundation/dispatch/DispatchPool.h"

#include <chrono>
#include <thread>

#include "foundation/dispatch/Fork.h"

namespace foundation::Dispatch {
namespace {

// A thread without a job for this long ends.
constexpr std::chrono::seconds patience{2};
// A fork waits this long for jobs to finish: a child has no use for half a job, and cannot wait for a stuck one.
constexpr std::chrono::milliseconds forkPatience{200};

}  // namespace

Pool& Pool::shared() {
  static auto* pool = new Pool;
  return *pool;
}

Pool::Pool() {
  Fork::addHandlers({.stage = Fork::Stage::threads,
                     .prepare =
                         [this] {
                           std::unique_lock lock(_mutex);
                           waitUntilNothingRuns(lock);
                           lock.release();
                         },
                     .parent = [this] { _mutex.unlock(); },
                     .child =
                         [this] {
                           // The parent runs what was submitted there. Its threads may have been waiting on these.
                           _jobs.clear();
                           _idle = _running = 0;
                           std::construct_at(&_hasJob);
                           std::construct_at(&_hasFinished);
                           _mutex.unlock();
                         }});
}

void Pool::waitUntilNothingRuns(std::unique_lock<std::mutex>& lock) {
  _hasFinished.wait_for(lock, forkPatience, [this] { return _running == 0; });
}

void Pool::submit(std::function<void()> job) {
  const std::lock_guard lock(_mutex);
  _jobs.push_back(std::move(job));
  if (_idle >= _jobs.size())
    _hasJob.notify_one();
  else
    std::thread([this] { work(); }).detach();
}

void Pool::work() {
  std::unique_lock lock(_mutex);
  for (;;) {
    ++_idle;
    const bool hasJob = _hasJob.wait_for(lock, patience, [this] { return !_jobs.empty(); });
    --_idle;
    if (!hasJob) return;
    auto job = std::move(_jobs.front());
    _jobs.pop_front();
    ++_running;
    lock.unlock();
    const Fork::Witness witness;
    job();
    job = nullptr;
    if (witness.isInChild()) return;
    lock.lock();
    if (--_running == 0) _hasFinished.notify_all();
  }
}

}  // namespace foundation::Dispatch
