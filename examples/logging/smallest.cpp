// The smallest program that logs: an error, which is in a file of the user's Library/Logs/smallest when the call returns.
#include <kelto/logging.h>

int main(int argc, char** argv) {
  const kelto::Logging logging(argc, argv);
  kelto::KTLogger::sharedLogger()->log_level_message("main", 3, "%@ has %d arguments", argv[0], argc - 1);
}
