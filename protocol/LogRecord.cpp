#include "protocol/LogRecord.h"

#include <algorithm>
#include <array>
#include <ctime>

namespace protocol {

namespace {

constexpr int facility = 10;  // messages about security and authorization

std::string number(LogPriority priority) { return std::to_string(static_cast<int>(priority)); }

}  // namespace

std::string journalDatagram(const LogRecord& record) {
  std::string datagram = "MESSAGE=" + record.line + "\nPRIORITY=" + number(record.priority) +
                         "\nSYSLOG_FACILITY=" + std::to_string(facility) + "\nSYSLOG_IDENTIFIER=" + record.program +
                         "\nSYSLOG_PID=" + std::to_string(record.process) + "\n";
  for (const auto& [name, value] : record.fields) datagram += name + "=" + printable(value) + "\n";
  return datagram;
}

std::string logDatagram(const LogRecord& record) {
  const std::time_t now = std::time(nullptr);
  std::array<char, 32> stamp{};
  if (const auto* local = std::localtime(&now)) std::strftime(stamp.data(), stamp.size(), "%b %e %T ", local);
  return "<" + std::to_string(facility * 8 + static_cast<int>(record.priority)) + ">" + stamp.data() + record.program +
         "[" + std::to_string(record.process) + "]: " + record.line;
}

std::string printable(std::string_view text) {
  constexpr std::size_t longest = 200;
  std::string result(text.substr(0, longest));
  std::replace_if(
      result.begin(), result.end(), [](char character) { return character < ' ' || character > '~'; }, '?');
  return text.size() > longest ? result + "..." : result;
}

}  // namespace protocol
