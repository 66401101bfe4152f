#include "foundation/dispatch/DispatchPool.h"

#include <algorithm>
#include <chrono>
#include <exception>
#include <memory>

#include "foundation/dispatch/Threads.h"
#include "foundation/runtime/Lasting.h"

namespace foundation::Dispatch {
namespace {

// A thread without a job for this long ends.
constexpr std::chrono::seconds patience{2};
// A fork waits this long for jobs to finish: a child has no use for half a job, and cannot wait for a stuck one.
constexpr std::chrono::milliseconds forkPatience{200};

}  // namespace

Pool& Pool::shared() {
  static constinit Lasting<Pool> pool;
  return pool.get([] { return std::make_unique<Pool>(); });
}

Pool::Pool() {
  _handlers = Fork::addHandlers({.stage = Fork::Stage::threads,
                                 .prepare =
                                     [this] {
                                       std::unique_lock lock(_mutex);
                                       waitUntilNothingRuns(lock);
                                       lock.release();
                                     },
                                 .parent = [this] { _mutex.unlock(); },
                                 .child =
                                     [this] {
                                       // The parent runs what was submitted there, and what that holds must not end here:
                                       // it may come back with something to submit. The threads may have been waiting on
                                       // the others.
                                       std::construct_at(&_jobs);
                                       _idle = _running = _threads = _unserved = 0;
                                       std::construct_at(&_hasJob);
                                       std::construct_at(&_hasFinished);
                                       std::construct_at(&_isTold);
                                       _mutex.unlock();
                                     }});
}

Pool::~Pool() { Fork::removeHandlers(_handlers); }

void Pool::waitUntilNothingRuns(std::unique_lock<std::mutex>& lock) {
  _hasFinished.wait_for(lock, forkPatience, [this] { return _running == 0; });
}

void Pool::submit(std::function<void()> job) {
  std::unique_lock lock(_mutex);
  _jobs.push_back(std::move(job));
  if (_idle >= _jobs.size()) {
    _hasJob.notify_one();
    return;
  }
  if (startThread()) return;
  if (_threads > 0) {
    ++_unserved;
    _isTold.notify_all();
    return;
  }
  job = std::move(_jobs.back());
  _jobs.pop_back();
  lock.unlock();
  job();
}

bool Pool::startThread() {
  try {
    Threads::start([this] { work(); }).detach();
  } catch (const std::exception&) {
    return false;
  }
  ++_threads;
  return true;
}

void Pool::work() {
  std::unique_lock lock(_mutex);
  for (;;) {
    ++_idle;
    const bool hasJob = _hasJob.wait_for(lock, patience, [this] { return !_jobs.empty(); });
    --_idle;
    if (!hasJob) {
      --_threads;
      return;
    }
    const bool wasCounted = run(lock);
    if (!wasCounted) return;
  }
}

void Pool::waitUntil(const std::function<bool()>& isDone) {
  std::unique_lock lock(_mutex);
  while (!isDone()) {
    if (_unserved > 0)
      run(lock);
    else
      _isTold.wait(lock);
  }
}

void Pool::tellWaiting() {
  {
    // Either a thread has yet to look, or it waits already.
    const std::lock_guard lock(_mutex);
  }
  _isTold.notify_all();
}

// The first of the jobs. False in a child that it has forked, where neither it nor its thread is counted.
bool Pool::run(std::unique_lock<std::mutex>& lock) {
  auto job = std::move(_jobs.front());
  _jobs.pop_front();
  _unserved = std::min(_unserved, _jobs.size());
  ++_running;
  lock.unlock();
  job();
  job = nullptr;
  lock.lock();
  if (_running == 0) return false;
  if (--_running == 0) _hasFinished.notify_all();
  return true;
}

}  // namespace foundation::Dispatch
