#pragma once
// An assistant tool in memory: records the instructions of every job and writes what the test wants into the job's files.
#include <cstring>

#include "platform/fake/FakePlatform.h"
#include "protocol/InstructionArchive.h"
#include "protocol/ToolProtocol.h"

namespace tests {

class FakeTool {
 public:
  using Job = std::map<std::string, std::string>;

  explicit FakeTool(platform::fake::FakePlatform& fake) : _fake(fake) {
    fake.bundles.main.resources["assistantTool"] = path;
    fake.files.addFile(path, {}, true);
    fake.authorization.tool = [this] { return stream(); };
  }

  // The commands of all jobs, in order.
  [[nodiscard]] std::vector<std::string> commands() const {
    std::vector<std::string> names;
    for (const auto& job : jobs) names.push_back(job.at(protocol::commandKey));
    return names;
  }

  const std::string path = "/Apps/Installer.app/Contents/Resources/assistantTool";
  std::vector<Job> jobs;
  std::map<std::string, std::string> results;  // by command; "tool result ok" for what is not named
  std::optional<std::string> output;           // written to the output file when there is one
  std::deque<std::string> answer{"done"};      // standard output, write by write
  std::function<void(const Job&)> work;        // runs before the result is written
  std::size_t writeLimit = SIZE_MAX;
  std::shared_ptr<platform::fake::FakeByteStream::Record> lastStream;

 private:
  std::unique_ptr<platform::ByteStream> stream() {
    auto stream = std::make_unique<platform::fake::FakeByteStream>();
    stream->chunks = answer;
    stream->writeLimit = writeLimit;
    lastStream = stream->record;
    stream->beforeRead = [this, record = stream->record] { run(record->written); };
    return stream;
  }

  void run(const std::string& written) {
    std::uint64_t length = 0;
    std::memcpy(&length, written.data(), sizeof length);
    const auto instructions = InstructionArchive::unarchived(std::string_view(written).substr(sizeof length, length));
    if (!instructions || written.size() != sizeof length + length) return;
    const Job job(instructions->begin(), instructions->end());
    jobs.push_back(job);
    if (work) work(job);
    const auto result = results.find(job.at(protocol::commandKey));
    write(job, protocol::resultPathKey, result == results.end() ? protocol::successVerdict : result->second);
    if (output) write(job, protocol::outputPathKey, *output);
  }

  void write(const Job& job, const char* key, const std::string& text) {
    const auto path = job.find(key);
    const auto place = path == job.end() ? _fake.files.items.end() : _fake.files.items.find(path->second);
    if (place != _fake.files.items.end()) place->second.contents = text;
  }

  platform::fake::FakePlatform& _fake;
};

}  // namespace tests
