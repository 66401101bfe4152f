#include "logging/LogRing.h"

#include <algorithm>
#include <bit>
#include <cstring>
#include <new>

namespace {

std::uint64_t blocksInARow(std::size_t size) {
  const std::size_t count = (size + LogTexts::blockSize - 1) / LogTexts::blockSize;
  return ~std::uint64_t{0} >> (LogTexts::blockCount - count);
}

constexpr std::size_t cacheLine = 64;

}  // namespace

std::int32_t LogTexts::take(std::size_t size) {
  if (size == 0 || size > bytes) return none;
  const std::uint64_t wanted = blocksInARow(size);
  std::uint64_t taken = _taken.load(std::memory_order_relaxed);
  for (int first = 0; first + std::popcount(wanted) <= blockCount;) {
    if ((taken & wanted << first) != 0)
      ++first;
    else if (_taken.compare_exchange_weak(taken, taken | wanted << first, std::memory_order_acquire))
      return first;
  }
  return none;
}

void LogTexts::giveBack(std::int32_t first, std::size_t size) {
  _taken.fetch_and(~(blocksInARow(size) << first), std::memory_order_release);
}

void LogSlot::fill(const DDLogMessage::Facts& facts, std::string_view text, std::string_view label, bool synchronous,
                   LogTexts& texts, std::string_view fields) {
  label = label.substr(0, INT16_MAX);
  timestamp = facts.timestamp;
  file = facts.file;
  function = facts.function;
  level = facts.level;
  flag = facts.flag;
  context = facts.context;
  line = facts.line;
  thread = facts.thread;
  isSynchronous = synchronous;
  const std::size_t wanted = text.size() + label.size() + fields.size();
  isSpilled = wanted > inlineCapacity ? 1 : 0;
  char* place = inlineText;
  if (isSpilled != 0) {
    spilledBlock = static_cast<std::int16_t>(texts.take(wanted));
    place = spilledBlock == LogTexts::none ? new (std::nothrow) char[wanted] : texts.at(spilledBlock);
    std::memcpy(inlineText, &place, sizeof place);
    text.copy(inlineText + sizeof place, inlineCapacity - sizeof place);
  }
  if (place == nullptr) {
    // The ticket is taken, and everybody would wait for a record that never comes. So its beginning comes.
    isSpilled = 0;
    place = inlineText;
    label = label.data() == nullptr ? label : label.substr(0, 0);
    text = text.substr(0, inlineCapacity);
    fields = {};
  }
  textLength = static_cast<std::uint32_t>(text.size());
  labelLength = label.data() == nullptr ? noLabel : static_cast<std::int16_t>(label.size());
  fieldsLength = static_cast<std::uint16_t>(fields.size());
  text.copy(place, text.size());
  label.copy(place + text.size(), label.size());
  fields.copy(place + text.size() + label.size(), fields.size());
}

DDLogMessage LogSlot::message() const {
  const char* place = isSpilled != 0 ? spilled() : inlineText;
  const std::string_view label = labelLength == noLabel
                                     ? std::string_view()
                                     : std::string_view(place + textLength, static_cast<std::size_t>(labelLength));
  return DDLogMessage({.timestamp = timestamp,
                       .file = file,
                       .function = function,
                       .level = level,
                       .flag = flag,
                       .context = context,
                       .line = line,
                       .thread = thread},
                      std::string_view(place, textLength), label,
                      std::string_view(place + textLength + label.size(), fieldsLength));
}

char* LogSlot::spilled() const {
  char* place = nullptr;
  std::memcpy(&place, inlineText, sizeof place);
  return place;
}

std::size_t LogSlot::textSize() const {
  return textLength + static_cast<std::size_t>(std::max<std::int16_t>(labelLength, 0)) + fieldsLength;
}

std::size_t LogSlot::filledBytes() const { return isSpilled != 0 ? size : size - inlineCapacity + textSize(); }

void LogSlot::releaseSpilledText(LogTexts& texts) {
  if (isSpilled == 0) return;
  if (spilledBlock == LogTexts::none)
    delete[] spilled();
  else
    texts.giveBack(spilledBlock, textSize());
}

LogSlot::Surviving LogSlot::surviving(const LogTexts& texts) const {
  std::string_view whole(inlineText, inlineCapacity);
  if (isSpilled != 0) {
    const bool isInBlocks = spilledBlock >= 0 && spilledBlock < LogTexts::blockCount;
    const std::size_t block = static_cast<std::size_t>(isInBlocks ? spilledBlock : 0);
    whole.remove_prefix(sizeof(char*));
    if (isInBlocks && textLength <= LogTexts::bytes - block * LogTexts::blockSize)
      whole = {texts.at(spilledBlock), LogTexts::bytes - block * LogTexts::blockSize};
  }
  Surviving survivors{.text = whole.substr(0, textLength), .fields = {}};
  if (textSize() <= whole.size()) survivors.fields = whole.substr(textSize() - fieldsLength, fieldsLength);
  return survivors;
}

DDLogMessage LogSlot::survivingRecord(const LogTexts& texts) const {
  // Loggers may rely on a file, but not on a function.
  const DDLogMessage::Facts facts{
      .timestamp = timestamp, .file = "", .level = level, .flag = flag, .context = context, .line = line, .thread = thread};
  // A copy owns its text: the memory that holds it goes away.
  const Surviving survivors = surviving(texts);
  const DDLogMessage borrowed(facts, survivors.text, std::string_view(), survivors.fields);
  return DDLogMessage(borrowed);
}

void LogRing::prefetchForReading(std::uint64_t ticket, std::size_t bytes) {
  const char* slot = reinterpret_cast<const char*>(&slotOf(ticket));
  for (std::size_t offset = 0; offset < bytes; offset += cacheLine) __builtin_prefetch(slot + offset, 0);
}

// The plain x86-64 has only a prefetch for reading, after which a write waits for the other processor all the same. The
// one for writing does nothing on the processors that lack it.
#ifdef __x86_64__
[[gnu::target("prfchw")]]
#endif
void LogRing::prefetchForWriting(std::uint64_t ticket, std::size_t bytes) {
  // Otherwise the consumer has yet to read it.
  if (ticket >= _end.load(std::memory_order_relaxed)) return;
  const char* slot = reinterpret_cast<const char*>(&_memory.slots[ticket % capacity]);
  for (std::size_t offset = 0; offset < bytes; offset += cacheLine) __builtin_prefetch(slot + offset, 1);
}

void LogRing::release(std::uint64_t ticket) {
  slotOf(ticket).releaseSpilledText(_texts);
  _memory.head.store(ticket + 1, std::memory_order_release);
}

void LogRing::reset() {
  for (auto& slot : _memory.slots) slot.sequence.store(0, std::memory_order_relaxed);
  _memory.head.store(0);
  _texts.giveAllBack();
  _tail.store(0);
  _end.store(capacity);
}
