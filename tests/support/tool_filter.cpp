// Stands in the place of the assistant tool, which then is "assistantTool.real" beside it: has the real tool do the job,
// and passes on all that it says to its caller, in its order: its signs of life, the verdict, its line, and the end of its
// stream.
//
// The file "rule" beside it names one of these ("sign", "verdict", "line", "end", or "*" for all) that is "lost", "late" or
// "twice", as in "lost verdict". One that is late comes a second later, and so does everything behind it. A file "slow"
// holds the seconds that the job takes longer, with a sign of life each second, or until that file is removed.
#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <thread>

#include "protocol/InstructionArchive.h"
#include "protocol/ToolProtocol.h"

namespace {

namespace fs = std::filesystem;

const fs::path folder = fs::read_symlink("/proc/self/exe").parent_path();

std::string contentsOf(const fs::path& path) {
  std::ostringstream contents;
  contents << std::ifstream(path, std::ios::binary).rdbuf();
  return std::move(contents).str();
}

// How one kind of message is treated.
struct Rule {
  Rule() { std::istringstream(contentsOf(folder / "rule")) >> action >> kind; }
  [[nodiscard]] bool is(const std::string& wanted, const std::string& message) const {
    return action == wanted && (kind == message || kind == "*");
  }
  template <class Action>
  void pass(const std::string& message, const Action& act) const {
    if (is("lost", message)) return;
    if (is("late", message)) std::this_thread::sleep_for(std::chrono::seconds(1));
    act();
    if (is("twice", message)) act();
  }
  std::string action;
  std::string kind;
};

std::string readFully(int input, std::size_t length) {
  std::string bytes(length, '\0');
  std::size_t got = 0;
  while (got < length) {
    const auto count = ::read(input, bytes.data() + got, length - got);
    if (count <= 0) std::exit(1);
    got += static_cast<std::size_t>(count);
  }
  return bytes;
}

InstructionArchive::Instructions readInstructions() {
  std::uint64_t length = 0;
  const auto prefix = readFully(STDIN_FILENO, sizeof length);
  std::memcpy(&length, prefix.data(), sizeof length);
  auto instructions = InstructionArchive::unarchived(readFully(STDIN_FILENO, length));
  if (!instructions) std::exit(1);
  return *instructions;
}

std::string framed(const InstructionArchive::Instructions& instructions) {
  const std::string archive = InstructionArchive::archivedData(instructions);
  const std::uint64_t length = archive.size();
  return std::string(reinterpret_cast<const char*>(&length), sizeof length) + archive;
}

// The real tool at work; `output` is the end of its standard output.
struct RealTool {
  pid_t process;
  int output;
};

RealTool start(const InstructionArchive::Instructions& instructions) {
  int in[2];
  int out[2];
  if (::pipe2(in, O_CLOEXEC) != 0 || ::pipe2(out, O_CLOEXEC) != 0) std::exit(1);
  const std::string real = folder / "assistantTool.real";
  const pid_t process = ::fork();
  if (process == 0) {
    ::dup2(in[0], STDIN_FILENO);
    ::dup2(out[1], STDOUT_FILENO);
    ::execl(real.c_str(), real.c_str(), nullptr);
    ::_exit(1);
  }
  ::close(in[0]);
  ::close(out[1]);
  const auto message = framed(instructions);
  if (::write(in[1], message.data(), message.size()) < 0) std::exit(1);
  ::close(in[1]);
  return {process, out[0]};
}

void giveSign(const Rule& rule, const std::string& result) {
  rule.pass("sign", [&] {
    const timespec times[2] = {{.tv_sec = 0, .tv_nsec = UTIME_NOW}, {.tv_sec = 0, .tv_nsec = UTIME_OMIT}};
    ::utimensat(AT_FDCWD, result.c_str(), times, 0);
  });
}

void takeTime(const Rule& rule, const std::string& result) {
  int seconds = 0;
  for (std::ifstream(folder / "slow") >> seconds; seconds > 0 && fs::exists(folder / "slow"); --seconds) {
    std::this_thread::sleep_for(std::chrono::seconds(1));
    giveSign(rule, result);
  }
}

// The line of the real tool, when it has ended; its signs of life go on meanwhile.
std::string workOf(const RealTool& tool, const Rule& rule, const std::string& result) {
  std::string line;
  char part[protocol::answerChunk];
  for (;;) {
    giveSign(rule, result);
    pollfd output{.fd = tool.output, .events = POLLIN, .revents = 0};
    if (::poll(&output, 1, 100) == 0) continue;
    const auto count = ::read(tool.output, part, sizeof part);
    if (count <= 0) break;
    line.append(part, static_cast<std::size_t>(count));
  }
  ::waitpid(tool.process, nullptr, 0);
  return line;
}

// Until nobody reads any more.
void keepStreamOpen() {
  pollfd stream{.fd = STDOUT_FILENO, .events = 0, .revents = 0};
  while (::poll(&stream, 1, -1) <= 0) continue;
}

}  // namespace

int main() {
  std::signal(SIGPIPE, SIG_IGN);
  const Rule rule;
  auto instructions = readInstructions();
  const std::string result = *InstructionArchive::valueForKey(instructions, protocol::resultPathKey);
  // The real tool's own result file lies apart: the caller, which may give the tool up, clears the folder of the other.
  std::string apart = fs::temp_directory_path() / "tool-filter-XXXXXX";
  if (::mkdtemp(apart.data()) == nullptr) return 1;
  const std::string inner = apart + "/result";
  std::ofstream(inner).close();
  InstructionArchive::setValueForKey(instructions, protocol::resultPathKey, inner);
  takeTime(rule, result);
  const std::string line = workOf(start(instructions), rule, result);
  const std::string verdict = contentsOf(inner);
  fs::remove_all(apart);
  rule.pass("verdict", [&] { std::fstream(result, std::ios::in | std::ios::out) << verdict; });
  rule.pass("line", [&] { return ::write(STDOUT_FILENO, line.data(), line.size()); });
  if (rule.is("lost", "end")) keepStreamOpen();
  rule.pass("end", [] {});
  return 0;
}
