#include "logging/LogJournal.h"

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <new>

namespace {

// A slot that was filled shows the sequence after its ticket; the place in the ring tells it from rubbish.
bool isFilled(std::uint64_t index, std::uint64_t sequence) {
  return sequence > 0 && (sequence - 1) % LogRing::capacity == index;
}

bool isSane(const LogSlot& slot) { return slot.textLength > 0 || slot.labelLength >= LogSlot::noLabel; }

std::vector<const LogSlot*> waitingSlots(const LogRingMemory& ring, std::uint64_t firstTicket) {
  std::vector<const LogSlot*> waiting;
  for (std::uint64_t i = 0; i < LogRing::capacity; ++i) {
    const LogSlot& slot = ring.slots[i];
    const std::uint64_t sequence = slot.sequence.load(std::memory_order_acquire);
    if (isFilled(i, sequence) && sequence - 1 >= firstTicket && isSane(slot)) waiting.push_back(&slot);
  }
  std::ranges::sort(waiting, {}, [](const LogSlot* slot) { return slot->sequence.load(std::memory_order_relaxed); });
  return waiting;
}

LogMemory* memoryIn(platform::SurvivingMemory& surviving) { return reinterpret_cast<LogMemory*>(surviving.bytes().data()); }

LogRemains remainsIn(std::shared_ptr<platform::SurvivingMemory> surviving) {
  LogMemory& memory = *memoryIn(*surviving);
  const LogLines& lines = memory.lines;
  LogRemains remains;
  remains.memory = std::move(surviving);
  remains.path.assign(lines.path, std::find(lines.path, lines.path + LogLines::longestPath, '\0'));
  remains.fileSize = lines.fileSize;
  remains.lines.assign(lines.bytes, std::min(lines.length(), LogLines::capacity));
  const LogTexts texts(memory.ring.texts);
  for (const LogSlot* slot :
       waitingSlots(memory.ring, std::max(lines.nextTicket(), memory.ring.head.load(std::memory_order_acquire))))
    remains.records.push_back({slot->sequence.load(std::memory_order_relaxed) - 1, slot->survivingRecord(texts)});
  return remains;
}

}  // namespace

void LogRemains::didWriteLines() const {
  LogLines& own = memoryIn(*memory)->lines;
  own.setState(0, own.nextTicket());
}

void LogRemains::didWrite(const Record& record) const {
  memoryIn(*memory)->ring.head.store(record.ticket + 1, std::memory_order_release);
}

void LogJournal::Free::operator()(LogMemory* memory) const {
  ::operator delete (memory, std::align_val_t{alignof(LogMemory)});
}

LogJournal::LogJournal(platform::LoggingHost* host)
    : _name(host == nullptr ? std::string() : host->process.processName()), _host(host) {
  if (host != nullptr) _surviving = host->memories.make(_name, sizeof(LogMemory));
  if (!_surviving) _plain = makePlain();
  _memory = _surviving ? memoryIn(*_surviving) : _plain.get();
}

// Texts are not touched before they are written: most processes never need the memory.
LogJournal::Plain LogJournal::makePlain() {
  Plain memory(static_cast<LogMemory*>(::operator new (sizeof(LogMemory), std::align_val_t{alignof(LogMemory)})));
  std::memset(static_cast<void*>(memory.get()), 0, offsetof(LogRingMemory, texts));
  std::memset(static_cast<void*>(&memory->lines), 0, offsetof(LogLines, bytes));
  return memory;
}

LogLines* LogJournal::claimLines() { return _areLinesClaimed.exchange(true) ? nullptr : &_memory->lines; }

std::vector<LogRemains> LogJournal::takeRemains() {
  std::vector<LogRemains> all;
  if (_host == nullptr) return all;
  for (auto& memory : _host->memories.orphans(_name, sizeof(LogMemory))) all.push_back(remainsIn(std::move(memory)));
  return all;
}

void LogJournal::discard() {
  if (_surviving && _memory->lines.length() == 0) _surviving->discard();
}
