#pragma once
// Programs run to their end through the shell.
#include <sys/wait.h>

#include <array>
#include <cstdio>
#include <ostream>
#include <string>

namespace tests {

struct Outcome {
  int status = -1;  // the exit status; 128 and more for a signal
  std::string output;
  bool operator==(const Outcome&) const = default;
};

inline void PrintTo(const Outcome& outcome, std::ostream* out) { *out << outcome.status << ": " << outcome.output; }

// Runs the line and returns what it wrote on standard output.
inline Outcome runCommandLine(const std::string& line) {
  Outcome outcome;
  FILE* pipe = ::popen(line.c_str(), "r");
  if (pipe == nullptr) return outcome;
  std::array<char, 4096> buffer{};
  for (std::size_t count = 0; (count = std::fread(buffer.data(), 1, buffer.size(), pipe)) > 0;)
    outcome.output.append(buffer.data(), count);
  const int status = ::pclose(pipe);
  outcome.status = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  return outcome;
}

}  // namespace tests
