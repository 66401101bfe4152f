// A program that logs a warning and prints where its log files are.
#include <iostream>

#include <kelto/logging/KTLogger.h>
#include <kelto/platform/linux/program/ProgramPlatform.h>

int main(int argc, char** argv) {
  const platform::Linux::ProgramPlatform platform(argc, argv);
  KTLogger::sharedLogger()->log_level_message("main", 3, "%@ started with %d arguments", "The example", argc - 1);
  for (const auto& path : KTLogger::sharedLogger()->logFileList()) std::cout << path << '\n';
}
