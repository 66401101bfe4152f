#pragma once
// Brings completed log files to the medium, which may take long, while nobody waits.
//
// That happens a moment after a file was completed. When files are rolled in quick succession most of them are pruned by
// then, and the medium is spared those.
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "foundation/dispatch/Dispatch.h"
#include "platform/LoggingHost.h"

class LogFileFinisher {
 public:
  LogFileFinisher();
  // Returns when all files are on the medium.
  ~LogFileFinisher();
  LogFileFinisher(const LogFileFinisher&) = delete;
  LogFileFinisher& operator=(const LogFileFinisher&) = delete;

  // Called once the file is on the medium, on a queue of the finisher's own, or, with false, when the file was deleted
  // before that. Must not wait for the logger's queue. Its exceptions go to the system log. When there is no memory to
  // wait with, the caller of `finish` does it all.
  using Finished = std::function<void(bool isThere)>;

  // The file at `path` is complete and no longer counts as in use. nullptr does nothing. One thread at a time.
  void finish(std::unique_ptr<platform::LogFile> file, const std::string& path, Finished finished = nullptr);
  // Whether the file at `path` is complete but not yet on the medium. Any thread.
  [[nodiscard]] bool isFinishing(const std::string& path);
  // Returns when all files are on the medium.
  void finishNow();
  // In a forked child: the files are the parent's to finish.
  void didFork();

 private:
  struct Entry {
    std::shared_ptr<platform::LogFile> file;
    std::string path;
    Finished finished;
  };

  void note(const std::string& path);
  void add(const Entry& entry);
  void setTimer();
  void finishPruned();
  void finishAll();
  void finishOne(const Entry& entry);

  std::mutex _mutex;
  std::vector<std::string> _paths;  // of the files that are finishing

  // The rest is touched on the queue only.
  const std::shared_ptr<foundation::Dispatch::SerialQueue> _queue;
  std::vector<Entry> _entries;
  std::shared_ptr<foundation::Dispatch::TimerSource> _timer;
};
