#include "privileged/tool/Effects.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>

#include "privileged/tool/Account.h"
#include "privileged/tool/AdministratorPolicy.h"
#include "privileged/tool/AnswerFile.h"
#include "privileged/tool/AssistantTool.h"
#include "privileged/tool/BundleItem.h"
#include "privileged/tool/Confinement.h"
#include "privileged/tool/DesktopCaches.h"
#include "privileged/tool/DesktopEntries.h"
#include "privileged/tool/Failure.h"
#include "privileged/tool/Log.h"
#include "privileged/tool/Rights.h"
#include "protocol/ToolProtocol.h"

namespace AssistantTool {
namespace {

// The environment is the broker's work only when it made us root; else it is the caller's own.
std::string toldByBroker(const char* variable) {
  const char* value = ::getuid() == 0 && ::geteuid() == 0 ? std::getenv(variable) : nullptr;
  return value == nullptr ? "" : value;
}

// Opens at the start all that a record needs: a confined job cannot.
class Recorder {
 public:
  void write(const JobRecord& record) const {
    if (!_log.isKept()) return;
    _log.write(priorityOf(record), record.line, fieldsOf(record, user(), _job, digestOfTool()));
  }
  void warn(const std::string& line) const {
    _log.write(protocol::LogPriority::warning, line, {{protocol::jobVariable, _job}});
  }

 private:
  static uid_t user() {
    try {
      return invokingUser();
    } catch (const Failure&) {
      return ::getuid();
    }
  }
  [[nodiscard]] std::string digestOfTool() const {
    struct stat status {};
    if (::fstat(_tool.get(), &status) != 0) return "";
    ::lseek(_tool.get(), 0, SEEK_SET);
    return hexadecimal(digestOfFile(_tool.get(), static_cast<std::uint64_t>(status.st_size), "the tool"));
  }

  Log _log;
  posix::Descriptor _tool{::open("/proc/self/exe", O_RDONLY | O_CLOEXEC)};
  std::string _job = toldByBroker(protocol::jobVariable);
};

void confine(const Command& command, const Request& request, const DesktopEntries& entries, const Recorder& recorder) {
  auto folders = foldersOf(command, request);
  for (auto& folder : entries.folders()) folders.push_back(std::move(folder));
  giveUpProgramsAndSockets();
  if (const auto why = confineTo(folders); !why.empty()) recorder.warn("the job is not confined to its folders: " + why);
}

Outcome performWithEntries(const Command& command, const Request& request, DesktopEntries& entries) {
  try {
    auto outcome = command.perform(request);
    outcome.warning = entries.settle();
    return outcome;
  } catch (const Failure&) {
    static_cast<void>(entries.settle());
    throw;
  }
}

Outcome performConfined(const Command& command, const Request& request, const Recorder& recorder) {
  if (!command.isFileJob) return command.perform(request);
  DesktopEntries entries(command, request);
  const auto caches = entries.hasWork() ? std::make_shared<DesktopCaches>(DesktopEntries::dataFolder()) : nullptr;
  confine(command, request, entries, recorder);
  auto outcome = performWithEntries(command, request, entries);
  if (!entries.hasChanged()) return outcome;
  outcome.afterwards = [caches, before = std::move(outcome.afterwards)] {
    const auto warning = before ? before() : std::string();
    caches->update();
    return warning;
  };
  return outcome;
}

}  // namespace

Effects effectsOnThisMachine() {
  const auto recorder = std::make_shared<Recorder>();
  Effects effects;
  std::string cause;
  effects.rules.policy = administratorPolicy(cause);
  if (!cause.empty()) recorder->warn(cause);
  effects.rules.hasAnyProgramRight = toldByBroker(protocol::anyProgramVariable) == "1";
  effects.openAnswer = [](const std::string& path, const PathWalk& walk) {
    return std::make_unique<AnswerFile>(path, walk);
  };
  effects.perform = [recorder](const Command& command, const Request& request) {
    return performConfined(command, request, *recorder);
  };
  effects.record = [recorder](const JobRecord& record) { recorder->write(record); };
  return effects;
}

}  // namespace AssistantTool
