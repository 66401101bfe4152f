// The demo's Library Server: a background service that has a version and does nothing else.
//
//   KeltoLibraryServer [STATE_FILE]
//
// Says its version on standard output, writes it to STATE_FILE when one is given (there, or in the environment variable
// KELTO_LIBRARY_SERVER_STATE), and stays until it is asked to end by SIGTERM or SIGINT.
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

namespace {

// A reader never sees half a file.
bool writeState(const std::string& path) {
  const std::string unfinished = path + ".new";
  std::ofstream(unfinished) << KELTO_LIBRARY_SERVER_VERSION << "\n";
  std::error_code error;
  std::filesystem::rename(unfinished, path, error);
  return !error;
}

std::string stateFile(int argumentCount, char** arguments) {
  if (argumentCount > 1) return arguments[1];
  const char* named = std::getenv("KELTO_LIBRARY_SERVER_STATE");
  return named == nullptr ? "" : named;
}

}  // namespace

int main(int argumentCount, char** arguments) {
  sigset_t ending;
  sigemptyset(&ending);
  sigaddset(&ending, SIGTERM);
  sigaddset(&ending, SIGINT);
  ::sigprocmask(SIG_BLOCK, &ending, nullptr);

  std::printf("KeltoLibraryServer %d\n", KELTO_LIBRARY_SERVER_VERSION);
  std::fflush(stdout);
  const std::string state = stateFile(argumentCount, arguments);
  if (!state.empty() && !writeState(state)) {
    std::fprintf(stderr, "KeltoLibraryServer: cannot write %s\n", state.c_str());
    return 1;
  }
  int number = 0;
  ::sigwait(&ending, &number);
  return 0;
}
