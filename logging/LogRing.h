#pragma once
// The records that wait: a ring in which every caller takes a ticket, and so its place in the order.
//
// Any number of threads put records in; one at a time takes them out. Slots are plain bytes, so that they may lie in a
// memory that outlives the process.
#include <atomic>
#include <cstddef>
#include <string>

#include "logging/DDLogMessage.h"

// Room for the texts that are longer than a slot. They lie behind the slots, so that they outlive the process with them.
//
// When it is full, or a text longer than all of it, the text is somewhere else, and only its beginning outlives the
// process.
class LogTexts {
 public:
  static constexpr std::size_t blockSize = 4096;
  static constexpr int blockCount = 64;
  static constexpr std::size_t bytes = blockSize * blockCount;
  static constexpr std::int32_t none = -1;

  explicit LogTexts(std::byte* memory) : _memory(reinterpret_cast<char*>(memory)) {}

  // The first of as many blocks in a row as `size` bytes need; `none` when there are not so many. Any thread.
  std::int32_t take(std::size_t size);
  void giveBack(std::int32_t first, std::size_t size);
  void giveAllBack() { _taken.store(0); }
  [[nodiscard]] char* at(std::int32_t first) const { return _memory + static_cast<std::size_t>(first) * blockSize; }

 private:
  char* const _memory;
  std::atomic<std::uint64_t> _taken{0};  // a bit for every block
};

// One record. `sequence` is one more than the ticket of the record that the slot was last filled with.
struct alignas(64) LogSlot {
  static constexpr std::size_t size = 512;
  static constexpr std::size_t inlineCapacity = size - 64;
  static constexpr std::int16_t noLabel = -1;

  // `label` may be nullptr: the record then has no label.
  void fill(const DDLogMessage::Facts& facts, std::string_view text, std::string_view label, bool isSynchronous,
            LogTexts& texts, std::string_view fields = {});
  // Borrows from the slot.
  [[nodiscard]] DDLogMessage message() const;
  void releaseSpilledText(LogTexts& texts);
  // The rest of the record after the process that wrote it died, with that process's `texts`: the text, or its
  // beginning when it was on the heap, and no places.
  [[nodiscard]] DDLogMessage survivingRecord(const LogTexts& texts) const;
  // The number of bytes of the slot that are in use.
  [[nodiscard]] std::size_t filledBytes() const;

  std::atomic<std::uint64_t> sequence;
  foundation::Date timestamp;
  const char* file;
  const char* function;
  std::int32_t level;
  std::int32_t flag;
  std::int32_t context;
  std::int32_t line;
  std::uint32_t thread;
  std::uint32_t textLength;
  std::int16_t labelLength;
  bool isSynchronous;
  // Text, label and fields, in this order, are elsewhere; inline lie the pointer to them and their beginning. Not a bool,
  // for what survives may be anything.
  std::uint8_t isSpilled;
  std::int16_t spilledBlock;  // where in LogTexts, or `none`: on the heap
  std::uint16_t fieldsLength;
  alignas(8) char inlineText[inlineCapacity];

 private:
  [[nodiscard]] char* spilled() const;
  [[nodiscard]] std::size_t textSize() const;
  // The fields are empty if they have not survived.
  struct Surviving {
    std::string_view text;
    std::string_view fields;
  };
  [[nodiscard]] Surviving surviving(const LogTexts& texts) const;
};
static_assert(sizeof(LogSlot) == LogSlot::size);
static_assert(std::atomic<std::uint64_t>::is_always_lock_free);

// The part of a ring that outlives the process. Memory that is all zero is an empty one.
struct LogRingMemory {
  static constexpr std::uint64_t capacity = 1000;

  LogSlot slots[capacity];
  // The records below this ticket have been delivered.
  alignas(64) std::atomic<std::uint64_t> head;
  alignas(64) std::byte texts[LogTexts::bytes];
};

// The records that wait, in the order of their tickets.
//
// The idea. A lock that every producer takes makes four producers slower than one. Here a producer adds one to the tail,
// and the old value is its ticket: its place in the order, and, modulo the capacity, its slot. It fills the slot while
// nobody else touches it, and publishes it by writing the ticket plus one into the slot's sequence. The one consumer takes
// the slots in the order of the tickets, so it waits for a slot that is taken but not yet published, and then moves the
// head on. A producer may fill its slot once the head is less than a whole ring behind its ticket.
//
// Fetching a line that another processor has written can cost as much as making a whole record. So nobody writes into a
// slot to say that it is free: producers know it from the head, and read the head only when they have used up the slots
// that were free at their last look.
class LogRing {
 public:
  static constexpr std::uint64_t capacity = LogRingMemory::capacity;

  // `memory` is empty, and stays the caller's.
  explicit LogRing(LogRingMemory& memory) : _memory(memory), _texts(memory.texts) {}

  // Producers. A ticket must be filled and published, and as soon as its slot is free.
  std::uint64_t takeTicket() { return _tail.fetch_add(1, std::memory_order_acq_rel); }
  [[nodiscard]] LogSlot& slotOf(std::uint64_t ticket) { return _memory.slots[ticket % capacity]; }
  [[nodiscard]] bool isFree(std::uint64_t ticket) {
    if (ticket < _end.load(std::memory_order_acquire)) return true;
    const std::uint64_t end = head() + capacity;
    // Of two producers the one with the older look may come last. The next one looks again, then.
    _end.store(end, std::memory_order_release);
    return ticket < end;
  }
  // Whether the next ticket's slot is free, as far as can be told without taking the ticket.
  [[nodiscard]] bool hasRoom() { return isFree(nextTicket()); }
  [[nodiscard]] LogTexts& texts() { return _texts; }
  void publish(std::uint64_t ticket) { slotOf(ticket).sequence.store(ticket + 1, std::memory_order_release); }
  // Every record put in before this call has a lower ticket.
  [[nodiscard]] std::uint64_t nextTicket() const { return _tail.load(std::memory_order_acquire); }

  // The consumer.
  [[nodiscard]] std::uint64_t head() const { return _memory.head.load(std::memory_order_acquire); }
  [[nodiscard]] bool hasRecord() { return slotOf(head()).sequence.load(std::memory_order_seq_cst) == head() + 1; }
  void release(std::uint64_t ticket);
  // Both sides find a slot in the other processor's cache unless it is asked for some records ahead. They ask for as
  // many bytes as the record at hand fills: every line more is fetched to and fro in vain.
  void prefetchForReading(std::uint64_t ticket, std::size_t bytes);
  void prefetchForWriting(std::uint64_t ticket, std::size_t bytes);

  // In the one thread of a forked child: empty again.
  void reset();

 private:
  LogRingMemory& _memory;
  LogTexts _texts;
  alignas(64) std::atomic<std::uint64_t> _tail{0};
  std::atomic<std::uint64_t> _end{capacity};  // the slots below this ticket were free at the producers' last look
};
