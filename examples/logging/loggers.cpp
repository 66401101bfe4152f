// Several loggers: the terminal, the system's log, and two folders of files. Both begin a new file every day, the first one
// also every megabyte, and keeps three besides. The folders are the first two arguments.
#include <kelto/logging.h>

static kelto::DDLogSite site{kelto::DDLogFlagError | kelto::DDLogFlagWarning | kelto::DDLogFlagInfo};

static std::shared_ptr<kelto::DDFileLogger> fileLogger(const char* folder) {
  auto& platform = kelto::Logging::current();
  return std::make_shared<kelto::DDFileLogger>(platform,
                                               std::make_shared<kelto::DDLogFileManagerDefault>(platform, folder));
}

int main(int argc, char** argv) {
  const kelto::Logging logging(argc, argv);
  if (argc != 3) return 2;
  const auto bySize = fileLogger(argv[1]);
  bySize->setMaximumFileSize(1 << 20);
  bySize->logFileManager()->setMaximumNumberOfLogFiles(3);
  const auto byDay = fileLogger(argv[2]);
  byDay->setMaximumFileSize(UINT64_MAX);
  kelto::DDLog::addLogger(kelto::DDTTYLogger::sharedInstance());
  kelto::DDLog::addLogger(kelto::DDASLLogger::sharedInstance());
  kelto::DDLog::addLogger(bySize);
  kelto::DDLog::addLogger(byDay);
  for (int i = 0; i < 1000; ++i) site.info("record %d", i);
  kelto::DDLog::flushLog();
}
