#pragma once
// The framework over real files, memory and time, under a process name of its own, so that tests that run beside each other
// do not find each other's remains.
#include <dirent.h>
#include <unistd.h>

#include <memory>
#include <string>
#include <vector>

#include "logging/DDFileLogger.h"
#include "logging/DDLog.h"
#include "platform/fake/FakePlatform.h"
#include "platform/linux/LoggingHost.h"
#include "tests/support/TemporaryFolder.h"

namespace tests {

class RealLog {
  // This process under another name.
  class Process final : public platform::ProcessInfo {
   public:
    Process(platform::ProcessInfo& real, std::string name, std::uint32_t processors)
        : _real(real), _name(std::move(name)), _processors(processors) {}
    [[nodiscard]] std::string processName() const override { return _name; }
    [[nodiscard]] std::int32_t processIdentifier() const override { return _real.processIdentifier(); }
    [[nodiscard]] std::uint32_t currentThreadIdentifier() const override { return _real.currentThreadIdentifier(); }
    [[nodiscard]] std::uint32_t processorCount() const override {
      return _processors == 0 ? _real.processorCount() : _processors;
    }
    bool fenceOtherThreads() override { return _real.fenceOtherThreads(); }

   private:
    platform::ProcessInfo& _real;
    const std::string _name;
    const std::uint32_t _processors;
  };

 public:
  // `name` is the process's; `directory` is where the log files go. With 0 `processors` there are as many as the machine
  // has.
  RealLog(const std::string& name, const std::string& directory, platform::LogStorage* storage = nullptr,
          std::uint32_t processors = 0)
      : _process(_linux.process, name, processors),
        _host{storage == nullptr ? _linux.storage : *storage,
              _process,
              _linux.standardError,
              _linux.leveledSystemLog,
              _memories,
              platform::Linux::sendToJournal,
              platform::Linux::callBeforeCrash,
              platform::Linux::LogTable::open},
        _memories(memoryFolder(directory)),
        fake(&_host) {
    fake.clock.stepAside();
    manager = std::make_shared<DDLogFileManagerDefault>(fake.platform, directory);
    // A fast machine fills several files before a test is over; none of them may be pruned.
    manager->setMaximumNumberOfLogFiles(100000);
    logger = std::make_shared<DDFileLogger>(fake.platform, manager);
    DDLog::addLogger(logger);
    // The logger's first duty is what a former process left.
    DDLog::flushLog();
  }
  RealLog(const RealLog&) = delete;
  RealLog& operator=(const RealLog&) = delete;

  // Where the memory that outlives the process is: with the test's files, so that it goes with them.
  static std::string memoryFolder(const std::string& directory) {
    const std::string folder = directory + "/.memory";
    std::error_code ignored;
    std::filesystem::create_directories(folder, ignored);
    return folder;
  }

  static void log(bool asynchronous, std::string_view text) {
    DDLog::log_level_flag_context_file_function_line_format(asynchronous, 3, 2, 0, "f.mm", "f", 1, "%@", text);
  }

 private:
  platform::Linux::LoggingHost _linux;
  Process _process;
  platform::LoggingHost _host;
  platform::Linux::SurvivingMemories _memories;

 public:
  platform::fake::FakePlatform fake;
  std::shared_ptr<DDLogFileManagerDefault> manager;
  std::shared_ptr<DDFileLogger> logger;
};

// A name that no other test process uses.
inline std::string uniqueName() { return "kelto-test-" + std::to_string(::getpid()); }

// The messages in all log files of a folder, without their time stamps; lines that are not whole come as they are.
inline std::vector<std::string> messagesIn(const std::string& directory) {
  std::vector<std::string> messages;
  DIR* folder = ::opendir(directory.c_str());
  while (folder != nullptr) {
    const dirent* entry = ::readdir(folder);
    if (entry == nullptr) break;
    if (!DDLogFileManagerDefault::isLogFile(entry->d_name)) continue;
    const std::string contents = readFile(directory + "/" + entry->d_name);
    for (std::size_t start = 0; start < contents.size();) {
      const auto end = std::min(contents.find('\n', start), contents.size());
      const std::string line = contents.substr(start, end - start);
      constexpr std::size_t stamp = std::string_view("yyyy/MM/dd HH:mm:ss:SSS  ").size();
      const bool isWhole = line.size() >= stamp && line[4] == '/' && line.substr(stamp - 2, 2) == "  ";
      if (!line.empty()) messages.push_back(isWhole ? line.substr(stamp) : "torn: " + line);
      start = end + 1;
    }
  }
  if (folder != nullptr) ::closedir(folder);
  return messages;
}

}  // namespace tests
