#pragma once
// The platform of a program that only logs: log files, the terminal, the system's logs, the user defaults that hold the
// logging level.
//
//   int main(int argc, char** argv) {
//     const platform::Linux::LoggingProgram logging(argc, argv);
//     KTLogger::sharedLogger()->log_level_message("main", 4, "%@ of %d", "One", 3);
//   }
//
// Make one at the start of main, before other threads start, and keep it until the end. Its end waits for statements of
// other threads that have begun; later ones are lost.
#include <memory>

#include "foundation/Api.h"
#include "platform/LoggingPlatform.h"

namespace platform::Linux {

class KELTO_API LoggingProgram {
 public:
  // The arguments are the first place where user defaults are looked for ("-Key value").
  LoggingProgram(int argc, const char* const* argv);
  ~LoggingProgram();
  LoggingProgram(const LoggingProgram&) = delete;
  LoggingProgram& operator=(const LoggingProgram&) = delete;

  // For the constructors of file loggers. Not without an object of this class.
  static LoggingPlatform& current() { return *installed(); }

 private:
  struct Parts;
  const std::unique_ptr<Parts> _parts;
};

}  // namespace platform::Linux
