#include "logging/LogRing.h"

#include <algorithm>
#include <bit>
#include <cstring>
#include <memory>

namespace {

std::uint64_t blocksInARow(std::size_t size) {
  const std::size_t count = (size + LogTexts::blockSize - 1) / LogTexts::blockSize;
  return ~std::uint64_t{0} >> (LogTexts::blockCount - count);
}

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

void LogSlot::fill(const DDLogMessage::Facts& facts, std::string_view text, std::optional<std::string_view> label,
                   bool synchronous, LogTexts& texts) {
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
  isSpilled = text.size() + labelText.size() > inlineCapacity ? 1 : 0;
  char* place = inlineText;
  if (isSpilled != 0) {
    spilledBlock = texts.take(spilledSize());
    place = spilledBlock == LogTexts::none ? new char[spilledSize()] : texts.at(spilledBlock);
    std::memcpy(inlineText, &place, sizeof place);
    text.copy(inlineText + sizeof place, inlineCapacity - sizeof place);
  }
  text.copy(place, text.size());
  labelText.copy(place + text.size(), labelText.size());
}

DDLogMessage LogSlot::message() const {
  const char* place = isSpilled != 0 ? spilled() : inlineText;
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

std::size_t LogSlot::spilledSize() const {
  return textLength + static_cast<std::size_t>(std::max<std::int16_t>(labelLength, 0));
}

void LogSlot::releaseSpilledText(LogTexts& texts) {
  if (isSpilled == 0) return;
  if (spilledBlock == LogTexts::none)
    delete[] spilled();
  else
    texts.giveBack(spilledBlock, spilledSize());
}

std::string_view LogSlot::survivingText(const LogTexts& texts) const {
  if (isSpilled == 0) return {inlineText, std::min<std::size_t>(textLength, inlineCapacity)};
  const bool isInBlocks = spilledBlock >= 0 && spilledBlock < LogTexts::blockCount &&
                          textLength <= LogTexts::bytes - static_cast<std::size_t>(spilledBlock) * LogTexts::blockSize;
  if (isInBlocks) return {texts.at(spilledBlock), textLength};
  return {inlineText + sizeof(char*), std::min<std::size_t>(textLength, inlineCapacity - sizeof(char*))};
}

DDLogMessage LogSlot::survivingRecord(const LogTexts& texts) const {
  const DDLogMessage::Facts facts{
      .timestamp = timestamp, .level = level, .flag = flag, .context = context, .line = line, .thread = thread};
  return DDLogMessage(DDLogMessage(facts, survivingText(texts), std::nullopt));
}

std::span<char> LogSlot::textInBlocks() const {
  if (isSpilled == 0 || spilledBlock == LogTexts::none) return {};
  return {spilled(), spilledSize()};
}

LogRing::LogRing(std::span<std::byte> memory)
    : _slots(reinterpret_cast<LogSlot*>(memory.data())), _texts(memory.data() + slotBytes) {
  for (std::uint64_t i = 0; i < capacity; ++i) std::construct_at(&_slots[i].sequence, i);
}

void LogRing::release(std::uint64_t ticket) {
  LogSlot& slot = slotOf(ticket);
  slot.releaseSpilledText(_texts);
  slot.sequence.store(ticket + capacity, std::memory_order_release);
  _head.store(ticket + 1, std::memory_order_release);
}

LogRing::HeadCopy LogRing::copyOfHead() {
  const LogSlot& slot = slotOf(head());
  const auto text = slot.textInBlocks();
  HeadCopy copy{.slot = {}, .text = {text.data(), text.size()}};
  std::memcpy(copy.slot.data(), &slot, copy.slot.size());
  return copy;
}

void LogRing::putBack(const HeadCopy& head) {
  LogSlot& slot = slotOf(_head.load(std::memory_order_relaxed));
  std::memcpy(static_cast<void*>(&slot), head.slot.data(), head.slot.size());
  head.text.copy(slot.textInBlocks().data(), head.text.size());
}

void LogRing::reset() {
  for (std::uint64_t i = 0; i < capacity; ++i) _slots[i].sequence.store(i, std::memory_order_relaxed);
  _texts.giveAllBack();
  _tail.store(0);
  _head.store(0);
}
