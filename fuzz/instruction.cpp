// For any bytes on its standard input the tool does at most one job, namely the one that was named, and the verdict says so
// exactly then. The jobs are noted instead of done: nothing is changed on the disk.
//
// An input that begins with an even byte is what the tool reads, with its length before it; after an odd byte there are
// keys and values, each ended by a zero byte, which are archived first.
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "fuzz/Target.h"
#include "privileged/tool/AssistantTool.h"
#include "privileged/tool/Effects.h"

#include "protocol/ToolProtocol.h"

namespace {

using namespace AssistantTool;

struct Notes {
  std::vector<std::string> jobs;
  std::vector<std::string> verdicts;
};

class NotedAnswer final : public Answer {
 public:
  NotedAnswer(const std::string& path, Notes& notes) : _path(std::hash<std::string>()(path)), _notes(notes) {}
  void write(std::string_view text) const override { _notes.verdicts.emplace_back(text); }
  [[nodiscard]] std::pair<dev_t, ino_t> identity() const override { return {0, _path}; }

 private:
  std::size_t _path;
  Notes& _notes;
};

void check(const Location& location) {
  fuzz::require(location.path.starts_with('/') && location.path.ends_with("/" + location.name), "a place is absolute");
  fuzz::require(location.name.find('/') == std::string::npos && !location.name.empty(), "a name is one name");
  fuzz::require((location.path + "/").find("/../") == std::string::npos, "no place is above another");
}

Outcome note(const Command& command, const Request& request, Notes& notes) {
  const std::string job(command.name);
  Outcome outcome{.report = job, .output = "output of " + job, .afterwards = [] { return std::string(); }};
  for (const char* key : command.paths) {
    if (key == nullptr) continue;
    const auto location = request.locate(key);
    check(location);
    outcome.report += " " + location.path;
  }
  notes.jobs.push_back(job);
  return outcome;
}

Effects effectsNotedIn(Notes& notes) {
  return {.rules = {},
          .openAnswer =
              [&notes](const std::string& path, const PathWalk& walk) {
                check(walk.locate(path));
                return std::make_unique<NotedAnswer>(path, notes);
              },
          .perform = [&notes](const Command& command, const Request& request) { return note(command, request, notes); },
          .record =
              [](const JobRecord& record) {
                fuzz::require(record.line.find_first_of("\0\r\n", 0, 3) == std::string::npos, "a record is one line");
              }};
}

// An open file in memory that holds `bytes`, at its beginning.
int fileWith(std::string_view bytes) {
  const int file = ::memfd_create("fuzz", MFD_CLOEXEC);
  fuzz::require(file >= 0 && ::write(file, bytes.data(), bytes.size()) == static_cast<ssize_t>(bytes.size()), "memory");
  ::lseek(file, 0, SEEK_SET);
  return file;
}

std::string contentsOf(int file) {
  std::string text(4096, '\0');
  const auto length = ::pread(file, text.data(), text.size(), 0);
  text.resize(static_cast<std::size_t>(std::max<ssize_t>(length, 0)));
  return text;
}

std::string archiveOf(std::string_view texts) {
  InstructionArchive::Instructions instructions;
  const auto next = [&texts] {
    const auto end = std::min(texts.find('\0'), texts.size());
    std::string text(texts.substr(0, end));
    texts.remove_prefix(std::min(texts.size(), end + 1));
    return text;
  };
  while (!texts.empty()) {
    auto key = next();
    InstructionArchive::setValueForKey(instructions, key, next());
  }
  return InstructionArchive::archivedData(instructions);
}

std::string inputOf(std::string_view bytes) {
  if (bytes.empty()) return {};
  const bool isText = (bytes.front() & 1) != 0;
  bytes.remove_prefix(1);
  if (!isText) return std::string(bytes);
  const auto archive = archiveOf(bytes);
  const std::uint64_t length = archive.size();
  return std::string(reinterpret_cast<const char*>(&length), sizeof length) + archive;
}

// The command of an instruction that is whole.
std::string commandOf(std::string_view input) {
  std::uint64_t length = 0;
  std::memcpy(&length, input.data(), sizeof length);
  const auto instructions = InstructionArchive::unarchived(input.substr(sizeof length, length));
  return *InstructionArchive::valueForKey(*instructions, protocol::commandKey);
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string bytes = inputOf(fuzz::text(data, size));
  const int input = fileWith(bytes);
  const int output = fileWith({});
  Notes notes;
  const int status = run(input, output, effectsNotedIn(notes));
  const std::string said = contentsOf(output);
  ::close(input);
  ::close(output);

  const auto& [jobs, verdicts] = notes;
  fuzz::require(said.size() < 512 && said.find('\n') == said.size() - 1, "one short line is said");
  if (status != 0) {
    fuzz::require(jobs.empty() && verdicts.empty(), "a refusal does nothing and writes no verdict");
    return 0;
  }
  fuzz::require(jobs.size() == 1 && jobs.front() == commandOf(bytes), "the job named is done, and only that");
  fuzz::require(!verdicts.empty() && verdicts.size() <= 2 && verdicts.back() == protocol::successVerdict,
                "the verdict says so");
  return 0;
}
