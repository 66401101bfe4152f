#include "platform/linux/terminal/JobHistory.h"

#include <pwd.h>
#include <systemd/sd-journal.h>

#include <charconv>
#include <chrono>
#include <cstring>
#include <string_view>

#include "protocol/LogRecord.h"
#include "protocol/ToolProtocol.h"

namespace platform::Linux {
namespace {

namespace field = protocol::recordField;

// Each job has one of these, and no other record has any.
constexpr const char* commands[] = {protocol::replaceItemCommand, protocol::moveFileCommand,
                                    protocol::copyFileCommand,    protocol::trashFileCommand,
                                    protocol::removeFileCommand,  protocol::upgradeServerCommand};

class OpenJournal {
 public:
  explicit OpenJournal(const std::string& folder)
      : status(folder.empty() ? sd_journal_open(&journal, SD_JOURNAL_LOCAL_ONLY)
                              : sd_journal_open_directory(&journal, folder.c_str(), 0)) {}
  ~OpenJournal() { sd_journal_close(journal); }
  OpenJournal(const OpenJournal&) = delete;
  OpenJournal& operator=(const OpenJournal&) = delete;

  // The daemon adds the number of the user who sent a record.
  int selectJobsOfRoot() {
    int result = sd_journal_add_match(journal, "_UID=0", 0);
    for (const char* command : commands) {
      const auto match = std::string(field::command) + "=" + command;
      if (result >= 0) result = sd_journal_add_match(journal, match.data(), match.size());
    }
    return result;
  }

  // All values of a field, in the order of the record.
  [[nodiscard]] std::vector<std::string> values(const std::string& name) const {
    std::vector<std::string> found;
    const void* data = nullptr;
    std::size_t length = 0;
    sd_journal_restart_data(journal);
    while (sd_journal_enumerate_data(journal, &data, &length) > 0) {
      const std::string_view text(static_cast<const char*>(data), length);
      if (text.starts_with(name + "=")) found.emplace_back(text.substr(name.size() + 1));
    }
    return found;
  }
  [[nodiscard]] std::string value(const char* name) const {
    const auto found = values(name);
    return found.empty() ? "" : found.front();
  }
  [[nodiscard]] foundation::Date time() const {
    std::uint64_t microseconds = 0;
    sd_journal_get_realtime_usec(journal, &microseconds);
    return foundation::Date(
        std::chrono::duration_cast<foundation::Date::duration>(std::chrono::microseconds(microseconds)));
  }

  sd_journal* journal = nullptr;
  const int status;
};

std::string nameOfUser(const std::string& number) {
  uid_t user = 0;
  const char* end = number.data() + number.size();
  const auto [stopped, error] = std::from_chars(number.data(), end, user);
  const passwd* account = error == std::errc() && stopped == end ? ::getpwuid(user) : nullptr;
  return account == nullptr ? number : account->pw_name;
}

RecordedJob jobIn(const OpenJournal& journal) {
  return {.time = journal.time(),
          .job = journal.value(protocol::jobVariable),
          .user = nameOfUser(journal.value(field::user)),
          .command = journal.value(field::command),
          .paths = journal.values(field::path),
          .bundle = journal.value(field::bundle),
          .oldVersion = journal.value(field::oldVersion),
          .newVersion = journal.value(field::newVersion),
          .verdict = journal.value(field::verdict),
          .cause = journal.value(field::cause)};
}

}  // namespace

std::optional<std::vector<RecordedJob>> recordedJobs(const std::string& folder, std::string& cause) {
  OpenJournal journal(folder);
  int status = journal.status;
  if (status >= 0) status = journal.selectJobsOfRoot();
  if (status >= 0) status = sd_journal_seek_head(journal.journal);
  std::vector<RecordedJob> jobs;
  while (status >= 0 && (status = sd_journal_next(journal.journal)) > 0) jobs.push_back(jobIn(journal));
  if (status >= 0) return jobs;
  cause = std::strerror(-status);
  return std::nullopt;
}

}  // namespace platform::Linux
