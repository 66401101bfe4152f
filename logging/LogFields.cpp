#include "logging/LogFields.h"

#include <cmath>
#include <cstdint>
#include <cstring>

namespace {

// In front of the bytes of a key and its value.
struct Head {
  std::uint16_t keyLength;
  std::uint16_t valueLength;
  bool isNumber;
};

bool isNumber(const foundation::FormatArgument& argument) {
  const auto& value = argument.value();
  if (const auto* real = std::get_if<double>(&value)) return std::isfinite(*real);
  return std::holds_alternative<std::int64_t>(value) || std::holds_alternative<std::uint64_t>(value);
}

void encodeOne(const LogField& field, std::string& bytes) {
  const std::string value = foundation::format("%@", std::span(&field.value, 1));
  if (field.key.size() > LogFieldReader::longest || value.size() > LogFieldReader::longest) return;
  const Head head{.keyLength = static_cast<std::uint16_t>(field.key.size()),
                  .valueLength = static_cast<std::uint16_t>(value.size()),
                  .isNumber = isNumber(field.value)};
  char copy[sizeof head] = {};
  std::memcpy(copy, &head, sizeof head);
  bytes.append(copy, sizeof copy).append(field.key).append(value);
}

}  // namespace

void LogFields::encode(std::string& bytes) const {
  const std::size_t start = bytes.size();
  for (const auto& field : _fields) {
    const std::size_t before = bytes.size();
    encodeOne(field, bytes);
    if (bytes.size() - start > LogFieldReader::longest) bytes.resize(before);
  }
}

std::optional<LogFieldReader::Field> LogFieldReader::next() {
  Head head{};
  if (_rest.size() < sizeof head) return std::nullopt;
  std::memcpy(&head.keyLength, _rest.data() + offsetof(Head, keyLength), sizeof head.keyLength);
  std::memcpy(&head.valueLength, _rest.data() + offsetof(Head, valueLength), sizeof head.valueLength);
  // Memory that outlives a process may hold anything, and not every byte is a bool.
  head.isNumber = _rest[offsetof(Head, isNumber)] != 0;
  const std::string_view bytes = _rest.substr(sizeof head);
  if (bytes.size() < std::size_t{head.keyLength} + head.valueLength) return std::nullopt;
  _rest = bytes.substr(std::size_t{head.keyLength} + head.valueLength);
  return Field{bytes.substr(0, head.keyLength), bytes.substr(head.keyLength, head.valueLength), head.isNumber};
}
