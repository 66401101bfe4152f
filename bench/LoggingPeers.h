#pragma once
// The loggers that bench/logging.cpp measures: the framework, the usual libraries as far as they are there, and bare
// writes.
#include <fcntl.h>
#include <stdlib.h>
#include <unistd.h>

#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#ifdef KELTO_HAS_SPDLOG
#include <spdlog/async.h>
#include <spdlog/sinks/basic_file_sink.h>
#include <spdlog/sinks/rotating_file_sink.h>
#include <spdlog/spdlog.h>
#endif
#ifdef KELTO_HAS_GLOG
#include <glog/logging.h>
#endif

#include "bench/Report.h"
#include "logging/DDFileLogger.h"
#include "logging/DDLog.h"
#include "platform/fake/FakePlatform.h"
#include "platform/linux/LoggingHost.h"

namespace bench {

namespace fs = std::filesystem;

inline constexpr const char* sample = "a quarter of the world";

// Where all files of the run are.
inline const std::string& folder() {
  static const std::string path = [] {
    std::string pattern = (fs::temp_directory_path() / "kelto-bench-XXXXXX").string();
    return std::string(::mkdtemp(pattern.data()));
  }();
  return path;
}

inline std::string freshFolder(const std::string& name) {
  const std::string path = folder() + "/" + name;
  fs::remove_all(path);
  fs::create_directories(path);
  return path;
}

// One logger under test: made, given lines by one or more threads, and gone with everything on file.
class Peer {
 public:
  virtual ~Peer() = default;
  virtual void log(int number) = 0;
  // Returns when every line is on file; nothing is logged after that.
  virtual void finish() = 0;
};

// The framework on the real file system and clock.
class Ours final : public Peer {
 public:
  explicit Ours(const std::string& path, bool isSynchronous = false, int loggers = 1, std::size_t size = SIZE_MAX,
                std::size_t kept = 7)
      : _isSynchronous(isSynchronous) {
    _fake.clock.stepAside();
    for (int i = 0; i < loggers; ++i) {
      auto logger = std::make_shared<DDFileLogger>(
          _fake.platform, std::make_shared<DDLogFileManagerDefault>(_fake.platform, path + "/" + std::to_string(i)));
      logger->setMaximumFileSize(size);
      logger->logFileManager()->setMaximumNumberOfLogFiles(kept);
      DDLog::addLogger(logger);
    }
    DDLog::flushLog();
  }
  ~Ours() override = default;
  Ours(const Ours&) = delete;
  Ours& operator=(const Ours&) = delete;

  void log(int number) override {
    DDLog::log_level_flag_context_file_function_line_format(!_isSynchronous, 3, DDLogFlagWarning, 0, __FILE__, __func__,
                                                            __LINE__, "record number %d of %s, as long as most are", number,
                                                            sample);
  }
  void finish() override { DDLog::flushLog(); }

 private:
  platform::Linux::LoggingHost _host;
  platform::fake::FakePlatform _fake{&_host.host};
  const bool _isSynchronous;
};

#ifdef KELTO_HAS_SPDLOG
class Spdlog final : public Peer {
 public:
  explicit Spdlog(const std::string& path, bool isSynchronous = false, int sinks = 1, std::size_t size = 0,
                  std::size_t kept = 7) {
    std::vector<spdlog::sink_ptr> list;
    for (int i = 0; i < sinks; ++i) {
      const std::string file = path + "/" + std::to_string(i) + ".txt";
      if (size > 0)
        list.push_back(std::make_shared<spdlog::sinks::rotating_file_sink_mt>(file, size, kept));
      else
        list.push_back(std::make_shared<spdlog::sinks::basic_file_sink_mt>(file));
    }
    if (isSynchronous) {
      _logger = std::make_shared<spdlog::logger>("bench", list.begin(), list.end());
      _logger->flush_on(spdlog::level::trace);
    } else {
      _pool = std::make_shared<spdlog::details::thread_pool>(1000, 1);
      _logger = std::make_shared<spdlog::async_logger>("bench", list.begin(), list.end(), _pool,
                                                       spdlog::async_overflow_policy::block);
    }
    _logger->set_pattern("%Y/%m/%d %H:%M:%S:%e  %v");
  }
  ~Spdlog() override = default;
  Spdlog(const Spdlog&) = delete;
  Spdlog& operator=(const Spdlog&) = delete;

  void log(int number) override { _logger->warn("record number {} of {}, as long as most are", number, sample); }
  void finish() override {
    _logger->flush();
    _logger.reset();
    _pool.reset();  // waits for its thread
  }

 private:
  std::shared_ptr<spdlog::details::thread_pool> _pool;
  std::shared_ptr<spdlog::logger> _logger;
};
#endif

#ifdef KELTO_HAS_GLOG
class Glog final : public Peer {
 public:
  explicit Glog(const std::string& path, bool isSynchronous = false) {
    FLAGS_log_dir = path;
    FLAGS_logtostderr = false;
    FLAGS_stderrthreshold = google::NUM_SEVERITIES;
    FLAGS_logbufsecs = isSynchronous ? 0 : 30;
    FLAGS_logbuflevel = isSynchronous ? -1 : google::ERROR;
    google::SetLogDestination(google::INFO, (path + "/glog.").c_str());
  }
  ~Glog() override = default;
  Glog(const Glog&) = delete;
  Glog& operator=(const Glog&) = delete;

  void log(int number) override { LOG(INFO) << "record number " << number << " of " << sample << ", as long as most are"; }
  void finish() override { google::FlushLogFiles(google::INFO); }
};
#endif

// A line made and written with one system call.
class RawWrite final : public Peer {
 public:
  explicit RawWrite(const std::string& path)
      : _file(::open((path + "/raw.txt").c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644)) {}
  ~RawWrite() override { ::close(_file); }
  RawWrite(const RawWrite&) = delete;
  RawWrite& operator=(const RawWrite&) = delete;

  void log(int /*number*/) override {
    static const std::string line =
        "2026/11/20 10:20:30:400  record number 123456 of a quarter of the world, as long as most are\n";
    bench::keep(::write(_file, line.data(), line.size()));
  }
  void finish() override {}

 private:
  const int _file;
};

}  // namespace bench
