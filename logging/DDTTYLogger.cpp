#include "logging/DDTTYLogger.h"

#include <charconv>
#include <vector>

#include "foundation/text/Harmless.h"
#include "platform/LoggingPlatform.h"

namespace {

std::string_view colorOf(std::int32_t flag) {
  if (flag == DDLogFlagError) return "\x1b[31m";
  return flag == DDLogFlagWarning ? "\x1b[33m" : "";
}

}  // namespace

std::shared_ptr<DDTTYLogger> DDTTYLogger::sharedInstance() {
  platform::LoggingPlatform* platform = platform::installed();
  if (platform == nullptr) return nullptr;
  auto* logger = platform->process.once<DDTTYLogger>(
      [&] { return std::make_shared<DDTTYLogger>(SingletonKey{}, platform->loggingHost); });
  return logger == nullptr ? nullptr : std::static_pointer_cast<DDTTYLogger>(logger->shared_from_this());
}

DDTTYLogger::DDTTYLogger(SingletonKey /*key*/, platform::LoggingHost* host)
    : DDAbstractLogger("cocoa.plamaiskre.ttyLogger") {
  if (host == nullptr || !host->standardError.isTerminal()) return;
  _terminal = &host->standardError;
  app = host->process.processName();
  pid = std::to_string(host->process.processIdentifier());
}

void DDTTYLogger::logMessage(const DDLogMessage& message) {
  if (_terminal == nullptr) return;
  const auto text = textOf(message);
  if (!text) return;
  if (text->data() == message.logMsg().data()) {
    writeStandardLine(message, *text);
    return;
  }
  write(message, {*text, "\n"});
}

void DDTTYLogger::setColorsEnabled(bool enabled) {
  submitSetting([this, enabled] { loggerQueue()->sync([this, enabled] { _hasColors = enabled; }); });
}

// `pieces` is a line whose last piece is the line feed.
void DDTTYLogger::write(const DDLogMessage& message, std::initializer_list<std::string_view> pieces) {
  const std::string_view color = _hasColors ? colorOf(message.logFlag()) : "";
  if (color.empty()) {
    _terminal->write(pieces);
    return;
  }
  std::vector<std::string_view> colored(pieces);
  colored.insert(colored.begin(), color);
  colored.insert(colored.end() - 1, "\x1b[0m");
  _terminal->write(colored);
}

void DDTTYLogger::writeStandardLine(const DDLogMessage& message, std::string_view text) {
  char thread[9];
  const auto end = std::to_chars(std::begin(thread), std::end(thread), message.machThreadID(), 16).ptr;
  _timestamp.clear();
  dateFormatter.appendString(message.timestamp(), _timestamp);
  // A message may have lines, but it does not command the terminal.
  constexpr std::string_view layout = "\n\t";
  std::string shown;
  if (foundation::isHarmful(text, layout)) text = shown = foundation::harmless(text, layout);
  write(message, {_timestamp, " ", app, "[", pid, ":", {thread, end}, "] ", text, "\n"});
}
