#include "logging/LogJournal.h"

#include <algorithm>
#include <cstring>
#include <new>

namespace {

constexpr std::size_t totalBytes = LogRing::bytes + sizeof(LogLines);
constexpr std::align_val_t alignment{alignof(LogSlot)};

// A slot that was filled and not yet free again shows the sequence after its ticket; the place in the ring gives it away.
bool isFilled(std::uint64_t index, std::uint64_t sequence) {
  return sequence > 0 && (sequence - 1) % LogRing::capacity == index;
}

bool isSane(const LogSlot& slot) { return slot.textLength > 0 || slot.labelLength >= LogSlot::noLabel; }

std::vector<const LogSlot*> waitingSlots(std::span<std::byte> memory, std::uint64_t firstTicket) {
  const auto* slots = reinterpret_cast<const LogSlot*>(memory.data());
  std::vector<const LogSlot*> waiting;
  for (std::uint64_t i = 0; i < LogRing::capacity; ++i) {
    const std::uint64_t sequence = slots[i].sequence.load(std::memory_order_acquire);
    if (isFilled(i, sequence) && sequence - 1 >= firstTicket && isSane(slots[i])) waiting.push_back(&slots[i]);
  }
  std::ranges::sort(waiting, {}, [](const LogSlot* slot) { return slot->sequence.load(std::memory_order_relaxed); });
  return waiting;
}

LogRemains remainsIn(std::span<std::byte> memory) {
  const auto& lines = *reinterpret_cast<const LogLines*>(memory.data() + LogRing::bytes);
  LogRemains remains;
  remains.path.assign(lines.path, std::find(lines.path, lines.path + LogLines::longestPath, '\0'));
  remains.fileSize = lines.fileSize;
  remains.lines.assign(lines.bytes, std::min(lines.length(), LogLines::capacity));
  const LogTexts texts(memory.data() + LogRing::slotBytes);
  for (const LogSlot* slot : waitingSlots(memory, lines.nextTicket()))
    remains.records.push_back(slot->survivingRecord(texts));
  return remains;
}

}  // namespace

void LogJournal::FreeBytes::operator()(std::byte* bytes) const { ::operator delete(bytes, alignment); }

LogJournal::LogJournal(platform::LoggingHost* host)
    : _name(host == nullptr ? std::string() : host->process.processName()), _host(host) {
  if (host != nullptr) _memory = host->memories.make(_name, totalBytes);
  if (_memory) {
    _bytes = _memory->bytes();
  } else {
    _plain = makeBytes(totalBytes);
    _bytes = {_plain.get(), totalBytes};
  }
  _lines = new (_bytes.data() + LogRing::bytes) LogLines;
  _lines->setState(0, 0);
  _lines->path[0] = '\0';
}

LogJournal::Bytes LogJournal::makeBytes(std::size_t size) {
  Bytes bytes(static_cast<std::byte*>(::operator new(size, alignment)));
  std::memset(bytes.get(), 0, LogRing::slotBytes);
  return bytes;
}

std::span<std::byte> LogJournal::anotherRingMemory() {
  return {_others.emplace_back(makeBytes(LogRing::bytes)).get(), LogRing::bytes};
}

LogLines* LogJournal::claimLines() { return _areLinesClaimed.exchange(true) ? nullptr : _lines; }

std::vector<LogRemains> LogJournal::takeRemains() {
  std::vector<LogRemains> all;
  if (_host == nullptr) return all;
  for (const auto& memory : _host->memories.orphans(_name, totalBytes)) {
    all.push_back(remainsIn(memory->bytes()));
    memory->discard();
  }
  return all;
}

void LogJournal::discard() {
  if (_memory) _memory->discard();
}
