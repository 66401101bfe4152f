#include "logging/DispatchQueueLogFormatter.h"

#include <algorithm>
#include <mutex>

namespace {

constexpr std::int32_t narrowest = 4;
constexpr std::int32_t widest = 35;

// Where the character that begins at or before `index` begins: text is cut between characters.
bool isContinuation(char c) { return (static_cast<unsigned char>(c) & 0xC0U) == 0x80U; }

std::size_t characterCount(std::string_view text) {
  return static_cast<std::size_t>(std::ranges::count_if(text, [](char c) { return !isContinuation(c); }));
}

std::string_view firstCharacters(std::string_view text, std::size_t count) {
  std::size_t end = 0;
  for (; end < text.size(); ++end)
    if (!isContinuation(text[end]) && count-- == 0) break;
  return text.substr(0, end);
}

}  // namespace

std::int32_t DispatchQueueLogFormatter::queueLength() {
  const std::lock_guard guard(lock);
  return _queueLength;
}

void DispatchQueueLogFormatter::setQueueLength(std::int32_t length) {
  const std::lock_guard guard(lock);
  _queueLength = std::clamp(length, narrowest, widest);
}

bool DispatchQueueLogFormatter::rightAlign() {
  const std::lock_guard guard(lock);
  return _rightAlign;
}

void DispatchQueueLogFormatter::setRightAlign(bool rightAlign) {
  const std::lock_guard guard(lock);
  _rightAlign = rightAlign;
}

std::optional<std::string> DispatchQueueLogFormatter::replacementStringForQueueLabel(std::string_view label) {
  const std::lock_guard guard(lock);
  const auto place = _replacements.find(label);
  return place == _replacements.end() ? std::nullopt : std::optional(place->second);
}

void DispatchQueueLogFormatter::setReplacementString_forQueueLabel(std::optional<std::string> name,
                                                                   std::string_view label) {
  const std::lock_guard guard(lock);
  if (name)
    _replacements.insert_or_assign(std::string(label), std::move(*name));
  else if (const auto place = _replacements.find(label); place != _replacements.end())
    _replacements.erase(place);
}

DispatchQueueLogFormatter::Column DispatchQueueLogFormatter::columnOf(const DDLogMessage& message) {
  const auto label = message.queueLabel();
  std::string name = label ? std::string(*label) : message.threadID();
  const std::lock_guard guard(lock);
  const auto place = label ? _replacements.find(*label) : _replacements.end();
  if (place != _replacements.end()) name = place->second;
  return {.name = std::move(name), .width = static_cast<std::size_t>(_queueLength), .rightAlign = _rightAlign};
}

std::optional<std::string_view> DispatchQueueLogFormatter::formatLogMessage(const DDLogMessage& message,
                                                                            std::string& buffer) {
  const Column column = columnOf(message);
  std::string_view name = column.name;
  const std::size_t length = characterCount(name);
  if (length > column.width && column.rightAlign) name.remove_prefix(firstCharacters(name, length - column.width).size());
  if (length > column.width && !column.rightAlign) name = firstCharacters(name, column.width);
  char blanks[widest];
  std::ranges::fill(blanks, ' ');
  const std::string_view missing(blanks, column.width - std::min(length, column.width));
  buffer.clear();
  dateFormatter.appendString(message.timestamp(), buffer);
  buffer.append(" [");
  if (column.rightAlign)
    buffer.append(missing).append(name);
  else
    buffer.append(name).append(missing);
  return buffer.append("] ").append(message.logMsg());
}
