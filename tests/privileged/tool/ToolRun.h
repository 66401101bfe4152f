#pragma once
// For tests: a folder of their own, trees in it, and the real tool run over a socket pair as the installer runs it.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/prctl.h>
#include <sys/ptrace.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "protocol/InstructionArchive.h"
#include "protocol/ToolProtocol.h"
#include "tests/support/PrivateState.h"

namespace tests::tool {

namespace fs = std::filesystem;

inline const std::string toolProgram = std::string(KELTO_BIN_DIR) + "/assistantTool";

// A child that does not outlive the test, with `input` as its standard input and output; `traced` by this process.
inline pid_t spawn(const std::vector<std::string>& command, int input, const std::vector<std::string>& environment,
                   bool traced = false) {
  std::vector<char*> arguments;
  for (const auto& argument : command) arguments.push_back(const_cast<char*>(argument.c_str()));
  arguments.push_back(nullptr);
  std::vector<char*> variables;
  for (const auto& variable : environment) variables.push_back(const_cast<char*>(variable.c_str()));
  variables.push_back(nullptr);
  const pid_t child = ::fork();
  if (child != 0) return child;
  ::prctl(PR_SET_PDEATHSIG, SIGKILL);
  ::dup2(input, STDIN_FILENO);
  ::dup2(input, STDOUT_FILENO);
  if (traced) ::ptrace(PTRACE_TRACEME, 0, nullptr, nullptr);
  ::execve(arguments[0], arguments.data(), variables.data());
  ::_exit(127);
}

struct Answer {
  std::string text;  // what the tool printed
  int status = -1;   // its exit status, or the number of the signal that ended it, negative
};

inline std::string framed(const std::string& archive) {
  const std::uint64_t length = archive.size();
  return std::string(reinterpret_cast<const char*>(&length), sizeof length) + archive;
}

// Sends `bytes` to the program, keeps the stream open until it has answered, and reads until the end.
inline Answer runWithBytes(const std::vector<std::string>& command, const std::string& bytes,
                           std::vector<std::string> environment = {}, bool closeAfterWriting = false) {
  int ends[2];
  if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0) return {};
  environment.emplace_back("PATH=/usr/sbin:/usr/bin:/sbin:/bin");
  const pid_t child = spawn(command, ends[1], environment);
  ::close(ends[1]);
  Answer answer;
  for (std::size_t at = 0; at < bytes.size();) {
    const auto written = ::send(ends[0], bytes.data() + at, bytes.size() - at, MSG_NOSIGNAL);
    if (written <= 0) break;
    at += static_cast<std::size_t>(written);
  }
  if (closeAfterWriting) ::shutdown(ends[0], SHUT_WR);
  char buffer[512];
  for (ssize_t got = 0; (got = ::read(ends[0], buffer, sizeof buffer)) > 0;)
    answer.text.append(buffer, static_cast<std::size_t>(got));
  ::close(ends[0]);
  int status = 0;
  ::waitpid(child, &status, 0);
  answer.status = WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
  return answer;
}

inline void write(const fs::path& path, const std::string& text) {
  fs::create_directories(path.parent_path());
  std::ofstream(path, std::ios::binary) << text;
}

