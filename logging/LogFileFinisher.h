#pragma once
// The last rites of log files: each is brought to the medium, which may take long, without anybody waiting for it.
//
// That happens a moment after a file was finished. Of files that are rolled in quick succession most are pruned by then,
// and the medium is spared them.
#include <memory>
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

  // From now on the file counts as in use no more. nullptr does nothing. One thread at a time.
  void finish(std::unique_ptr<platform::LogFile> file);
  // In a forked child: the files are the parent's to finish.
  void didFork();

 private:
  void add(std::shared_ptr<platform::LogFile> file);
  void synchronizeAll();

  // The rest is touched on the queue only.
  const std::shared_ptr<foundation::Dispatch::SerialQueue> _queue;
  std::vector<std::shared_ptr<platform::LogFile>> _files;
  std::shared_ptr<foundation::Dispatch::TimerSource> _timer;
};
