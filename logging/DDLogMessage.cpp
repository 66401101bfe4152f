#include "logging/DDLogMessage.h"

#include "foundation/dispatch/Clock.h"
#include "foundation/dispatch/Dispatch.h"
#include "foundation/text/Format.h"
#include "logging/LogCore.h"

DDLogMessage::DDLogMessage(std::string_view logMsg, std::int32_t level, std::int32_t flag, std::int32_t context,
                           const char* file, const char* function, std::int32_t line)
    : _facts{.timestamp = foundation::Clock::current().now(),
             .file = file,
             .function = function,
             .level = level,
             .flag = flag,
             .context = context,
             .line = line,
             .thread = LogCore::threadOfCaller()} {
  own(logMsg, foundation::Dispatch::currentQueueLabel(), {});
}

DDLogMessage::DDLogMessage(const DDLogMessage& other) : _facts(other._facts) {
  own(other._text, other._label, other._fields);
}

void DDLogMessage::own(std::string_view text, std::string_view label, std::string_view fields) {
  _storage.reserve(text.size() + label.size() + fields.size());
  _storage.append(text).append(label).append(fields);
  const std::string_view all = _storage;
  _text = all.substr(0, text.size());
  if (label.data() != nullptr) _label = all.substr(text.size(), label.size());
  _fields = all.substr(text.size() + label.size());
}

std::string DDLogMessage::threadID() const { return foundation::formatted("%x", machThreadID()); }

// A "." before the last "/" belongs to a folder.
std::string_view DDLogMessage::fileName() const {
  std::string_view name(file() == nullptr ? "" : file());
  const auto slash = name.rfind('/');
  if (slash != std::string_view::npos) name.remove_prefix(slash + 1);
  return name.substr(0, name.rfind('.'));
}

std::optional<std::string_view> DDLogMessage::methodName() const {
  return function() == nullptr ? std::nullopt : std::optional<std::string_view>(function());
}
