#include "logging/LogRing.h"

#include <algorithm>
#include <cstring>
#include <memory>

void LogSlot::fill(const DDLogMessage::Facts& facts, std::string_view text, std::optional<std::string_view> label,
                   bool synchronous) {
  const std::string_view labelText = label.value_or(std::string_view()).substr(0, INT16_MAX);
  timestamp = facts.timestamp;
  file = facts.file;
  function = facts.function;
  level = facts.level;
  flag = facts.flag;
  context = facts.context;
  line = facts.line;
  thread = facts.thread;
  textLength = static_cast<std::uint32_t>(text.size());
  labelLength = label ? static_cast<std::int16_t>(labelText.size()) : noLabel;
  isSynchronous = synchronous;
  isSpilled = text.size() + labelText.size() > inlineCapacity;
  char* place = inlineText;
  if (isSpilled) {
    place = new char[text.size() + labelText.size()];
    std::memcpy(inlineText, &place, sizeof place);
    text.copy(inlineText + sizeof place, inlineCapacity - sizeof place);
  }
  text.copy(place, text.size());
  labelText.copy(place + text.size(), labelText.size());
}

DDLogMessage LogSlot::message() const {
  const char* place = isSpilled ? spilled() : inlineText;
  std::optional<std::string_view> label;
  if (labelLength != noLabel) label = std::string_view(place + textLength, static_cast<std::size_t>(labelLength));
  return DDLogMessage({.timestamp = timestamp,
                       .file = file,
                       .function = function,
                       .level = level,
                       .flag = flag,
                       .context = context,
                       .line = line,
                       .thread = thread},
                      std::string_view(place, textLength), label);
}

char* LogSlot::spilled() const {
  char* place = nullptr;
  std::memcpy(&place, inlineText, sizeof place);
  return place;
}

void LogSlot::releaseSpilledText() {
  if (isSpilled) delete[] spilled();
}

DDLogMessage LogSlot::survivingRecord() const {
  const std::size_t start = isSpilled ? sizeof(char*) : 0;
  const std::string_view text(inlineText + start, std::min<std::size_t>(textLength, inlineCapacity - start));
  const DDLogMessage::Facts facts{
      .timestamp = timestamp, .level = level, .flag = flag, .context = context, .line = line, .thread = thread};
  return DDLogMessage(DDLogMessage(facts, text, std::nullopt));
}

LogRing::LogRing(std::span<std::byte> memory) : _slots(reinterpret_cast<LogSlot*>(memory.data())) {
  for (std::uint64_t i = 0; i < capacity; ++i) std::construct_at(&_slots[i].sequence, i);
}

void LogRing::release(std::uint64_t ticket) {
  LogSlot& slot = slotOf(ticket);
  slot.releaseSpilledText();
  slot.sequence.store(ticket + capacity, std::memory_order_release);
  _head.store(ticket + 1, std::memory_order_release);
}

void LogRing::reset() {
  for (std::uint64_t i = 0; i < capacity; ++i) _slots[i].sequence.store(i, std::memory_order_relaxed);
  _tail.store(0);
  _head.store(0);
}
