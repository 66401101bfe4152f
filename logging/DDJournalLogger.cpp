#include "logging/DDJournalLogger.h"

#include <algorithm>
#include <array>

namespace {

constexpr std::size_t longestName = 64;
constexpr std::string_view fieldPrefix = "FIELD_";
constexpr std::array<std::string_view, 9> ownNames = {"MESSAGE",           "PRIORITY",    "CODE_FILE",
                                                      "CODE_LINE",         "CODE_FUNC",   "TID",
                                                      "SYSLOG_IDENTIFIER", "KELTO_QUEUE", "KELTO_CONTEXT"};

int priorityOf(std::int32_t flag) {
  switch (flag) {
    case DDLogFlagError:
      return 3;
    case DDLogFlagWarning:
      return 4;
    case DDLogFlagInfo:
      return 6;
    default:
      return 5;
  }
}

char nameCharacter(char character) {
  if (character >= 'a' && character <= 'z') return static_cast<char>(character - 'a' + 'A');
  const bool isAllowed = (character >= 'A' && character <= 'Z') || (character >= '0' && character <= '9');
  return isAllowed ? character : '_';
}

std::string nameOf(std::string_view key) {
  std::string name(key);
  std::ranges::transform(name, name.begin(), nameCharacter);
  const bool beginsWithLetter = !name.empty() && name[0] >= 'A' && name[0] <= 'Z';
  if (!beginsWithLetter || std::ranges::find(ownNames, name) != ownNames.end()) name.insert(0, fieldPrefix);
  return name.substr(0, longestName);
}

class Entry {
 public:
  void add(std::string_view name, std::string_view value) { _fields.emplace_back(name).append("=").append(value); }
  [[nodiscard]] const std::vector<std::string>& fields() const { return _fields; }

 private:
  std::vector<std::string> _fields;
};

void addPlace(Entry& entry, const DDLogMessage& message) {
  if (message.file() != nullptr && message.file()[0] != '\0') {
    entry.add("CODE_FILE", message.file());
    entry.add("CODE_LINE", std::to_string(message.lineNumber()));
  }
  if (const auto method = message.methodName()) entry.add("CODE_FUNC", *method);
}

}  // namespace

std::shared_ptr<DDJournalLogger> DDJournalLogger::sharedInstance() {
  platform::LoggingPlatform* platform = platform::installed();
  if (platform == nullptr) return nullptr;
  auto* logger =
      platform->process.once<DDJournalLogger>([&] { return std::make_shared<DDJournalLogger>(SingletonKey{}, *platform); });
  return logger == nullptr ? nullptr : std::static_pointer_cast<DDJournalLogger>(logger->shared_from_this());
}

DDJournalLogger::DDJournalLogger(SingletonKey /*key*/, platform::LoggingPlatform& platform)
    : DDAbstractLogger("cocoa.plamaiskre.journalLogger"),
      _host(platform.loggingHost),
      _systemLog(platform.systemLog),
      _process(platform.loggingHost == nullptr ? std::string() : platform.loggingHost->process.processName()) {}

void DDJournalLogger::logMessage(const DDLogMessage& message) {
  const auto text = textOf(message);
  if (_host == nullptr || !_host->sendToJournal || !text) return;
  Entry entry;
  entry.add("MESSAGE", *text);
  entry.add("PRIORITY", std::to_string(priorityOf(message.logFlag())));
  entry.add("SYSLOG_IDENTIFIER", _process);
  entry.add("TID", std::to_string(message.machThreadID()));
  addPlace(entry, message);
  if (const auto label = message.queueLabel()) entry.add("KELTO_QUEUE", *label);
  if (message.logContext() != 0) entry.add("KELTO_CONTEXT", std::to_string(message.logContext()));
  for (auto fields = message.fields(); const auto field = fields.next();) entry.add(nameOf(field->key), field->value);
  const bool isTaken = _host->sendToJournal(entry.fields());
  if (!isTaken && !_isInTrouble) _systemLog.log("DDJournalLogger: the journal does not take records");
  _isInTrouble = !isTaken;
}