inline std::string read(const fs::path& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

inline bool isThere(const fs::path& path) { return fs::symlink_status(path).type() != fs::file_type::not_found; }

inline struct stat statusOf(const fs::path& path) {
  struct stat status {};
  EXPECT_EQ(::lstat(path.c_str(), &status), 0) << path;
  return status;
}

// Everything below `folder`: path to kind, mode, owner, modification time, target or contents.
inline std::map<std::string, std::string> snapshot(const fs::path& folder, bool withOwners = true) {
  std::map<std::string, std::string> entries;
  const auto add = [&](const fs::path& path) {
    const auto status = statusOf(path);
    std::ostringstream text;
    text << std::oct << status.st_mode << std::dec;
    if (withOwners) text << ' ' << status.st_uid << ':' << status.st_gid;
    if (!S_ISDIR(status.st_mode) || withOwners) text << ' ' << status.st_mtim.tv_sec << '.' << status.st_mtim.tv_nsec;
    if (S_ISLNK(status.st_mode)) text << " -> " << fs::read_symlink(path).string();
    if (S_ISREG(status.st_mode)) text << ' ' << read(path);
    entries[fs::relative(path.parent_path(), folder) / path.filename()] = text.str();
  };
  if (fs::symlink_status(folder).type() == fs::file_type::directory) {
    for (const auto& entry : fs::recursive_directory_iterator(folder)) add(entry.path());
  }
  return entries;
}

// A small bundle whose every file tells its version.
inline void makeBundle(const fs::path& app, const std::string& version) {
  write(app / "Contents/Info.plist", "version " + version);
  write(app / "Contents/Linux/Controller", "program " + version);
  write(app / "Contents/Resources/en.lproj/Localizable.strings", "strings " + version);
  fs::permissions(app / "Contents/Linux/Controller", fs::perms(0755));
  fs::create_symlink("Info.plist", app / "Contents/Link");
}

// The tool under strace, with faults injected such as "renameat2:error=EINVAL". Empty when strace cannot trace here.
inline std::vector<std::string> withFaults(const std::vector<std::string>& faults) {
  if (::system("/usr/bin/strace -o /dev/null /bin/true 2>/dev/null") != 0) return {};
  std::vector<std::string> command{"/usr/bin/strace", "-o", "/dev/null"};
  for (const auto& fault : faults) command.insert(command.end(), {"-e", "inject=" + fault});
  command.push_back(toolProgram);
  return command;
}

class ToolTest : public ::testing::Test {
 protected:
  // Not all machines keep their temporary folder free of links.
  explicit ToolTest(const fs::path& parent = fs::temp_directory_path()) {
    std::string pattern = (fs::canonical(parent) / "assistantToolTest-XXXXXX").string();
    folder = ::mkdtemp(pattern.data());
    tests::PrivateState::clear();
    environment.push_back("XDG_STATE_HOME=" + (folder / "state").string());
    makeResultFile();
  }
  ~ToolTest() override { ::system(("chmod -R u+rwX '" + folder.string() + "'; rm -rf '" + folder.string() + "'").c_str()); }

  // Where nobody but its user can enter: the tool refuses a result file elsewhere.
  void makeResultFile() {
    result = folder / "answers/result";
    write(result, "");
    fs::permissions(result.parent_path(), fs::perms(0700));
    fs::permissions(result, fs::perms(0666));
  }

  // Runs one job; the instruction gets the test's result file.
  Answer run(const InstructionArchive::Instructions& instructions) {
    return runWithBytes(command, bytesOf(instructions), environment);
  }
  [[nodiscard]] std::string bytesOf(InstructionArchive::Instructions instructions) const {
    InstructionArchive::setValueForKey(instructions, protocol::resultPathKey, result);
    return framed(InstructionArchive::archivedData(instructions));
  }
  Answer replace(const fs::path& destination, const fs::path& source) {
    return run({{protocol::commandKey, protocol::replaceItemCommand},
                {protocol::sourcePathKey, source},
                {protocol::destinationPathKey, destination}});
  }
  Answer move(const fs::path& source, const fs::path& destination) {
    return run({{protocol::commandKey, protocol::moveFileCommand},
                {protocol::sourcePathKey, source},
                {protocol::destinationPathKey, destination}});
  }
  Answer copy(const fs::path& source, const fs::path& destination) {
    return run({{protocol::commandKey, protocol::copyFileCommand},
                {protocol::sourcePathKey, source},
                {protocol::destinationPathKey, destination}});
  }
  Answer remove(const fs::path& path) {
    return run({{protocol::commandKey, protocol::removeFileCommand}, {protocol::filePathKey, path}});
  }
  Answer trash(const fs::path& path) {
    return run({{protocol::commandKey, protocol::trashFileCommand}, {protocol::filePathKey, path}});
  }

  void expectSuccess(const Answer& answer) {
    EXPECT_EQ(answer.status, 0) << answer.text;
    EXPECT_EQ(read(result), protocol::successVerdict);
    EXPECT_TRUE(answer.text.size() < 512 && answer.text.ends_with('\n')) << answer.text;
    expectNothingLeftBehind();
    fs::resize_file(result, 0);
  }
  // The job was refused with a reason that holds `reason`, and wrote no verdict.
  void expectRefusal(const Answer& answer, const std::string& reason) {
    EXPECT_GT(answer.status, 0) << answer.text;
    EXPECT_THAT(answer.text, ::testing::HasSubstr(reason));
    EXPECT_EQ(std::count(answer.text.begin(), answer.text.end(), '\n'), 1) << answer.text;
    EXPECT_EQ(read(result), "");
    expectNothingLeftBehind();
  }
  void expectNothingLeftBehind() {
    for (const auto& entry : fs::recursive_directory_iterator(folder)) {
      EXPECT_FALSE(entry.path().filename().string().starts_with(".kelto-staging-")) << entry.path();
    }
    EXPECT_THAT(snapshot(journal()), ::testing::IsEmpty());
  }

  // Where the tool keeps notes about its staging folders when it runs with the rights of this process.
  [[nodiscard]] fs::path journal() const { return ::geteuid() == 0 ? "/var/lib/kelto/jobs" : folder / "state/kelto/jobs"; }

  fs::path folder;
  fs::path result;
  std::vector<std::string> command{toolProgram};
  std::vector<std::string> environment{"ASAN_OPTIONS=detect_leaks=0"};
};

}  // namespace tests::tool
